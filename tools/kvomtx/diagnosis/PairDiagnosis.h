#pragma once

#include "MatrixDiagnosis.h"

#include <optional>
#include <string>

struct ExamineLimits;
struct MatrixName;

/// An eigenvalue that is bounded by quotients of diagonal entries.
struct DiagonalQuotient {
    double value = 0.0;
    int unknown = 0;
};

/// What is wrong with a stiffness and a mass matrix, each and together: K x = lambda M x.
struct PairDiagnosis {
    MatrixDiagnosis stiffness;
    MatrixDiagnosis mass;
    std::string misfit; ///< why the two are no pair; empty when they are, else nothing of what follows is told

    Found<int> withNeither;      ///< unknowns without stiffness and mass
    Found<int> withoutMass;      ///< with stiffness only
    Found<int> withoutStiffness; ///< with mass only
    /// Of K over M on the diagonal, where that is positive: the lowest eigenvalue is at most the least one, and the highest at least the
    /// greatest, where both matrices are symmetric and M is positive semidefinite.
    std::optional<DiagonalQuotient> least, greatest;
    std::optional<double> highest; ///< eigenvalue, estimated from below; infinite where there are unknowns with stiffness only
    std::optional<double> lowest;  ///< eigenvalue, estimated from above with the factor of a positive semidefinite K; 0 of a singular one
    std::string why;               ///< the spectrum is not told; empty where it is
};

/// Reads two matrices and examines them.
/// @param limits  with isDeep both are factored
/// @throws ToolError kUnreadable, and those of FactorForDefiniteness()
PairDiagnosis ExaminePair(MatrixName const& stiffness, MatrixName const& mass, ExamineLimits const& limits);
