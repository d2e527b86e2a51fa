#pragma once

#include "Drawing.h"

#include <array>
#include <span>
#include <vector>

class BlockNodes;

using Place = std::array<double, 3>;

/// Part of the surface of a block, between four of its nodes.
struct SurfacePatch {
    std::array<Place, 4> atRest; ///< counter-clockwise, seen from outside
    std::array<Place, 4> moved;
    std::array<bool, 4> isEdge; ///< whether the side from corner i to the next one lies on an edge of the block
};

/// The surface of a block at rest and moved by displacements, in patches: one for each face of an element or, where these are too many to
/// be told apart, for several.
std::vector<SurfacePatch> SurfaceOf(BlockNodes const& nodes, std::span<double const> displacements, double amplification);

/// A parallel projection from the front, the left of it a little to the right and above: x to the right, y back, z up.
Point Project(Place const& place) noexcept;
/// How far a place lies from the viewer, more being farther.
double Depth(Place const& place) noexcept;
