#include "KVOFortran.h"
#include "sparse_kernels.h"

#include <algorithm>
#include <bit>

namespace
{

using blac::SparsePass;
using blac::SparseRows;

// Row starts are 32-bit integers to the caller and may exceed 2^31 - 1.
SparseRows RowsOf(double const* a, int const* ia, int const* ja, int const* count, int const* columns, int const* index)
{
    return {a, reinterpret_cast<unsigned const*>(ia), ja, *count, index, *columns};
}

// Calls multiply(first vector, pass) for the vectors in groups of eight (or smaller ones, see SparseGroupSize), then for each vector that
// is left.
template<class Multiply>
void ForEachGroup(SparseRows const& rows, int nvec, SparsePass const (&passes)[4], Multiply const& multiply)
{
    int const inGroups = nvec - nvec % 8;
    int const group = inGroups > 0 ? blac::SparseGroupSize(rows) : 1;
    int j = 0;
    for (; j < inGroups; j += group)
        multiply(j, group, passes[3 - std::countr_zero(static_cast<unsigned>(group))]);
    for (; j < nvec; ++j)
        multiply(j, 1, passes[3]);
}

void Multiply(SparseRows const& rows, double const* x, double* y, int nvec)
{
    ForEachGroup(rows, nvec, blac::SparseKernelsInForce().times,
                 [&](std::ptrdiff_t j, int, SparsePass pass) { pass(rows, x + j * rows.columns, y + j * rows.count); });
}

void MultiplyTransposed(SparseRows const& rows, double const* x, double* y, int nvec)
{
    ForEachGroup(rows, nvec, blac::SparseKernelsInForce().transposedTimes, [&](std::ptrdiff_t j, int group, SparsePass pass) {
        std::fill_n(y + j * rows.columns, group * rows.columns, 0.0);
        pass(rows, x + j * rows.count, y + j * rows.columns);
    });
}

} // namespace

extern "C" void BLAC_SPARSE_UMV(double const* a, double const* x, int const* ia, int const* ja, double* y, int const* n, int const* m,
                                int const* nvec)
{
    Multiply(RowsOf(a, ia, ja, n, m, nullptr), x, y, *nvec);
}

extern "C" void BLAC_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y, int const* n, int const* m,
                                 int const* nvec)
{
    MultiplyTransposed(RowsOf(a, ia, ja, n, m, nullptr), x, y, *nvec);
}

extern "C" void BLAC_SPARSE_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y, int const* nIndex,
                                        int const* m, int const* nvec, int const* index)
{
    MultiplyTransposed(RowsOf(a, ia, ja, nIndex, m, index), x, y, *nvec);
}
