#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

/// One entry of a matrix before assembly; entries of equal place are summed.
struct BrickTriplet {
    int row;
    int column;
    double value;
};

/// A square matrix in compressed rows; columns ascend strictly within a row.
struct BrickRows {
    int rows = 0;
    std::vector<int> start; ///< rows + 1 offsets
    std::vector<int> columns;
    std::vector<double> values;
};

/// The material and the size of the bricks.
struct BrickProperties {
    double youngsModulus = 1.0;
    double poissonsRatio = 0.3; ///< below 0.5
    double density = 1.0;
    std::array<double, 3> edges = {1.0, 1.0, 1.0}; ///< of one element, along x, y and z
};

/// The model of a block of elastic 8-node bricks, 3 displacements a node, isotropic linear elasticity.
///
/// Nodes are numbered along x first, then y, then z, from 0; unknown d (0, 1, 2: along x, y, z) of node i is row 3 i + d. An element's
/// nodes stand in the usual order: the lower face counter-clockwise from its corner of lowest coordinates, then the upper face. A
/// permutation of the nodes replaces the natural numbering, whose rows have runs of nine consecutive columns, by one with runs of three.
class BrickModel
{
public:
    static constexpr int kElementNodes = 8;
    static constexpr int kElementSize = 3 * kElementNodes;
    /// Row by row; row 3 k + d is unknown d of the element's node k.
    using ElementMatrix = std::array<double, std::size_t{kElementSize} * kElementSize>;

    /// A block of ex x ey x ez elements.
    /// @param number  for each node of the natural numbering its number; empty for the natural one
    BrickModel(int ex, int ey, int ez, std::vector<int> number = {}, BrickProperties const& properties = {})
        : m_elements{ex, ey, ez}, m_number(std::move(number)), m_properties(properties)
    {
    }

    int NumberOfElements() const { return m_elements[0] * m_elements[1] * m_elements[2]; }
    int NumberOfNodes() const { return (m_elements[0] + 1) * (m_elements[1] + 1) * (m_elements[2] + 1); }
    int NumberOfRows() const { return 3 * NumberOfNodes(); }

    std::array<int, kElementNodes> ElementNodes(int element) const
    {
        int const ex = m_elements[0], ey = m_elements[1];
        int const corner[3] = {element % ex, element / ex % ey, element / (ex * ey)};
        std::array<int, kElementNodes> nodes{};
        for (std::size_t k = 0; k < nodes.size(); ++k)
            nodes[k] =
                Number(corner[0] + (kCorner[k][0] + 1) / 2, corner[1] + (kCorner[k][1] + 1) / 2, corner[2] + (kCorner[k][2] + 1) / 2);
        return nodes;
    }

    /// The stiffness of one element, integrated with 2 x 2 x 2 Gauss points; symmetric to the last bit.
    static ElementMatrix ElementStiffness(BrickProperties const& properties = {})
    {
        double const e = properties.youngsModulus, nu = properties.poissonsRatio;
        double const lambda = e * nu / ((1 + nu) * (1 - 2 * nu));
        double const mu = e / (2 * (1 + nu));
        double const weight = Volume(properties) / 8; // eight points of equal weight
        ElementMatrix stiffness{};
        for (auto const& point : kCorner) { // The Gauss points lie at the corners' signs times 1/sqrt(3).
            auto const gradient = ShapeGradients(point[0] * kGauss, point[1] * kGauss, point[2] * kGauss, properties.edges);
            for (std::size_t k = 0; k < kElementNodes; ++k)
                for (std::size_t l = 0; l <= k; ++l)
                    AddNodePair(stiffness, k, l, gradient[k], gradient[l], lambda * weight, mu * weight);
        }
        return stiffness;
    }

    /// The consistent mass of one element, integrated exactly: the integral of the product of two linear functions on an edge is a third of
    /// the edge where they belong to one end, else a sixth.
    static ElementMatrix ElementMass(BrickProperties const& properties = {})
    {
        double const mass = properties.density * Volume(properties);
        ElementMatrix matrix{};
        for (std::size_t k = 0; k < kElementNodes; ++k)
            for (std::size_t l = 0; l < kElementNodes; ++l) {
                int same = 0;
                for (std::size_t d = 0; d < 3; ++d)
                    same += kCorner[k][d] == kCorner[l][d];
                double const value = mass * (1 << same) / 216;
                for (std::size_t d = 0; d < 3; ++d)
                    matrix[(3 * k + d) * kElementSize + 3 * l + d] = value;
            }
        return matrix;
    }

    /// Calls take(row, column, value) for the 576 entries of every element, element after element, each element row by row.
    template<class Take>
    void ForEachTriplet(Take const& take, ElementMatrix const& element) const
    {
        for (int e = 0; e < NumberOfElements(); ++e) {
            auto const nodes = ElementNodes(e);
            for (std::size_t i = 0; i < kElementSize; ++i)
                for (std::size_t j = 0; j < kElementSize; ++j)
                    take(3 * nodes[i / 3] + static_cast<int>(i % 3), 3 * nodes[j / 3] + static_cast<int>(j % 3),
                         element[i * kElementSize + j]);
        }
    }

