#pragma once

#include "Petsc.h"
#include "RowShare.h"
#include "StoredRows.h"

#include "KVOSrvSparseFactor.h"

#include <optional>

/// K and M, by rows on all ranks, and the solver of (K - sigma M) x = b, for one sigma at a time. To be used by all ranks at once.
class ShiftedPair
{
public:
    /// @param stiffness,mass  this rank's entries; given up when they are assembled
    ShiftedPair(RowShare const& share, int rank, Triplets stiffness, Triplets mass);

    /// What a factor tells of K - sigma M.
    struct Inertia {
        int negative = 0; ///< eigenvalues
        int zero = 0;     ///< pivots that are nothing but rounding error
    };
    /// Factors. @return none where the user's options chose a solver that does not tell
    std::optional<Inertia> Factor(double sigma);
    double Sigma() const noexcept { return m_sigma; }
    /// x = (K - sigma M)^-1 b.
    void Solve(Vec b, Vec x);

    Mat Stiffness() const noexcept { return m_stiffness; }
    Mat Mass() const noexcept { return m_mass; }
    /// Has the two as its problem, and the solver.
    EPS Lowest() const noexcept { return m_lowest; }
    /// A search of its own for all of an interval.
    void OfInterval(EPS eps) const;

    /// What was done until now, and the names of the solver and of its ordering of the unknowns.
    KVOSrvFactorAccount Account(std::string& solverName, std::string& ordering) const;

private:
    PC Preconditioner() const;

    HeldMat m_stiffness, m_mass;
    HeldEps m_lowest;
    double m_sigma = 0.0;
};
