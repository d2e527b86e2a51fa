#pragma once

#include "KVOExport.h"
#include "cow_List.h"

/// The solver's numbering of degrees of freedom: which node, and which degree of freedom at that node, each number of
/// the solver stands for.
class KVO_EXPORT KVOFsmSystemDofDefinition
{
public:
    /// Solver degree of freedom i is degree of freedom dofs[i] at node nodes[i].
    ///
    /// @param count      length of both lists, which are copied; they may be null when it is 0
    /// @throws KVOBasPlatformException for a negative count and for a missing list
    KVOFsmSystemDofDefinition(int count, int const* nodes, int const* dofs);

    /// Length of the lists.
    int NumberOfDofs() const noexcept { return static_cast<int>(m_places.Size()); }

    /// Node and degree of freedom behind a number of the solver.
    /// @param solverDof  0-based, below NumberOfDofs()
    /// @throws KVOBasPlatformException with the number and the range in its text; `node` and `dof` are untouched then
    void NodeDofFromSolverDof(int solverDof, int& node, int& dof) const;

private:
    struct Place {
        int node;
        int dof;
    };

    cow_List<Place> m_places;
};
