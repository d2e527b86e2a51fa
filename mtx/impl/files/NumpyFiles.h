#pragma once

#include "KVOSrvMatrixFile.h"

#include <memory>

class KVOSrvSparseMatrix;

/// What NumPy and scipy store. @param part  of a complex matrix
namespace NumpyFiles
{

/// An .npy file: an array of two dimensions, or of one, which becomes a column. Zeros are not stored.
std::unique_ptr<KVOSrvSparseMatrix> ReadArray(char const* path, KVOSrvMatrixPart part);

/// An .npz file that scipy.sparse.save_npz has written: csr, csc, coo, bsr or dia.
std::unique_ptr<KVOSrvSparseMatrix> ReadSparse(char const* path, KVOSrvMatrixPart part);

} // namespace NumpyFiles
