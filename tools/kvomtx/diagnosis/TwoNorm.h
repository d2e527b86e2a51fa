#pragma once

#include <cstdint>

class KVOSrvSparseMatrix;

/// The greatest singular value, from below: the root of the greatest quotient of A^T A.
/// @param matrix  in full, without NaN and infinite values
/// @param largest  size of its largest value
/// @param isSymmetric  it equals its transpose
double EstimateTwoNorm(KVOSrvSparseMatrix const& matrix, double largest, bool isSymmetric);

/// Bytes that it takes.
std::int64_t BytesOfTwoNorm(int rows, int columns);
