#include "LowerPair.h"

#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <span>

namespace
{

// The entries of the lower triangle, row by row with ascending columns.
class Triangle
{
public:
    explicit Triangle(KVOSrvSparseMatrix const* matrix)
    {
        if (matrix == nullptr)
            return;
        KVOSrvSparseRows const rows = matrix->Rows();
        m_start.resize(static_cast<std::size_t>(rows.rows) + 1);
        ForEach(rows, [&](int row, int, double) { ++m_start[static_cast<std::size_t>(row) + 1]; });
        for (std::size_t i = 1; i < m_start.size(); ++i)
            m_start[i] += m_start[i - 1];
        m_entries.resize(m_start.back());
        std::vector<std::size_t> next(m_start.begin(), m_start.end() - 1);
        ForEach(rows, [&](int row, int column, double value) { m_entries[next[static_cast<std::size_t>(row)]++] = {column, value}; });
        for (std::size_t i = 0; i + 1 < m_start.size(); ++i) {
            std::span const row(m_entries.begin() + static_cast<std::ptrdiff_t>(m_start[i]),
                                m_entries.begin() + static_cast<std::ptrdiff_t>(m_start[i + 1]));
            if (!std::ranges::is_sorted(row, {}, &Entry::column))
                std::ranges::sort(row, {}, &Entry::column);
        }
    }

    // The next entry of `row`, or one past all columns.
    int Column(int row) const
    {
        bool const has = !m_start.empty() && m_next < m_start[static_cast<std::size_t>(row) + 1];
        return has ? m_entries[m_next].column : std::numeric_limits<int>::max();
    }
    double Take() { return m_entries[m_next++].value; }

private:
    struct Entry {
        int column;
        double value;
    };

    // Half storage may hold either triangle.
    template<class Take>
    static void ForEach(KVOSrvSparseRows const& rows, Take const& take)
    {
        for (int i = 0; i < rows.rows; ++i) {
            for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k) {
                int const j = rows.columnIndices[k];
                if (rows.diagonal != nullptr)
                    take(std::max(i, j), std::min(i, j), rows.values[k]);
                else if (j <= i)
                    take(i, j, rows.values[k]);
            }
            if (rows.diagonal != nullptr)
                take(i, i, rows.diagonal[i]);
        }
    }

    std::vector<std::size_t> m_start;
    std::vector<Entry> m_entries;
    std::size_t m_next = 0;
};

} // namespace

LowerPair::LowerPair(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const* mass) : m_order(stiffness.NumberOfRows())
{
    Triangle k(&stiffness), m(mass);
    for (int row = 0; row < m_order; ++row)
        for (;;) {
            int const column = std::min(
                {k.Column(row), m.Column(row),
                 m_rows.empty() || m_rows.back() != row + 1 || m_columns.back() != row + 1 ? row : std::numeric_limits<int>::max()});
            if (column == std::numeric_limits<int>::max())
                break;
            m_rows.push_back(row + 1);
            m_columns.push_back(column + 1);
            m_stiffness.push_back(k.Column(row) == column ? k.Take() : 0.0);
            if (mass != nullptr)
                m_mass.push_back(m.Column(row) == column ? m.Take() : 0.0);
        }
}

void LowerPair::Sum(double shift, std::vector<double>& values) const
{
    values = m_stiffness;
    if (shift != 0.0)
        for (std::size_t i = 0; i < m_mass.size(); ++i)
            values[i] += shift * m_mass[i];
}

std::vector<double> LowerPair::Equilibrate(double shift, std::vector<double>& values) const
{
    std::vector<double> diagonal(static_cast<std::size_t>(m_order)), largest(diagonal.size());
    for (std::size_t k = 0; k < values.size(); ++k) {
        auto const i = static_cast<std::size_t>(m_rows[k] - 1), j = static_cast<std::size_t>(m_columns[k] - 1);
        double const size = std::fabs(m_stiffness[k]) + (m_mass.empty() ? 0.0 : std::fabs(shift * m_mass[k]));
        if (i == j)
            diagonal[i] = size;
        largest[i] = std::max(largest[i], size);
        largest[j] = std::max(largest[j], size);
    }
    std::vector<double> scale;
    for (std::size_t i = 0; i < diagonal.size(); ++i) {
        double const size = diagonal[i] > 0.0 ? diagonal[i] : largest[i];
        int exponent = 0;
        if (size > 0.0 && std::isfinite(size))
            std::frexp(size, &exponent);
        scale.push_back(std::ldexp(1.0, -exponent / 2));
    }
    for (std::size_t k = 0; k < values.size(); ++k)
        (values[k] *= scale[static_cast<std::size_t>(m_rows[k] - 1)]) *= scale[static_cast<std::size_t>(m_columns[k] - 1)];
    return scale;
}

Graph LowerPair::FullGraph() const
{
    auto const n = static_cast<std::size_t>(m_order);
    Graph graph;
    graph.start.resize(n + 1);
    auto const forEach = [&](auto const& act) {
        for (std::size_t k = 0; k < m_rows.size(); ++k)
            if (m_rows[k] != m_columns[k])
                act(m_rows[k] - 1, m_columns[k] - 1);
    };
    forEach([&](int i, int j) {
        ++graph.start[static_cast<std::size_t>(i) + 1];
        ++graph.start[static_cast<std::size_t>(j) + 1];
    });
    for (std::size_t i = 0; i < n; ++i)
        graph.start[i + 1] += graph.start[i];
    graph.neighbours.resize(static_cast<std::size_t>(graph.start[n]));
    std::vector<int> next(graph.start.begin(), graph.start.end() - 1);
    forEach([&](int i, int j) {
        graph.neighbours[static_cast<std::size_t>(next[static_cast<std::size_t>(i)]++)] = j;
        graph.neighbours[static_cast<std::size_t>(next[static_cast<std::size_t>(j)]++)] = i;
    });
    return graph;
}
