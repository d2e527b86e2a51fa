#pragma once

#include "KVOExport.h"
#include "KVOSrvBlaMatrix.h"

/// An operand of a product, op(X), being X or its transpose, cut into tiles of 144 rows and columns; the last may be
/// smaller.
///
/// It refers to X, which must outlive it. What its members call a block, a row or a column of tiles, is a view of X
/// itself, made by KVOSrvBlaMatrix::Submatrix(), that the caller deletes; its transposition is left to the flag that
/// DGEMM is given. A broken precondition ends the process, as with KVOSrvBlaMatrix.
class KVO_EXPORT KVOSrvTransBlaMtx
{
public:
    /// @param mtx         X; asserts that it is not null
    /// @param transposed  op(X) is the transpose of X
    KVOSrvTransBlaMtx(KVOSrvBlaMatrix const* mtx, bool transposed);

    /// @name The shape of op(X), in elements and in blocks; without rows there is no block of rows, columns alike
    /// @{

    /// Rows of op(X).
    int NumberOfRows() const noexcept { return m_numRows; }
    /// Columns of op(X).
    int NumberOfColumns() const noexcept { return m_numCols; }
    /// Blocks of rows.
    int NumberOfRowBlocks() const noexcept { return m_numRowBlocks; }
    /// Blocks of columns.
    int NumberOfColBlocks() const noexcept { return m_numColBlocks; }
    /// Rows of the row block `i`, 0-based; not checked.
    int RowBlockSize(int i) const noexcept { return i == m_numRowBlocks - 1 ? m_lastRowBlockSize : m_blockSize; }
    /// Columns of the column block `j`, 0-based; not checked.
    int ColBlockSize(int j) const noexcept { return j == m_numColBlocks - 1 ? m_lastColBlockSize : m_blockSize; }
    /// @}

    /// The rows of op(X) from 144 * i on, over all columns, as a view of X. Asserts that there is such a block, and
    /// that it has elements.
    KVOSrvBlaMatrix* RowBlock(int i) const;
    /// The columns of op(X) from 144 * j on, over all rows, as a view of X. Asserts that there is such a block, and
    /// that it has elements.
    KVOSrvBlaMatrix* ColBlock(int j) const;
    /// What RowBlock() makes, held.
    KVOSrvBlaMatrixPointer RowView(int i) const { return KVOSrvBlaMatrixPointer(RowBlock(i)); }
    /// What ColBlock() makes, held.
    KVOSrvBlaMatrixPointer ColView(int j) const { return KVOSrvBlaMatrixPointer(ColBlock(j)); }

private:
    KVOSrvBlaMatrix const* m_pMtx;
    bool m_transposed;
    int m_numRows;
    int m_numCols;
    int m_lastRowBlockSize;
    int m_lastColBlockSize;
    int m_numRowBlocks;
    int m_numColBlocks;
    int m_blockSize;
};
