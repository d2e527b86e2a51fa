#pragma once

#include "Panel.h"

#include <vector>

/// The Ritz pairs of a subspace.
struct RitzPairs {
    std::vector<double> shifted; ///< lambda - sigma, by ascending size: one for each direction that is not rounding error
    Panel combinations;          ///< of the basis, scaled to x^T M x = 1: a column for each of them
    bool indefinite = false;     ///< a direction has negative mass
};

/// Solves the pair of a basis Z, Z^T (K - sigma M) Z and Z^T M Z, where K - sigma M is positive definite: as mass against stiffness, the
/// mass may be singular. Directions that depend on others but for rounding are left out.
/// @param stiffness,mass  square, of one order; made symmetric and scaled, so that small values keep their digits beside large ones
/// @throws KVOSrvModesFailure  an entry is not finite
RitzPairs SolveDefinitePair(Panel stiffness, Panel mass);

/// The same where K - sigma M is indefinite: as stiffness against mass.
RitzPairs SolveIndefinitePair(Panel stiffness, Panel mass);
