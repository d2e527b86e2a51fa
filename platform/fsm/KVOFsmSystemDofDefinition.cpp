#include "KVOFsmSystemDofDefinition.h"

#include <stdexcept>
#include <string>

KVOFsmSystemDofDefinition::KVOFsmSystemDofDefinition(int count, int const* nodes, int const* dofs)
{
    if (count < 0 || (count > 0 && (nodes == nullptr || dofs == nullptr)))
        throw std::invalid_argument("KVOFsmSystemDofDefinition: the count is negative or a list is missing.");
    for (int i = 0; i < count; ++i)
        m_places.Append({nodes[i], dofs[i]});
}

void KVOFsmSystemDofDefinition::NodeDofFromSolverDof(int solverDof, int& node, int& dof) const
{
    if (solverDof < 0 || solverDof >= NumberOfDofs())
        throw std::out_of_range("KVOFsmSystemDofDefinition: solver degree of freedom " + std::to_string(solverDof) +
                                " is outside the range of " + std::to_string(NumberOfDofs()) + ", counted from 0.");
    Place const& place = m_places[solverDof];
    node = place.node;
    dof = place.dof;
}
