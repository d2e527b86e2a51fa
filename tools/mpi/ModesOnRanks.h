#pragma once

#include "RowShare.h"
#include "StoredRows.h"

#include "KVOSrvModes.h"

#include <string>
#include <vector>

/// What is known of K and M as a whole, see the checks of KVOSrvModes.
struct PairFacts {
    int order = 0;
    int massive = 0;      ///< unknowns with mass
    int negative = 0;     ///< a row of K, from 1, with a diagonal entry below 0; 0: none
    double lowest = 0.0;  ///< least quotient k_ii / m_ii above 0; 0: there is none
    double largest = 0.0; ///< largest |k_ii| / m_ii
};

/// Modes that were found, ascending.
struct RankModes {
    std::vector<double> eigenvalues;
    std::vector<double> residuals;
    std::vector<double> rows; ///< this rank's rows of the modes, x^T M x = 1, a mode a column
    KVOSrvModesAccount account;
    std::string solver;
    std::string ordering;
};

/// The lowest modes, or those of an interval, by SLEPc's Krylov-Schur iteration and the factorizations that the user's options choose:
/// as KVOSrvModes finds them, its settings of memory and files left out. To be called by all ranks, during a PetscSession.
/// @param stiffness,mass  this rank's entries
/// @throws ToolError, on all ranks where the pair is the reason
RankModes FindModes(PairFacts const& facts, RowShare const& share, int rank, Triplets stiffness, Triplets mass,
                    KVOSrvModesSettings const& settings);
