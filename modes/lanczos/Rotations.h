#pragma once

#include "Panel.h"

/// Eigenpairs of a symmetric matrix by Jacobi's rotations: small eigenvalues of a graded matrix, whose diagonal entries differ by orders of
/// magnitude, come out with as many digits as large ones (Demmel, Veselic, SIAM J. Matrix Anal. Appl. 13, 1992). The matrix is overwritten
/// by the eigenvectors. @return the eigenvalues, ascending
std::vector<double> EigenpairsByRotations(Panel& symmetric);

/// The largest |a_ij| / sqrt(a_ii a_jj) off the diagonal.
double LargestCoupling(Panel const& symmetric);
