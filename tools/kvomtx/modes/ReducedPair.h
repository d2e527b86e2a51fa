#pragma once

#include "KVOSrvMatrix.h"

#include <vector>

/// The Ritz pairs of a subspace.
struct RitzPairs {
    std::vector<double> shifted; ///< lambda + shift, ascending: one for each direction that is not rounding error
    KVOSrvMatrix combinations;   ///< order of the reduced pair x order: of the basis, scaled to x^T M x = 1; further columns are zero
    bool indefinite = false;     ///< a direction has negative mass
};

/// Solves the pair of a basis X, X^T (K + shift M) X and X^T M X, as mass against stiffness: the stiffness is positive definite, the mass
/// may be singular. Directions that depend on others but for rounding are left out.
/// @param stiffness,mass  square, of one order; both are scaled and made symmetric where they are
/// @throws SubspaceFailure  an entry is not finite
RitzPairs SolveReduced(KVOSrvMatrix& stiffness, KVOSrvMatrix& mass);

/// Combinations W of the columns of a basis whose Gram matrix G is given, in which it is the identity, W^T G W = I: as many as there are
/// columns that do not depend on others. Each column is combined with those before it in the order of their pivots only, so that columns
/// that are orthogonal already stay what they are, digit by digit.
/// @param gram    symmetric, with a diagonal of about 1 at most
/// @param smallest  a column counts as dependent when less of its diagonal entry is left
KVOSrvMatrix Whitening(KVOSrvMatrix const& gram, double smallest);

/// Makes both triangles their mean: those of a computed Gram matrix differ by rounding.
void Symmetrize(KVOSrvMatrix& matrix);
