#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

class KVOSrvSparseMatrix;
struct KVOSrvSparseMatrixEntry;

/// All entries of a matrix in compressed rows, columns ascending, a half-stored one in full. Entries of equal place are summed.
class SparseStructure
{
public:
    explicit SparseStructure(KVOSrvSparseMatrix const& matrix);

    int Rows() const noexcept { return m_rows; }
    int Columns() const noexcept { return m_columns; }
    std::int64_t Entries() const noexcept { return static_cast<std::int64_t>(m_column.size()); }

    /// Places of row i in Column() and Value(): Start(i) to Start(i + 1) - 1.
    std::size_t Start(int row) const noexcept { return m_start[static_cast<std::size_t>(row)]; }
    int Column(std::size_t place) const noexcept { return m_column[place]; }
    double Value(std::size_t place) const noexcept { return m_value[place]; }

    /// Calls take(row, column, value) for every entry, row by row.
    template<class Take>
    void ForEach(Take const& take) const
    {
        for (int row = 0; row < m_rows; ++row)
            for (std::size_t k = Start(row); k < Start(row + 1); ++k)
                take(row, m_column[k], m_value[k]);
    }

private:
    int m_rows;
    int m_columns;
    std::vector<std::size_t> m_start;
    std::vector<int> m_column;
    std::vector<double> m_value;
};

/// How far a matrix is from its transpose.
struct Asymmetry {
    double largest = 0.0; ///< |a(i, j) - a(j, i)| over the largest finite entry in size; infinite where a value is no number
    int row = 0;          ///< where that is
    int column = 0;
    double value = 0.0;  ///< a(row, column)
    double mirror = 0.0; ///< a(column, row)
};

/// @param matrix  square
Asymmetry FindAsymmetry(SparseStructure const& matrix);
