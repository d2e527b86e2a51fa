#pragma once

#include "KVOSrvMatrix.h"

#include <vector>

/// The largest |a_ij| / sqrt(a_ii a_jj): 0 for a diagonal matrix, at most 1 for a positive definite one.
double LargestCoupling(KVOSrvMatrix const& symmetric);

/// Eigenpairs of a symmetric matrix by Jacobi's rotations. Where the couplings are small, every eigenvalue comes with digits of its own
/// however far the diagonal entries lie apart (Demmel and Veselic, SIAM J. Matrix Anal. Appl. 13, 1992); a tridiagonal method has an error
/// of the largest one's rounding in all of them. About 3 n^3 operations a sweep; a nearly diagonal matrix takes two or three.
/// @param[in,out] symmetric  becomes diagonal
/// @param[out] values        ascending
/// @param[out] vectors       of one order with the matrix; column i is the vector of values[i]
void DecomposeByRotations(KVOSrvMatrix& symmetric, std::vector<double>& values, KVOSrvMatrix& vectors);
