#pragma once

#include <array>
#include <cstddef>
#include <vector>

class NodeCoordinates;

/// The nodes of a block of bricks, as kvomtx make-brick numbers them: planes across x, y and z, the nodes along x first, then y, then z,
/// each with three displacements. The nodes of the face x = 0 are not among the unknowns when it is clamped.
class BlockNodes
{
public:
    /// @param coordinates  of the nodes that have unknowns
    /// @throws ToolError kUnreadable when they are not those of a block
    explicit BlockNodes(NodeCoordinates const& coordinates);

    /// Where the planes across axis d are, ascending, that of the clamped face included; two or more.
    std::vector<double> const& Planes(std::size_t d) const noexcept { return m_planes[d]; }
    bool IsClamped() const noexcept { return m_clamped; }
    int NumberOfUnknowns() const noexcept;
    /// The first of the three unknowns of a node; -1: it is clamped.
    int FirstUnknown(std::array<std::size_t, 3> const& node) const noexcept;

private:
    std::array<std::vector<double>, 3> m_planes;
    bool m_clamped = false;
};
