#include "KVOSrvTransBlaMtx.h"

#include "KVOSrvBlaMatrix.h"
#include "KVOSrvBlaMatrixSupport.h"

using KVOSrvBlaMatrixSupport::kTileSize;
using KVOSrvBlaMatrixSupport::RequirePrecondition;

KVOSrvTransBlaMtx::KVOSrvTransBlaMtx(KVOSrvBlaMatrix const* const mtx, bool transposed)
    : m_pMtx(mtx), m_transposed(transposed), m_blockSize(kTileSize)
{
    RequirePrecondition(m_pMtx != nullptr, "m_pMtx", 417);

    m_numRows = transposed ? mtx->NumberOfColumns() : mtx->NumberOfRows();
    m_numCols = transposed ? mtx->NumberOfRows() : mtx->NumberOfColumns();
    auto const cut = [](int size, int& lastBlockSize, int& numBlocks) {
        lastBlockSize = size % kTileSize == 0 ? kTileSize : size % kTileSize;
        numBlocks = size / kTileSize + (lastBlockSize != kTileSize);
    };
    cut(m_numRows, m_lastRowBlockSize, m_numRowBlocks);
    cut(m_numCols, m_lastColBlockSize, m_numColBlocks);
}

KVOSrvBlaMatrix* KVOSrvTransBlaMtx::RowBlock(int i) const
{
    RequirePrecondition(m_pMtx != nullptr, "m_pMtx", 437);
    RequirePrecondition(i < m_numRowBlocks, "i<m_numRowBlocks", 438);

    int const first = m_blockSize * i, last = first + RowBlockSize(i) - 1;
    return m_transposed ? m_pMtx->Submatrix(0, m_numCols - 1, first, last) : m_pMtx->Submatrix(first, last, 0, m_numCols - 1);
}

KVOSrvBlaMatrix* KVOSrvTransBlaMtx::ColBlock(int j) const
{
    RequirePrecondition(m_pMtx != nullptr, "m_pMtx", 458);
    RequirePrecondition(j < m_numColBlocks, "j<m_numColBlocks", 459);

    int const first = m_blockSize * j, last = first + ColBlockSize(j) - 1;
    return m_transposed ? m_pMtx->Submatrix(first, last, 0, m_numRows - 1) : m_pMtx->Submatrix(0, m_numRows - 1, first, last);
}
