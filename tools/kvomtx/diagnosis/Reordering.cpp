#include "Reordering.h"

#include "FullMatrix.h"
#include "Interrupt.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace
{

/// The unknowns that share an entry with one, from its row and, where the mirror images are not there, from its column.
class Neighbours
{
public:
    Neighbours(KVOSrvSparseRows const& matrix, bool isPatternSymmetric) : m_matrix(matrix)
    {
        if (isPatternSymmetric)
            return;
        m_columnStart.resize(static_cast<std::size_t>(matrix.columns) + 2);
        ForEachEntry(matrix, [&](int, int column, double) { ++m_columnStart[static_cast<std::size_t>(column) + 2]; });
        for (std::size_t column = 2; column < m_columnStart.size(); ++column)
            m_columnStart[column] += m_columnStart[column - 1];
        m_rowIndices.resize(static_cast<std::size_t>(matrix.entries));
        ForEachEntry(matrix,
                     [&](int row, int column, double) { m_rowIndices[m_columnStart[static_cast<std::size_t>(column) + 1]++] = row; });
    }

    int Order() const { return m_matrix.rows; }

    /// An unknown may be met twice, and itself.
    template<class Take>
    void ForEach(int unknown, Take const& take) const
    {
        for (unsigned k = m_matrix.rowStart[unknown]; k < m_matrix.rowStart[unknown + 1]; ++k)
            take(m_matrix.columnIndices[k]);
        auto const column = static_cast<std::size_t>(unknown);
        if (!m_columnStart.empty())
            for (unsigned k = m_columnStart[column]; k < m_columnStart[column + 1]; ++k)
                take(m_rowIndices[k]);
    }
    unsigned Degree(int unknown) const
    {
        auto const column = static_cast<std::size_t>(unknown);
        return m_matrix.rowStart[unknown + 1] - m_matrix.rowStart[unknown] +
               (m_columnStart.empty() ? 0 : m_columnStart[column + 1] - m_columnStart[column]);
    }

private:
    KVOSrvSparseRows const& m_matrix;
    std::vector<unsigned> m_columnStart; // empty: rows tell all
    std::vector<int> m_rowIndices;
};

class CuthillMcKee
{
public:
    explicit CuthillMcKee(Neighbours const& neighbours)
        : m_neighbours(neighbours), m_searched(static_cast<std::size_t>(neighbours.Order()), -1),
          m_isNumbered(static_cast<std::size_t>(neighbours.Order()))
    {
        m_order.reserve(m_isNumbered.size());
        for (int unknown = 0; unknown < neighbours.Order(); ++unknown)
            if (!m_isNumbered[static_cast<std::size_t>(unknown)])
                NumberFrom(EndOfPiece(unknown));
    }

    std::vector<int> Reversed()
    {
        std::ranges::reverse(m_order);
        return std::move(m_order);
    }

private:
    bool HasFewer(int a, int b) const { return m_neighbours.Degree(a) < m_neighbours.Degree(b); }

    /// The levels of the search from `root`: how many, and of the last one the unknown with the fewest neighbours.
    struct Levels {
        int count;
        int last;
    };
    Levels SearchFrom(int root)
    {
        CheckInterrupt();
        ++m_searches;
        m_level.assign(1, root);
        m_searched[static_cast<std::size_t>(root)] = m_searches;
        Levels levels{0, root};
        while (!m_level.empty()) {
            ++levels.count;
            levels.last = *std::ranges::min_element(m_level, [&](int a, int b) { return HasFewer(a, b); });
            m_next.clear();
            for (int const unknown : m_level)
                m_neighbours.ForEach(unknown, [&](int neighbour) {
                    if (std::exchange(m_searched[static_cast<std::size_t>(neighbour)], m_searches) != m_searches)
                        m_next.push_back(neighbour);
                });
            m_level.swap(m_next);
        }
        return levels;
    }

    int EndOfPiece(int root)
    {
        Levels levels = SearchFrom(root);
        for (;;) {
            Levels const further = SearchFrom(levels.last);
            if (further.count <= levels.count)
                return levels.last;
            levels = further;
        }
    }

    void NumberFrom(int root)
    {
        std::size_t next = m_order.size();
        m_order.push_back(root);
        m_isNumbered[static_cast<std::size_t>(root)] = true;
        while (next < m_order.size()) {
            auto const begin = static_cast<std::ptrdiff_t>(m_order.size());
            m_neighbours.ForEach(m_order[next++], [&](int neighbour) {
                if (!m_isNumbered[static_cast<std::size_t>(neighbour)]) {
                    m_isNumbered[static_cast<std::size_t>(neighbour)] = true;
                    m_order.push_back(neighbour);
                }
            });
            std::stable_sort(m_order.begin() + begin, m_order.end(), [&](int a, int b) { return HasFewer(a, b); });
        }
    }

    Neighbours const& m_neighbours;
    std::vector<int> m_order;
    std::vector<int> m_searched; // by which search each was met last
    std::vector<bool> m_isNumbered;
    std::vector<int> m_level, m_next;
    int m_searches = -1;
};

} // namespace

std::vector<int> ReverseCuthillMcKee(KVOSrvSparseRows const& matrix, bool isPatternSymmetric)
{
    Neighbours const neighbours(matrix, isPatternSymmetric);
    return CuthillMcKee(neighbours).Reversed();
}

Envelope EnvelopeIn(KVOSrvSparseRows const& matrix, std::vector<int> const& order)
{
    std::vector<int> place(order.size()), first(order.size());
    for (std::size_t k = 0; k < order.size(); ++k) {
        place[static_cast<std::size_t>(order[k])] = static_cast<int>(k);
        first[k] = static_cast<int>(k);
    }
    Envelope envelope;
    ForEachEntry(matrix, [&](int row, int column, double) {
        int const a = place[static_cast<std::size_t>(row)], b = place[static_cast<std::size_t>(column)];
        envelope.bandwidth = std::max<std::int64_t>(envelope.bandwidth, std::abs(a - b));
        int& begin = first[static_cast<std::size_t>(std::max(a, b))];
        begin = std::min({begin, a, b});
    });
    for (std::size_t k = 0; k < first.size(); ++k)
        envelope.profile += static_cast<std::int64_t>(k) - first[k];
    return envelope;
}

std::int64_t BytesOfReordering(KVOSrvSparseRows const& matrix, bool isPatternSymmetric)
{
    return std::int64_t{20} * matrix.rows + (isPatternSymmetric ? 0 : std::int64_t{4} * (std::int64_t{matrix.entries} + matrix.columns));
}
