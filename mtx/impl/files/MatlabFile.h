#pragma once

#include "KVOSrvMatrixFile.h"

#include <memory>

class KVOSrvSparseMatrix;

/// MATLAB's files of level 7.3, which the database's side of the platform opens.
namespace MatlabFile
{

/// A variable, sparse or dense, whose zeros are not stored then. @param variable  empty: the only one @param part  of a complex matrix
std::unique_ptr<KVOSrvSparseMatrix> Read(char const* path, char const* variable, KVOSrvMatrixPart part);

} // namespace MatlabFile
