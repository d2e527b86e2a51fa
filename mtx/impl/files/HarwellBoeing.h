#pragma once

#include "KVOSrvMatrixFile.h"

#include <memory>
#include <string_view>

class KVOSrvSparseMatrix;

/// Harwell-Boeing and Rutherford-Boeing files: I. S. Duff, R. G. Grimes, J. G. Lewis, Users' guide for the Harwell-Boeing sparse matrix
/// collection, 1992; the same, The Rutherford-Boeing sparse matrix collection, 1997.
namespace HarwellBoeing
{

/// Whether a text begins with a head of such a file: a type as RSA in its third line, a format in its fourth.
bool LooksLike(std::string_view begin);

/// The matrix in full storage. Right-hand sides are passed over. @param part  of a complex matrix
std::unique_ptr<KVOSrvSparseMatrix> Read(char const* path, KVOSrvMatrixPart part);

} // namespace HarwellBoeing
