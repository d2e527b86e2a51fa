#pragma once

#include <memory>
#include <string>

class KVOSrvDenseMatrix;
class KVOSrvSparseMatrix;
class OutputFile;
class Progress;

/// Reads a Matrix Market file: coordinate or array, real or integer, general or symmetric. Entries of equal place are summed; zeros of an
/// array are not stored. Source: R. F. Boisvert, R. Pozo, K. A. Remington, The Matrix Market exchange formats, NISTIR 5935, 1996.
/// @throws ToolError kUnreadable with the line, and for what the library has no matrix for: pattern, complex, skew-symmetric, hermitian
std::unique_ptr<KVOSrvSparseMatrix> ReadMatrixMarket(std::string const& path, Progress& progress);

/// Writes a matrix under the file's temporary name, as "coordinate real": its lower triangle as "symmetric" when `symmetric`, which the
/// caller knows it to be. Values have the shortest form that reads back as the same double.
/// @throws ToolError kUnwritable
void WriteMatrixMarket(KVOSrvSparseMatrix const& matrix, bool symmetric, OutputFile const& file);

/// Writes a stored matrix as "array real general".
void WriteMatrixMarket(KVOSrvDenseMatrix const& matrix, OutputFile const& file);
