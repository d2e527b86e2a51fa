#pragma once

#include "sparse_kernels.h"

namespace blac
{

/// Rows as the callers of the products give them: row starts are 32-bit integers to them and may exceed 2^31 - 1.
SparseRows RowsOf(double const* a, int const* ia, int const* ja, int const* count, int const* columns, int const* index);

/// BLAC_SPARSE_UMTV, or BLAC_SPARSE_SPARSE_UMTV, of rows whose columns ascend strictly: these can be cut into tasks for few vectors too.
void MultiplyTransposedAscending(SparseRows const& rows, double const* x, double* y, int nvec);

} // namespace blac
