#pragma once

#include <memory>
#include <string>
#include <vector>

class KVOSrvMatrix;

/// Where the nodes of a model are, and which unknowns they have, from a text file: lines "x y z", one for each node in the order of the
/// unknowns, or lines "x y z dof", one for each unknown. % begins a comment; empty lines do not count.
class NodeCoordinates
{
public:
    /// @throws ToolError kUnreadable with the line
    explicit NodeCoordinates(std::string const& path);

    std::string const& Path() const noexcept { return m_path; }
    /// x, y and z of each line.
    std::vector<double> const& Places() const noexcept { return m_places; }
    /// Whether a line stands for an unknown.
    bool HasDofs() const noexcept { return !m_dofs.empty(); }

    /// The motions of a rigid body for a model of so many unknowns: order x 6, see KVOSrvModesParticipation::RigidMotions().
    /// @param about  the point that rotations are about: 3 coordinates; null: the origin
    /// @throws ToolError kUnreadable when the file has not as many lines as the model has unknowns, or nodes of 3 or 6 unknowns
    std::unique_ptr<KVOSrvMatrix> RigidMotions(int order, double const* about) const;

private:
    std::string m_path;
    std::vector<double> m_places; // x, y and z of each line
    std::vector<int> m_dofs;      // 1 to 6 of each line; empty where a line stands for a node
};
