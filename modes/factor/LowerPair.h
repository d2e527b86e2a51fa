#pragma once

#include <cstdint>
#include <vector>

class KVOSrvSparseMatrix;

/// Neighbours of every node, both ways, without itself, in compressed rows.
struct Graph {
    std::vector<int> start;
    std::vector<int> neighbours;
};

/// The lower triangles of two symmetric matrices on one pattern, the union of theirs and the diagonal; rows ascend.
class LowerPair
{
public:
    /// @param mass  null: none
    LowerPair(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const* mass);

    int Order() const noexcept { return m_order; }
    std::int64_t Entries() const noexcept { return static_cast<std::int64_t>(m_rows.size()); }
    int* Rows() noexcept { return m_rows.data(); }       ///< from 1
    int* Columns() noexcept { return m_columns.data(); } ///< from 1

    /// K + shift M, entry by entry.
    void Sum(double shift, std::vector<double>& values) const;
    /// Scales a sum by S from both sides, so that it has a diagonal of about 1 but for what cancels between K and M: the diagonal of the
    /// sum may be nothing but rounding there. @return S, powers of two
    std::vector<double> Equilibrate(double shift, std::vector<double>& values) const;
    Graph FullGraph() const;

private:
    int m_order;
    std::vector<int> m_rows;
    std::vector<int> m_columns;
    std::vector<double> m_stiffness;
    std::vector<double> m_mass; // empty: none
};
