#include "KVOFsmSystemDofDefinition.h"

#include "KVOBasPlatformException.h"

#include <string>

namespace
{

constexpr char const* kSource = "platform/fsm/KVOFsmSystemDofDefinition";

}

KVOFsmSystemDofDefinition::KVOFsmSystemDofDefinition(int count, int const* nodes, int const* dofs)
{
    if (count < 0 || (count > 0 && (nodes == nullptr || dofs == nullptr)))
        KVOBasPlatformException("KVOFsmSystemDofDefinition: the count is negative or a list is missing.").Throw(kSource, __LINE__);
    for (int i = 0; i < count; ++i)
        m_places.Append({nodes[i], dofs[i]});
}

void KVOFsmSystemDofDefinition::NodeDofFromSolverDof(int solverDof, int& node, int& dof) const
{
    if (solverDof < 0 || solverDof >= NumberOfDofs())
        KVOBasPlatformException(("KVOFsmSystemDofDefinition: solver degree of freedom " + std::to_string(solverDof) +
                                 " is outside the range of " + std::to_string(NumberOfDofs()) + ", counted from 0.")
                                    .c_str())
            .Throw(kSource, __LINE__);
    Place const& place = m_places[solverDof];
    node = place.node;
    dof = place.dof;
}
