#pragma once

#include "KVOSrvSparseRows.h"

#include <memory>

class KVOSrvSparseMatrix;

/// The symmetric matrix of these rows, in half storage; of rows with entries on one side of the diagonal only they stand for their mirror
/// images, too. Columns may stand in any order and more than once: entries of one place are summed.
/// @param rows  square, in full storage
/// @throws KVOSrvMtxRefusedInput "SymmetricRows" when they are no compressed rows of finite values, or both sides differ by more than 1e-12
/// of
///         the largest entry; within that the lower one counts
std::unique_ptr<KVOSrvSparseMatrix> SymmetricRows(KVOSrvSparseRows const& rows);
