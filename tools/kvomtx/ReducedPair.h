#pragma once

#include "KVOSrvMatrix.h"

#include <vector>

/// The Ritz pairs of a subspace.
struct RitzPairs {
    std::vector<double> shifted; ///< lambda + shift, ascending: one for each direction that is not rounding error
    KVOSrvMatrix combinations;   ///< order of the reduced pair x order: of the basis, scaled to x^T M x = 1; further columns are zero
};

/// Solves the pair of a basis X, X^T (K + shift M) X and X^T M X, as mass against stiffness: the stiffness is positive definite, the mass
/// may be singular. Directions in which the reduced stiffness is numerically singular are left out.
/// @param stiffness,mass  square, of one order; both are scaled and made symmetric where they are
RitzPairs SolveReduced(KVOSrvMatrix& stiffness, KVOSrvMatrix& mass);
