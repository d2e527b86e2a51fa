#include "KVOSrvSparseMatrix.h"

#include "KVOFortran.h"
#include "SparseRows.h"

#include <algorithm>

using namespace KVOSrvSparseSupport;

namespace
{

// The offsets as the Fortran-callable kernels take them; they do not exceed INT_MAX.
int const* AsInt(unsigned const* numbers)
{
    return reinterpret_cast<int const*>(numbers);
}

void SetToZero(double* y, int rows, int nvec)
{
    std::fill_n(y, std::int64_t{rows} * nvec, 0.0);
}

struct HalfRows {
    std::int64_t n;
    unsigned const* rowStart;
    int const* columns;
    double const* values;
    double const* diagonal;
};

// y += A x for some vectors, entry (i, c, a) in s(i) += a x(c) and y(c) += a x(i). The order of the additions is part of the result: each
// row's sum s is formed apart and added to y(i) together with the diagonal's product.
template<int kVectors>
void MultiplyVectors(HalfRows const& rows, double const* x, double* y)
{
    for (std::int64_t i = 0; i < rows.n; ++i) {
        double t[kVectors], s[kVectors] = {};
        for (int j = 0; j < kVectors; ++j)
            t[j] = x[i + j * rows.n];
        for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k) {
            double const a = rows.values[k];
            std::int64_t const c = rows.columns[k];
            for (int j = 0; j < kVectors; ++j) {
                s[j] += a * x[c + j * rows.n];
                y[c + j * rows.n] += a * t[j];
            }
        }
        for (int j = 0; j < kVectors; ++j)
            y[i + j * rows.n] += rows.diagonal[i] * t[j] + s[j];
    }
}

} // namespace

void KVOSrvSparseMatrix::Multiply(double const* x, int nvec, double* y, bool transpose) const
{
    RequireAssembled("Multiply");
    if (nvec <= 0)
        return;
    if (m_rowStart == nullptr)
        SetToZero(y, transpose ? m_columnCount : m_rowCount, nvec);
    else if (IsHalfStored())
        MultiplyHalf(x, nvec, y);
    else if (transpose)
        BLAC_SPARSE_UMTV(m_values.get(), x, AsInt(m_rowStart.get()), m_columnIndices.get(), y, &m_rowCount, &m_columnCount, &nvec);
    else
        BLAC_SPARSE_UMV(m_values.get(), x, AsInt(m_rowStart.get()), m_columnIndices.get(), y, &m_rowCount, &m_columnCount, &nvec);
}

// The matrix is its own transpose.
void KVOSrvSparseMatrix::MultiplyHalf(double const* x, int nvec, double* y) const
{
    constexpr int kGroup = 8; // as the kernels of full storage take them
    HalfRows const rows{m_rowCount, m_rowStart.get(), m_columnIndices.get(), m_values.get(), m_diagonal.get()};
    SetToZero(y, m_rowCount, nvec);
    int j = 0;
    for (; j + kGroup <= nvec; j += kGroup)
        MultiplyVectors<kGroup>(rows, x + j * rows.n, y + j * rows.n);
    for (; j < nvec; ++j)
        MultiplyVectors<1>(rows, x + j * rows.n, y + j * rows.n);
}

void KVOSrvSparseMatrix::MultiplyIndexed(double const* x, int nvec, double* y, bool transpose, int nIndex, unsigned const* index) const
{
    if (!transpose)
        KVOSrvMtxNoTranspose().Throw(kSource, 1107);
    if (nvec <= 0)
        return;
    if (m_rowStart == nullptr)
        SetToZero(y, m_columnCount, nvec);
    else
        // Deliberate: half storage is not taken into account; the rows are multiplied as they are stored.
        BLAC_SPARSE_SPARSE_UMTV(m_values.get(), x, AsInt(m_rowStart.get()), m_columnIndices.get(), y, &nIndex, &m_columnCount, &nvec,
                                AsInt(index));
}

void KVOSrvSparseMatrix::Scale(double s)
{
    RequireAssembled("Scale");
    std::for_each_n(m_values.get(), StoredEntries(), [s](double& value) { value *= s; });
    if (HoldsDiagonal())
        std::for_each_n(m_diagonal.get(), m_rowCount, [s](double& value) { value *= s; });
}
