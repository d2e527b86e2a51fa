#include "KVOSrvMatrix.h"

#include "Arrays.h"
#include "DenseKernels.h"
#include "KVOSrvMatrixSupport.h"

#include <algorithm>

using Arrays::AllocateArray;
using Arrays::Array;

namespace
{

constexpr KVOSrvMatrixSupport::InputCheck RequireLegal{"mtx/impl/KVOSrvMatrix"};

std::int64_t EntriesToAllocate(int rows, int columns, bool diagonal)
{
    return diagonal ? rows : Arrays::EntriesToAllocate(rows, columns);
}

} // namespace

KVOSrvMatrix::KVOSrvMatrix(int rows, int columns, double* values, bool symmetric, bool diagonal)
    : m_values(values), m_rows(rows), m_columns(columns), m_ownsValues(values == nullptr), m_symmetric(symmetric), m_diagonal(diagonal)
{
    RequireLegal(rows >= 0 && columns >= 0, "KVOSrvMatrix");
    if (m_ownsValues)
        m_values = AllocateArray<double>(EntriesToAllocate(rows, columns, diagonal)).release();
}

KVOSrvMatrix::KVOSrvMatrix(KVOSrvMatrix const& other)
    : KVOSrvMatrix(other.m_rows, other.m_columns, nullptr, other.m_symmetric, other.m_diagonal)
{
    std::copy_n(other.m_values, StoredEntries(), m_values);
}

KVOSrvMatrix::~KVOSrvMatrix()
{
    if (m_ownsValues)
        mem_Free(m_values);
}

// In 64 bits, unlike the size of an allocation: a wrapped array may have more than 2^31 entries.
std::int64_t KVOSrvMatrix::StoredEntries() const noexcept
{
    return m_diagonal ? m_rows : std::int64_t{m_rows} * m_columns;
}

// For the members that take the array as full storage whatever the flag says: whoever wraps a diagonal vouches for its array, but one that
// was allocated for a diagonal is known to end there.
std::int64_t KVOSrvMatrix::AddressableEntries() const noexcept
{
    return IsAllocatedAsDiagonal() ? m_rows : std::int64_t{m_rows} * m_columns;
}

bool KVOSrvMatrix::ContainsRange(int startRow, int endRow, int startCol, int endCol) const noexcept
{
    return startRow >= 0 && startCol >= 0 && endRow < m_rows && endCol < m_columns && endRow >= startRow && endCol >= startCol &&
           std::int64_t{endCol} * m_rows + endRow < AddressableEntries();
}

KVOSrvMatrix& KVOSrvMatrix::operator=(KVOSrvMatrix const& other)
{
    if (this == &other)
        return *this;
    if (HasShapeOf(other) && !(m_diagonal && !other.m_diagonal)) {
        SetSlice(1.0, other, 0, 0);
        return *this;
    }
    RequireLegal(m_ownsValues, "Assignment operator");
    Array<double> values = AllocateArray<double>(EntriesToAllocate(other.m_rows, other.m_columns, other.m_diagonal));
    std::copy_n(other.m_values, other.StoredEntries(), values.get());
    mem_Free(m_values); // last: `other` may wrap this array
    m_values = values.release();
    m_rows = other.m_rows;
    m_columns = other.m_columns;
    m_symmetric = other.m_symmetric;
    m_diagonal = other.m_diagonal;
    return *this;
}

KVOSrvMatrix& KVOSrvMatrix::operator=(double value)
{
    std::fill_n(m_values, StoredEntries(), value);
    return *this;
}

bool KVOSrvMatrix::operator==(KVOSrvMatrix const& other) const
{
    if (this == &other)
        return true;
    return HasShapeOf(other) && m_diagonal == other.m_diagonal && std::equal(m_values, m_values + StoredEntries(), other.m_values);
}

bool KVOSrvMatrix::operator==(double value) const
{
    return std::all_of(m_values, m_values + StoredEntries(), [value](double entry) { return entry == value; });
}

void KVOSrvMatrix::SetValues(int startRow, int endRow, int startCol, int endCol, double const* values)
{
    RequireLegal(ContainsRange(startRow, endRow, startCol, endCol), "SetValues");

    int const rows = endRow - startRow + 1;
    DenseKernels::Copy(rows, endCol - startCol + 1, values, rows, Column(startCol) + startRow, m_rows);
}

void KVOSrvMatrix::SetValues(int startRow, int endRow, int startCol, int endCol, KVOSrvMatrix const& source)
{
    RequireLegal(ContainsRange(startRow, endRow, startCol, endCol), "SetValues");
    RequireLegal((std::int64_t{endRow} - startRow + 1) * (endCol - startCol + 1) <= source.AddressableEntries(), "SetValues");

    SetValues(startRow, endRow, startCol, endCol, source.m_values);
}

void KVOSrvMatrix::SetRows(int startRow, int endRow, KVOSrvMatrix const& source)
{
    SetValues(startRow, endRow, 0, m_columns - 1, source);
}

