// Sums and products of KVOSrvMatrix.

#include "Arrays.h"
#include "KVOSrvMatrix.h"

#include "DenseKernels.h"
#include "KVOFortran.h"
#include "KVOSrvMatrixSupport.h"
#include "TriangleTiles.h"

#include <algorithm>

using Arrays::AllocateArray;
using Arrays::Array;
using KVOSrvMatrixSupport::LeadingDimension;

namespace
{

constexpr KVOSrvMatrixSupport::InputCheck RequireLegal{"mtx/impl/KVOSrvMatrixArithmetic"};

// Tile sizes that the callers of the symmetric products know, so the same on every processor.
constexpr int kSymmetricTile = 128;
constexpr int kTransposeTile = 144;

constexpr int kUnitStride = 1;
constexpr double kOne = 1.0;
constexpr double kZero = 0.0;

struct Operand {
    double const* values;
    int rows; // leading dimension

    double const* At(int i, int j) const { return values + i + std::int64_t{j} * rows; }
};

// C := op(A) B + beta C
void Product(char const* transposeA, int m, int n, int k, Operand a, Operand b, double beta, double* c, int rowsOfC)
{
    int const lda = LeadingDimension(a.rows), ldb = LeadingDimension(b.rows), ldc = LeadingDimension(rowsOfC);
    BLAC_DGEMM(transposeA, "N", &m, &n, &k, &kOne, a.values, &lda, b.values, &ldb, &beta, c, &ldc);
}

} // namespace

void KVOSrvMatrix::Multiply(double s)
{
    if (s == 1.0)
        return;
    // A diagonal's array ends after its stored entries; the other elements are zero with any factor.
    std::int64_t const count = StoredEntries();
    for (std::int64_t i = 0; i < count; ++i)
        m_values[i] *= s;
}

KVOSrvMatrix& KVOSrvMatrix::operator+=(KVOSrvMatrix const& B)
{
    // Deliberate: both report under the name of operator*=; callers match on that text.
    RequireLegal(this != &B, "*=");
    RequireLegal(HasShapeOf(B) && (!m_diagonal || B.m_diagonal), "*=");

    Add(1.0, B);
    return *this;
}

void KVOSrvMatrix::Add(double f, KVOSrvMatrix const& B)
{
    if (f == 0.0)
        return;
    RequireLegal(HasShapeOf(B) && (!m_diagonal || B.m_diagonal), "Add");

    bool const alongDiagonal = B.m_diagonal && !m_diagonal;
    DenseKernels::AddMultiple(f, B.m_values, alongDiagonal ? std::min(m_rows, m_columns) : StoredEntries(), m_values,
                              alongDiagonal ? DiagonalStride() : 1);
}

void KVOSrvMatrix::Interpolate(double t, KVOSrvMatrix const& A, KVOSrvMatrix const& B)
{
    RequireLegal(HasShapeOf(A) && HasShapeOf(B), "Interpolate");
    RequireLegal(!(t < 0.0 || t > 1.0), "Interpolate");                                    // so written that a NaN passes
    RequireLegal(m_diagonal == A.m_diagonal && m_diagonal == B.m_diagonal, "Interpolate"); // entries pair up by their places in the arrays

    std::int64_t const count = StoredEntries();
    double const s = 1.0 - t;
    for (std::int64_t i = 0; i < count; ++i)
        m_values[i] = s * A.m_values[i] + t * B.m_values[i];
}

void KVOSrvMatrix::Multiply(KVOSrvMatrix const& B, KVOSrvMatrix& C, int /*option*/, int accumulate) const
{
    Product("N", m_rows, B.m_columns, B.m_rows, {m_values, m_rows}, {B.m_values, B.m_rows}, accumulate != 0 ? 1.0 : 0.0, C.m_values,
            C.m_rows);
}

void KVOSrvMatrix::Multiply(KVOSrvMatrix const& A, KVOSrvMatrix const& B)
{
    RequireLegal(A.m_columns == B.m_rows, "Multiply");
    RequireLegal(m_rows == A.m_rows && m_columns == B.m_columns, "Multiply");
    RequireLegal((!A.m_diagonal || A.IsSquare()) && (!B.m_diagonal || B.IsSquare()), "Multiply");
    if (A.m_diagonal && B.m_diagonal) {
        MultiplyDiagonals(A, B);
        return;
    }
    RequireLegal(!m_diagonal, "Multiply");
    if (!A.m_diagonal && !B.m_diagonal) {
        RequireLegal(m_values != A.m_values && m_values != B.m_values, "Multiply"); // DGEMM would read its own results
        Product("N", m_rows, m_columns, A.m_columns, {A.m_values, A.m_rows}, {B.m_values, B.m_rows}, 0.0, m_values, m_rows);
        return;
    }
    for (int j = 0; j < m_columns; ++j) {
        double const* const a = A.m_diagonal ? A.m_values : A.Column(j);
        double const* const b = B.Column(j);
        double* const c = Column(j);
        if (B.m_diagonal)
            for (int i = 0; i < m_rows; ++i)
                c[i] = a[i] * B.m_values[j];
        else
            for (int i = 0; i < m_rows; ++i)
                c[i] = b[i] * a[i];
    }
}

void KVOSrvMatrix::MultiplyDiagonals(KVOSrvMatrix const& A, KVOSrvMatrix const& B)
{
    // Deliberate: the first column alone is cleared; the other elements off the diagonal stay.
    if (!m_diagonal)
        std::fill_n(m_values, m_rows, 0.0);
    for (int i = 0; i < m_rows; ++i)
        m_values[i * DiagonalStride()] = B.m_values[i] * A.m_values[i];
}

