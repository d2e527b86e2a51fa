#pragma once

#include "KVOSrvMatrixFile.h"

#include <cstdint>
#include <initializer_list>
#include <memory>

class OutputFile;
class KVOSrvSparseMatrix;
struct KVOSrvSparseRows;

/// Matrix Market files: R. F. Boisvert, R. Pozo, K. A. Remington, The Matrix Market exchange formats, NISTIR 5935, 1996.
namespace MatrixMarket
{

constexpr char kMark[] = "%%MatrixMarket";

/// See KVOSrvSparseMatrix::ReadMatrixMarket(). @param part  of a complex matrix
std::unique_ptr<KVOSrvSparseMatrix> Read(char const* path, KVOSrvMatrixPart part);

/// Writes the lines in front of the entries. @param kind  as "coordinate real general"
void WriteHead(OutputFile& file, char const* kind, std::initializer_list<std::int64_t> sizes);

/// Writes full storage, as "symmetric" by its lower triangle when it equals its transpose.
void Write(KVOSrvSparseRows const& rows, char const* path);

} // namespace MatrixMarket
