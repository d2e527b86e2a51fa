#pragma once

#include "CompressedRows.h"

/// Full and half storage of one matrix.
namespace KVOSrvSparseSupport
{

/// What KVOSrvSparseMatrix::IsSymmetric() finds in full storage. @throws mem_OutOfMemory
bool EntriesAreSymmetric(KVOSrvSparseRows const& rows);

/// The half storage of rows for which that is so: what lies above the diagonal, and the diagonal, 0 where it has no entry.
HalfRows UpperHalf(CompressedRows const& rows);

/// The same matrix in full, with every entry of the diagonal; entries of equal place, as some files have them, are summed in the order of
/// ListInFull(). There are at most INT_MAX entries in full.
CompressedRows InFull(HalfRows const& half);

} // namespace KVOSrvSparseSupport