    /// The entries of the stiffness as a list.
    std::vector<BrickTriplet> Triplets() const
    {
        std::vector<BrickTriplet> list;
        list.reserve(static_cast<std::size_t>(NumberOfElements()) * kElementSize * kElementSize);
        ForEachTriplet([&](int row, int column, double value) { list.push_back({row, column, value}); }, ElementStiffness(m_properties));
        return list;
    }

    /// The sum of all elements; entries of equal place are added in the order of the elements.
    BrickRows Assembled(ElementMatrix const& element) const;
    /// That of the stiffness.
    BrickRows Assembled() const { return Assembled(ElementStiffness(m_properties)); }

private:
    using Vector = std::array<double, 3>;

    static constexpr int kCorner[kElementNodes][3] = {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1},
                                                      {-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1}};
    static constexpr double kGauss = 0.57735026918962576451; // 1/sqrt(3)

    int Number(int x, int y, int z) const
    {
        int const natural = x + (m_elements[0] + 1) * (y + (m_elements[1] + 1) * z);
        return m_number.empty() ? natural : m_number[static_cast<std::size_t>(natural)];
    }

    static double Volume(BrickProperties const& properties) { return properties.edges[0] * properties.edges[1] * properties.edges[2]; }

    // Gradients of the trilinear shape functions at a point of [-1, 1]^3, by the coordinates of the element.
    static std::array<Vector, kElementNodes> ShapeGradients(double r, double s, double t, std::array<double, 3> const& edges)
    {
        std::array<Vector, kElementNodes> gradients{};
        for (std::size_t k = 0; k < kElementNodes; ++k) {
            int const* sign = kCorner[k];
            double const p = 1 + sign[0] * r, q = 1 + sign[1] * s, w = 1 + sign[2] * t;
            gradients[k] = {sign[0] * q * w / 4 / edges[0], p * sign[1] * w / 4 / edges[1], p * q * sign[2] / 4 / edges[2]};
        }
        return gradients;
    }

    // The 3 x 3 block of nodes k and l and its mirror: lambda g h^T + mu (h g^T + (g . h) I), for the gradients g and h.
    static void AddNodePair(ElementMatrix& stiffness, std::size_t k, std::size_t l, Vector const& g, Vector const& h, double lambda,
                            double mu)
    {
        double const dot = g[0] * h[0] + g[1] * h[1] + g[2] * h[2];
        for (std::size_t i = 0; i < 3; ++i)
            for (std::size_t j = 0; j < (k == l ? i + 1 : 3); ++j) {
                double const value = lambda * g[i] * h[j] + mu * (g[j] * h[i] + (i == j ? dot : 0.0));
                std::size_t const row = 3 * k + i, column = 3 * l + j;
                stiffness[row * kElementSize + column] += value;
                if (row != column)
                    stiffness[column * kElementSize + row] += value;
            }
    }

    std::array<int, 3> m_elements;
    std::vector<int> m_number;
    BrickProperties m_properties;
};

inline BrickRows BrickModel::Assembled(ElementMatrix const& element) const
{
    // A node meets at most 26 others and itself: 27 slots a node, filled in the order of the elements, then sorted.
    constexpr int kSlots = 27;
    auto const nodeCount = static_cast<std::size_t>(NumberOfNodes());
    std::vector<std::array<int, kSlots>> neighbours(nodeCount);
    std::vector<int> count(nodeCount);
    for (int e = 0; e < NumberOfElements(); ++e) {
        auto const nodes = ElementNodes(e);
        for (int const node : nodes)
            for (int const other : nodes) {
                auto& list = neighbours[static_cast<std::size_t>(node)];
                int& length = count[static_cast<std::size_t>(node)];
                int place = length;
                while (place > 0 && list[static_cast<std::size_t>(place) - 1] >= other)
                    --place;
                if (place < length && list[static_cast<std::size_t>(place)] == other)
                    continue;
                for (int k = length++; k > place; --k)
                    list[static_cast<std::size_t>(k)] = list[static_cast<std::size_t>(k) - 1];
                list[static_cast<std::size_t>(place)] = other;
            }
    }

    BrickRows matrix;
    matrix.rows = NumberOfRows();
    matrix.start.push_back(0);
    for (std::size_t node = 0; node < nodeCount; ++node)
        for (int d = 0; d < 3; ++d) {
            for (int k = 0; k < count[node]; ++k)
                for (int c = 0; c < 3; ++c)
                    matrix.columns.push_back(3 * neighbours[node][static_cast<std::size_t>(k)] + c);
            matrix.start.push_back(static_cast<int>(matrix.columns.size()));
        }
    matrix.values.assign(matrix.columns.size(), 0.0);
    auto const add = [&](int row, int column, double value) {
        auto const node = static_cast<std::size_t>(row / 3);
        int k = 0;
        while (neighbours[node][static_cast<std::size_t>(k)] != column / 3)
            ++k;
        matrix.values[static_cast<std::size_t>(matrix.start[static_cast<std::size_t>(row)] + 3 * k + column % 3)] += value;
    };
    ForEachTriplet(add, element);
    return matrix;
}
