#pragma once

/// What is told wherever a direction of negative mass turns up.
constexpr char kNegativeMassText[] = "the mass matrix has negative eigenvalues; give one that is positive, or zero for massless unknowns";