void KVOSrvMatrix::GetValues(int startRow, int endRow, int startCol, int endCol, KVOSrvMatrix& target) const
{
    RequireLegal(ContainsRange(startRow, endRow, startCol, endCol), "GetValues");
    int const rows = endRow - startRow + 1, columns = endCol - startCol + 1;
    RequireLegal(std::int64_t{rows} * columns <= target.AddressableEntries(), "GetValues");

    DenseKernels::Copy(rows, columns, Column(startCol) + startRow, m_rows, target.m_values, rows);
}

void KVOSrvMatrix::GetRows(int startRow, int endRow, KVOSrvMatrix& target) const
{
    GetValues(startRow, endRow, 0, m_columns - 1, target);
}

void KVOSrvMatrix::SetDiagonal(double const* d)
{
    int const count = m_diagonal ? m_rows : std::min(m_rows, m_columns);
    for (int i = 0; i < count; ++i)
        m_values[i * DiagonalStride()] = d[i];
}

void KVOSrvMatrix::SetDiagonal(KVOSrvMatrix const& source)
{
    RequireLegal(IsSquare() && source.IsSquare(), "SetDiagonal");
    RequireLegal(!m_diagonal || source.m_diagonal, "SetDiagonal");
    RequireLegal(source.m_rows >= m_rows, "SetDiagonal");

    for (int i = 0; i < m_rows; ++i)
        m_values[i * DiagonalStride()] = source.m_values[i * source.DiagonalStride()];
}

void KVOSrvMatrix::SetSlice(double factor, KVOSrvMatrix const& source, int rowOffset, int colOffset)
{
    RequireLegal(!m_diagonal || source.m_diagonal, "SetSlice");

    auto const scale = [factor](double const* from, double* to, std::int64_t count) {
        for (std::int64_t i = 0; i < count; ++i)
            to[i] = factor * from[i];
    };
    if (m_diagonal) { // the column offset deliberately plays no part
        scale(source.m_values, m_values + rowOffset, std::min(source.m_rows, source.m_columns));
    } else if (source.m_diagonal) {
        for (int j = 0; j < source.m_columns; ++j) {
            double* const target = Column(colOffset + j) + rowOffset;
            std::fill_n(target, source.m_rows, 0.0);
            if (j < source.m_rows)
                target[j] = factor * source.m_values[j];
        }
    } else {
        double* const target = Column(colOffset) + rowOffset;
        if (factor == 1.0)
            DenseKernels::Copy(source.m_rows, source.m_columns, source.m_values, source.m_rows, target, m_rows);
        else
            DenseKernels::ForEachRun(source.m_rows, source.m_columns, source.m_values, source.m_rows, target, m_rows, scale);
    }
}

void KVOSrvMatrix::AddSlice(double factor, KVOSrvMatrix const& source, int rowOffset, int colOffset)
{
    // Deliberate: reports under the name of operator=; callers match on that text. A diagonal target is refused for a diagonal source too:
    // the sum goes by the places of full storage, unlike SetSlice, and a diagonal's array ends before them.
    RequireLegal(!m_diagonal, "Assignment operator");

    double* const target = Column(colOffset) + rowOffset;
    if (source.m_diagonal) {
        for (int i = 0; i < std::min(source.m_rows, source.m_columns); ++i)
            target[i * DiagonalStride()] += factor * source.m_values[i];
        return;
    }
    DenseKernels::ForEachRun(source.m_rows, source.m_columns, source.m_values, source.m_rows, target, m_rows,
                             [factor](double const* from, double* to, std::int64_t count) {
                                 for (std::int64_t i = 0; i < count; ++i)
                                     to[i] += factor * from[i];
                             });
}

void KVOSrvMatrix::Transpose()
{
    if (m_diagonal || m_symmetric)
        return;
    if (IsSquare()) {
        DenseKernels::TransposeInPlace(m_rows, m_values, m_rows);
        return;
    }
    Array<double> values = AllocateArray<double>(StoredEntries());
    DenseKernels::Transpose(m_rows, m_columns, m_values, m_rows, values.get(), m_columns);
    if (m_ownsValues) {
        mem_Free(m_values);
        m_values = values.release();
    } else {
        std::copy_n(values.get(), StoredEntries(), m_values);
    }
    std::swap(m_rows, m_columns);
}

void KVOSrvMatrix::SetSymmetricResults()
{
    MirrorTriangle(false);
}

void KVOSrvMatrix::SetSkewSymmetricResults()
{
    MirrorTriangle(true);
}

void KVOSrvMatrix::MirrorTriangle(bool negate)
{
    if (IsAllocatedAsDiagonal()) // symmetric as it is, and its array has no triangles
        return;
    using namespace DenseKernels;
    Triangle const from = m_rows < m_columns ? Triangle::Upper : Triangle::Lower;
    DenseKernels::MirrorTriangle(std::min(m_rows, m_columns), from, negate ? Sign::Flip : Sign::Keep, m_values, m_rows);
}

bool KVOSrvMatrix::IsSymmetricNumerically() const
{
    return m_diagonal || (IsSquare() && DenseKernels::IsSymmetric(m_rows, m_values, m_rows));
}
