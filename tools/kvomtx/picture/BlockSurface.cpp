#include "BlockSurface.h"

#include "BlockNodes.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace
{

constexpr double kTurn = std::numbers::pi / 6.0;               // about z: how much of the right face is seen
constexpr double kElevation = 25.0 / 180.0 * std::numbers::pi; // how much of the top is seen

using Node = std::array<std::size_t, 3>;

// The planes along each axis between which patches lie.
std::array<std::vector<std::size_t>, 3> DividingPlanes(BlockNodes const& nodes)
{
    constexpr std::size_t kMostAlongEdge = 60, kMostPatches = 4000;
    std::array<std::size_t, 3> parts{};
    for (std::size_t d = 0; d < 3; ++d)
        parts[d] = std::min(nodes.Planes(d).size() - 1, kMostAlongEdge);
    while (2 * (parts[0] * parts[1] + parts[1] * parts[2] + parts[2] * parts[0]) > kMostPatches)
        *std::ranges::max_element(parts) /= 2;
    std::array<std::vector<std::size_t>, 3> planes;
    for (std::size_t d = 0; d < 3; ++d)
        for (std::size_t part = 0; part <= parts[d]; ++part)
            planes[d].push_back(part * (nodes.Planes(d).size() - 1) / parts[d]);
    return planes;
}

Place AtRest(BlockNodes const& nodes, Node const& node)
{
    return {nodes.Planes(0)[node[0]], nodes.Planes(1)[node[1]], nodes.Planes(2)[node[2]]};
}

Place Moved(BlockNodes const& nodes, Node const& node, std::span<double const> displacements, double amplification)
{
    Place place = AtRest(nodes, node);
    int const first = nodes.FirstUnknown(node);
    for (std::size_t d = 0; d < 3 && first >= 0; ++d)
        place[d] += amplification * displacements[static_cast<std::size_t>(first) + d];
    return place;
}

} // namespace

std::vector<SurfacePatch> SurfaceOf(BlockNodes const& nodes, std::span<double const> displacements, double amplification)
{
    auto const planes = DividingPlanes(nodes);
    std::vector<SurfacePatch> patches;
    for (std::size_t across = 0; across < 3; ++across)
        for (bool const isUpper : {false, true}) {
            std::size_t const u = (across + 1) % 3, v = (across + 2) % 3;
            for (std::size_t j = 0; j + 1 < planes[v].size(); ++j)
                for (std::size_t i = 0; i + 1 < planes[u].size(); ++i) {
                    SurfacePatch patch{{}, {}, {j == 0, i + 2 == planes[u].size(), j + 2 == planes[v].size(), i == 0}};
                    constexpr std::array<std::array<std::size_t, 2>, 4> kCorners{{{0, 0}, {1, 0}, {1, 1}, {0, 1}}};
                    for (std::size_t corner = 0; corner < 4; ++corner) {
                        Node node{};
                        node[across] = isUpper ? planes[across].back() : 0;
                        node[u] = planes[u][i + kCorners[corner][0]];
                        node[v] = planes[v][j + kCorners[corner][1]];
                        patch.atRest[corner] = AtRest(nodes, node);
                        patch.moved[corner] = Moved(nodes, node, displacements, amplification);
                    }
                    if (!isUpper) { // seen from below they run clockwise
                        std::ranges::reverse(patch.atRest);
                        std::ranges::reverse(patch.moved);
                        std::swap(patch.isEdge[0], patch.isEdge[2]);
                    }
                    patches.push_back(patch);
                }
        }
    return patches;
}

Point Project(Place const& place) noexcept
{
    auto const [x, y, z] = place;
    double const back = y * std::cos(kTurn) - x * std::sin(kTurn);
    return {x * std::cos(kTurn) + y * std::sin(kTurn), -(back * std::sin(kElevation) + z * std::cos(kElevation))};
}

double Depth(Place const& place) noexcept
{
    auto const [x, y, z] = place;
    double const back = y * std::cos(kTurn) - x * std::sin(kTurn);
    return back * std::cos(kElevation) - z * std::sin(kElevation);
}