void KVOSrvMatrix::SymmetricMultiply(KVOSrvMatrix const& A, KVOSrvMatrix const& B)
{
    RequireLegal(IsSquare() && m_rows == A.m_columns && m_rows == B.m_rows, "SymmetricMultiply");
    RequireLegal(HasShapeOf(A) && HasShapeOf(B), "SymmetricMultiply");
    RequireLegal(!m_diagonal && !A.m_diagonal && !B.m_diagonal, "SymmetricMultiply");
    RequireLegal(m_values != A.m_values && m_values != B.m_values, "SymmetricMultiply"); // they would be cleared

    *this = 0.0;
    TriangleTiles::Cut const cut{m_rows, kSymmetricTile, true};
    Operand const a{A.m_values, m_rows}, b{B.m_values, m_rows};
    TriangleTiles::Cover(cut, 0, cut.NumberOfTiles(), m_rows, [&](int firstColumn, int endColumn, int firstRow, int endRow) {
        Product("N", endRow - firstRow, endColumn - firstColumn, m_rows, {a.At(firstRow, 0), m_rows}, {b.At(0, firstColumn), m_rows}, 0.0,
                Column(firstColumn) + firstRow, m_rows);
    });
}

void KVOSrvMatrix::TransposeMultiply(KVOSrvMatrix const& B, KVOSrvMatrix& C, int symmetricResult, int accumulate) const
{
    int const m = m_columns, n = B.m_columns, k = B.m_rows;
    Operand const a{m_values, k}, b{B.m_values, k}; // this matrix has k rows too
    auto const product = [&](int firstRow, int endRow, int firstColumn, int endColumn) {
        Product("T", endRow - firstRow, endColumn - firstColumn, k, {a.At(0, firstRow), k}, {b.At(0, firstColumn), k},
                accumulate != 0 ? 1.0 : 0.0, C.Column(firstColumn) + firstRow, C.m_rows);
    };
    if (symmetricResult == 0) {
        product(0, m, 0, n);
    } else if (m < n) {
        TriangleTiles::Cut const cut{m, kTransposeTile, false};
        TriangleTiles::Cover(cut, 0, cut.NumberOfTiles(), n, product);
    } else {
        TriangleTiles::Cut const cut{n, kTransposeTile, false};
        TriangleTiles::Cover(cut, 0, cut.NumberOfTiles(), m, [&](int firstColumn, int endColumn, int firstRow, int endRow) {
            product(firstRow, endRow, firstColumn, endColumn);
        });
    }
}

KVOSrvMatrix& KVOSrvMatrix::operator*=(KVOSrvMatrix const& B)
{
    RequireLegal(this != &B, "*=");
    RequireLegal(m_rows == B.m_columns, "*=");
    RequireLegal(!B.m_diagonal || B.IsSquare(), "*=");
    bool const isColumn = m_columns == 1;
    if (B.m_diagonal && (m_diagonal || (isColumn && !IsSquare()))) {
        for (int i = 0; i < m_rows; ++i)
            m_values[i] *= B.m_values[i];
    } else if (B.m_diagonal && IsSquare()) {
        for (int j = 0; j < m_columns; ++j)
            for (int i = 0; i < m_rows; ++i)
                Column(j)[i] *= B.m_values[j];
    } else if (isColumn) { // deliberate: a vector is multiplied from the left, a square matrix from the right
        MultiplyFromLeft(B);
    } else if (m_columns > 1) {
        MultiplyFromRight(B);
    }
    return *this;
}

void KVOSrvMatrix::MultiplyFromRight(KVOSrvMatrix const& B)
{
    RequireLegal(IsSquare() && B.IsSquare() && !m_diagonal && m_values != B.m_values, "Multiply");

    KVOSrvMatrix const copy(*this);
    Product("N", m_rows, m_rows, m_rows, {copy.m_values, m_rows}, {B.m_values, m_rows}, 0.0, m_values, m_rows);
}

void KVOSrvMatrix::MultiplyFromLeft(KVOSrvMatrix const& B)
{
    RequireLegal(B.IsSquare() && m_values != B.m_values, "Multiply"); // the result has as many rows as B

    KVOSrvMatrix const copy(*this);
    int const lda = LeadingDimension(m_rows);
    BLAC_DGEMV("N", &B.m_rows, &B.m_columns, &kOne, B.m_values, &lda, copy.m_values, &kUnitStride, &kZero, m_values, &kUnitStride);
}

void KVOSrvMatrix::PermuteRowsInPlace(int const* perm, int n)
{
    RequireLegal(n == m_rows, "PermuteRowsInPlace");
    RequireLegal(!m_diagonal, "PermuteRowsInPlace"); // its rows cannot be anywhere else

    Array<double> const buffer = AllocateArray<double>(m_rows);
    for (int j = 0; j < m_columns; ++j) {
        double* const column = Column(j);
        std::copy_n(column, m_rows, buffer.get());
        for (int i = 0; i < m_rows; ++i) {
            if (perm[i] > m_rows)
                KVOSrvMtxIllegalPermVect().Throw("mtx/impl/KVOSrvMatrixArithmetic", __LINE__);
            if (perm[i] >= 0 && perm[i] < m_rows) // deliberate: what the bound above lets through is not refused, but leaves no mark either
                column[perm[i]] = buffer[i];
        }
    }
}
