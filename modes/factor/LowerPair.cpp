#include "LowerPair.h"

#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>

namespace
{

// Every entry of the lower triangle; half storage may hold either triangle.
template<class Take>
void ForEach(KVOSrvSparseMatrix const& matrix, Take const& take)
{
    KVOSrvSparseRows const rows = matrix.Rows();
    for (int i = 0; i < rows.rows; ++i) {
        for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k) {
            int const j = rows.columnIndices[k];
            if (rows.diagonal != nullptr)
                take(static_cast<std::size_t>(std::max(i, j)), static_cast<std::size_t>(std::min(i, j)), rows.values[k]);
            else if (j <= i)
                take(static_cast<std::size_t>(i), static_cast<std::size_t>(j), rows.values[k]);
        }
        if (rows.diagonal != nullptr)
            take(static_cast<std::size_t>(i), static_cast<std::size_t>(i), rows.diagonal[i]);
    }
}

} // namespace

LowerPair::LowerPair(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const* mass) : m_stiffness(stiffness), m_mass(mass)
{
    auto const n = static_cast<std::size_t>(stiffness.NumberOfRows());
    auto const forBoth = [&](auto const& take) {
        ForEach(stiffness, take);
        if (mass != nullptr)
            ForEach(*mass, take);
    };
    std::vector<std::size_t> start(n + 1); // of the rows with what both have
    for (std::size_t i = 0; i < n; ++i)
        start[i + 1] = 1;
    forBoth([&](std::size_t i, std::size_t, double) { ++start[i + 1]; });
    for (std::size_t i = 0; i < n; ++i)
        start[i + 1] += start[i];
    std::vector<int> columns(start[n]);
    std::vector<std::size_t> next(start.begin(), start.end() - 1);
    auto const add = [&](std::size_t i, std::size_t j, double = 0.0) { columns[next[i]++] = static_cast<int>(j) + 1; };
    for (std::size_t i = 0; i < n; ++i)
        add(i, i);
    forBoth(add);

    m_start.push_back(0);
    m_columns.reserve(columns.size());
    for (std::size_t i = 0; i < n; ++i) {
        auto const begin = columns.begin() + static_cast<std::ptrdiff_t>(start[i]),
                   end = columns.begin() + static_cast<std::ptrdiff_t>(start[i + 1]);
        std::sort(begin, end);
        m_columns.insert(m_columns.end(), begin, std::unique(begin, end));
        m_start.push_back(m_columns.size());
    }
    m_rows.reserve(m_columns.size());
    for (std::size_t i = 0; i < n; ++i)
        m_rows.insert(m_rows.end(), m_start[i + 1] - m_start[i], static_cast<int>(i) + 1);
}

std::vector<double> LowerPair::ScaledSum(double shift, std::vector<double>& values) const
{
    std::vector<double> scale = Scale(shift);
    values.assign(m_columns.size(), 0.0);
    auto const place = [&](std::size_t i, std::size_t j) -> double& {
        auto const begin = m_columns.begin() + static_cast<std::ptrdiff_t>(m_start[i]),
                   end = m_columns.begin() + static_cast<std::ptrdiff_t>(m_start[i + 1]);
        return values[static_cast<std::size_t>(std::lower_bound(begin, end, static_cast<int>(j) + 1) - m_columns.begin())];
    };
    ForEach(m_stiffness, [&](std::size_t i, std::size_t j, double value) { place(i, j) = value; });
    if (m_mass != nullptr && shift != 0.0)
        ForEach(*m_mass, [&](std::size_t i, std::size_t j, double value) { place(i, j) += shift * value; });
    for (std::size_t k = 0; k < values.size(); ++k)
        (values[k] *= scale[static_cast<std::size_t>(m_rows[k] - 1)]) *= scale[static_cast<std::size_t>(m_columns[k] - 1)];
    return scale;
}

std::vector<double> LowerPair::Scale(double shift) const
{
    auto const n = static_cast<std::size_t>(Order());
    std::vector<double> diagonal(n), largest(n);
    auto const take = [&](std::size_t i, std::size_t j, double value) {
        if (i == j)
            diagonal[i] += std::fabs(value);
        largest[i] = std::max(largest[i], std::fabs(value));
        largest[j] = std::max(largest[j], std::fabs(value));
    };
    ForEach(m_stiffness, take);
    if (m_mass != nullptr && shift != 0.0)
        ForEach(*m_mass, [&](std::size_t i, std::size_t j, double value) { take(i, j, shift * value); });
    std::vector<double> scale;
    for (std::size_t i = 0; i < n; ++i) {
        double const size = diagonal[i] > 0.0 ? diagonal[i] : largest[i];
        int exponent = 0;
        if (size > 0.0 && std::isfinite(size))
            std::frexp(size, &exponent);
        scale.push_back(std::ldexp(1.0, -exponent / 2));
    }
    return scale;
}

Graph LowerPair::FullGraph() const
{
    auto const n = static_cast<std::size_t>(Order());
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
