#include "BlockNodes.h"

#include "Errors.h"
#include "NodeCoordinates.h"

#include <algorithm>
#include <cmath>

namespace
{

// Each place of a plane is written by the same digits.
std::vector<double> PlanesAcross(std::vector<double> const& places, std::size_t d)
{
    std::vector<double> planes;
    for (std::size_t k = d; k < places.size(); k += 3)
        planes.push_back(places[k]);
    std::ranges::sort(planes);
    planes.erase(std::unique(planes.begin(), planes.end()), planes.end());
    return planes;
}

// Of a clamped block the first plane with unknowns is an element away from x = 0.
bool LacksFirstPlane(std::vector<double> const& planes)
{
    constexpr double kRounding = 1e-9;
    return planes[0] > 0.0 && (planes.size() == 1 || std::fabs(planes[1] - 2.0 * planes[0]) <= kRounding * planes[1]);
}

} // namespace

BlockNodes::BlockNodes(NodeCoordinates const& coordinates)
{
    auto const fail = [&](std::string const& why) {
        throw ToolError(ExitCode::kUnreadable,
                        coordinates.Path() + ": " + why +
                            "; a shape is drawn of a block of bricks, with the file that make-brick --coordinates writes");
    };
    std::vector<double> const& places = coordinates.Places();
    std::size_t nodes = 1;
    for (std::size_t d = 0; d < 3; ++d) {
        m_planes[d] = PlanesAcross(places, d);
        nodes *= m_planes[d].size();
    }
    if (coordinates.HasDofs() || 3 * nodes != places.size())
        fail("is no file of the nodes of a block");
    for (std::size_t node = 0; node < nodes; ++node)
        for (std::size_t d = 0, rest = node; d < 3; rest /= m_planes[d++].size())
            if (places[3 * node + d] != m_planes[d][rest % m_planes[d].size()])
                fail("node " + std::to_string(node + 1) + " is not where a block has it");
    m_clamped = LacksFirstPlane(m_planes[0]);
    if (m_clamped)
        m_planes[0].insert(m_planes[0].begin(), 0.0);
    if (std::ranges::any_of(m_planes, [](auto const& planes) { return planes.size() < 2; }))
        fail("its nodes lie in a plane");
}

int BlockNodes::NumberOfUnknowns() const noexcept
{
    return static_cast<int>(3 * (m_planes[0].size() - (m_clamped ? 1 : 0)) * m_planes[1].size() * m_planes[2].size());
}

int BlockNodes::FirstUnknown(std::array<std::size_t, 3> const& node) const noexcept
{
    std::size_t const clamped = m_clamped ? 1 : 0;
    if (node[0] < clamped)
        return -1;
    return static_cast<int>(3 * ((node[2] * m_planes[1].size() + node[1]) * (m_planes[0].size() - clamped) + node[0] - clamped));
}
