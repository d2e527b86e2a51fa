#pragma once

#include "KVOSrvSparseRows.h"

/// Products that the database part of KVOSrvSparseMatrix shares with that in memory.
namespace KVOSrvSparseSupport
{

/// y = (rows index[0 .. nIndex-1] of A)^T x; x has leading dimension nIndex. Deliberate: half storage is not taken into account, the rows
/// are multiplied as they are stored.
/// @throws KVOSrvMtxNoTranspose unless `transpose`
void MultiplyIndexed(KVOSrvSparseRows const& rows, double const* x, int nvec, double* y, bool transpose, int nIndex, unsigned const* index);

} // namespace KVOSrvSparseSupport
