#pragma once

#include <vector>

class KVOSrvSparseMatrix;

/// What the entries of a stiffness and mass pair tell before anything is computed.
struct ModelPair {
    /// @throws KVOSrvModesFailure  when the entries show that the mass is not positive semidefinite, or that an unknown has neither
    ///                             stiffness nor mass
    ModelPair(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass);

    /// Unknowns with mass: there are at most so many finite eigenvalues.
    int Massive() const;

    std::vector<double> massDiagonal;
    double lowest = 0.0; ///< the lowest positive quotient of diagonal entries, K over M, 0 where there is none: the lowest eigenvalue is no
                         ///< greater
    double largest = 0.0; ///< the largest quotient in size: the eigenvalue that is largest in size is no smaller
    int negative = 0;     ///< number, from 1, of the first unknown with a negative diagonal entry of the stiffness; 0: none
};
