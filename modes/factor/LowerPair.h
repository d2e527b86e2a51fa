#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class KVOSrvSparseMatrix;

/// Neighbours of every node, both ways, without itself, in compressed rows.
struct Graph {
    std::vector<int> start;
    std::vector<int> neighbours;
};

/// The lower triangles of two symmetric matrices on one pattern, the union of theirs and the diagonal; rows and columns ascend. The values
/// stay in the matrices, which outlive the object.
class LowerPair
{
public:
    /// @param mass  null: none
    LowerPair(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const* mass);

    int Order() const noexcept { return static_cast<int>(m_start.size()) - 1; }
    std::int64_t Entries() const noexcept { return static_cast<std::int64_t>(m_columns.size()); }
    std::int64_t Bytes() const noexcept { return Entries() * 2 * std::int64_t{sizeof(int)} + Order() * std::int64_t{sizeof(std::size_t)}; }
    int* Rows() noexcept { return m_rows.data(); }       ///< from 1
    int* Columns() noexcept { return m_columns.data(); } ///< from 1

    /// S (K + shift M) S, entry by entry: scaled so that it has a diagonal of about 1 but for what cancels between K and M, where the
    /// diagonal of the sum may be nothing but rounding. @return S, powers of two
    std::vector<double> ScaledSum(double shift, std::vector<double>& values) const;
    Graph FullGraph() const;

private:
    std::vector<double> Scale(double shift) const;

    KVOSrvSparseMatrix const& m_stiffness;
    KVOSrvSparseMatrix const* m_mass;
    std::vector<std::size_t> m_start; // of every row
    std::vector<int> m_rows;
    std::vector<int> m_columns;
};
