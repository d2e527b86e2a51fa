#pragma once

#include "CompressedRows.h"

#include <memory>

/// Sparse matrices with their entries in other places. The full ones keep their columns ascending within the rows.
namespace KVOSrvSparseSupport
{

CompressedRows TransposeOf(CompressedRows const& rows);
HalfRows TransposeOf(HalfRows const& rows); // the same matrix by its other triangle

/// Rows and columns of a square matrix permuted: perm[k] is the old number of new row and column k.
/// @throws KVOSrvMtxIllegalPermVect unless perm holds each row number once
CompressedRows PermutationOf(CompressedRows const& rows, int const* perm);
HalfRows PermutationOf(HalfRows const& rows, int const* perm);

/// The rows permuted: perm[i] is the new number of old row i. @throws KVOSrvMtxIllegalPermVect unless perm holds each row number once
CompressedRows RowPermutationOf(CompressedRows const& rows, int const* perm);

/// The rows, and the columns, that hold an entry, ascending. @param[out] count  length of the list
std::unique_ptr<unsigned[]> RowsWithEntries(KVOSrvSparseRows const& rows, int& count);
std::unique_ptr<unsigned[]> ColumnsWithEntries(KVOSrvSparseRows const& rows, int& count);

/// Renumbers the columns: number list[k] becomes k. @param list,count  ColumnsWithEntries()
void KeepColumns(CompressedRows& rows, unsigned const* list, int count);

/// Sets the values of n columns, all of them inside, to 0.
void ZeroColumns(CompressedRows& rows, int const* columns, int n);

} // namespace KVOSrvSparseSupport
