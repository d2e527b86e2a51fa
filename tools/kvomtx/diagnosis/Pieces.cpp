#include "Pieces.h"

#include "Found.h"
#include "FullMatrix.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace
{

/// Disjoint sets: the root of each is its lowest member, paths are halved (Tarjan, van Leeuwen, J. ACM 31, 1984).
class Sets
{
public:
    explicit Sets(std::size_t count) : m_parent(count) { std::iota(m_parent.begin(), m_parent.end(), 0U); }

    unsigned Root(unsigned member)
    {
        while (m_parent[member] != member)
            member = m_parent[member] = m_parent[m_parent[member]];
        return member;
    }
    void Unite(unsigned a, unsigned b)
    {
        a = Root(a);
        b = Root(b);
        m_parent[std::max(a, b)] = std::min(a, b);
    }

private:
    std::vector<unsigned> m_parent;
};

} // namespace

Pieces FindPieces(KVOSrvSparseRows const& matrix)
{
    bool const isSquare = matrix.rows == matrix.columns;
    auto const rows = static_cast<unsigned>(matrix.rows), behindRows = isSquare ? 0U : rows;
    unsigned const members = isSquare ? rows : rows + static_cast<unsigned>(matrix.columns);
    Sets sets(members);
    ForEachEntry(matrix, [&](int row, int column, double value) {
        if (value != 0.0)
            sets.Unite(static_cast<unsigned>(row), behindRows + static_cast<unsigned>(column));
    });
    std::vector<Pieces::Size> sizes(members);
    for (unsigned member = 0; member < members; ++member) {
        Pieces::Size& size = sizes[sets.Root(member)];
        size.rows += member < rows;
        size.columns += isSquare || member >= rows;
    }
    std::erase_if(sizes, [](Pieces::Size const& size) { return size.rows + size.columns == 0; });
    Pieces pieces{std::ssize(sizes), {}};
    pieces.largest.resize(std::min(sizes.size(), kMostKept));
    std::ranges::partial_sort_copy(sizes, pieces.largest, [](Pieces::Size const& a, Pieces::Size const& b) {
        return std::int64_t{a.rows} + a.columns > std::int64_t{b.rows} + b.columns;
    });
    return pieces;
}
