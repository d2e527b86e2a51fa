#pragma once

#include "KVOSrvSparseMatrix.h"

#include <memory>
#include <utility>

/// All entries of a matrix in compressed rows, columns ascending: one in half storage is copied in full.
class FullMatrix
{
public:
    explicit FullMatrix(std::unique_ptr<KVOSrvSparseMatrix> matrix) : FullMatrix(*matrix)
    {
        if (m_owned == nullptr)
            m_owned = std::move(matrix);
    }
    /// The matrix must live as long as this.
    explicit FullMatrix(KVOSrvSparseMatrix const& matrix)
        : m_owned(matrix.Rows().diagonal != nullptr ? matrix.InFullStorage() : nullptr), m_matrix(m_owned ? *m_owned : matrix)
    {
    }

    KVOSrvSparseMatrix const& Matrix() const noexcept { return m_matrix; }
    KVOSrvSparseRows Rows() const { return m_matrix.Rows(); }

private:
    std::unique_ptr<KVOSrvSparseMatrix const> m_owned;
    KVOSrvSparseMatrix const& m_matrix;
};

/// Calls take(row, column, value) for every stored entry, row by row.
template<class Take>
void ForEachEntry(KVOSrvSparseRows const& rows, Take const& take)
{
    for (int row = 0; row < rows.rows; ++row)
        for (unsigned k = rows.rowStart[row]; k < rows.rowStart[row + 1]; ++k)
            take(row, rows.columnIndices[k], rows.values[k]);
}
