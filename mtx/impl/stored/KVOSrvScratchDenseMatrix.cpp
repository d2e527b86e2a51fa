#include "KVOSrvScratchDenseMatrix.h"

#include "ChunkLimit.h"
#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimTransaction.h"
#include "KVOSrvUtilities.h"
#include "ScratchFiles.h"

namespace
{

KVOSimCSetID MakeMembers(KVOSimContext& context, int count, int const* numbers)
{
    KVOSimCollection collection(context.CreateCollection(count, -1));
    return numbers != nullptr ? collection.CreateOrderedCSet(numbers, count) : collection.BiggestCSetID();
}

} // namespace

KVOSrvScratchDenseMatrix::KVOSrvScratchDenseMatrix() = default;

KVOSrvScratchDenseMatrix::KVOSrvScratchDenseMatrix(int rows, int columns, int rowChunk, int columnChunk)
{
    CreateDatabase(rows, columns, nullptr, nullptr, rowChunk, columnChunk);
}

KVOSrvScratchDenseMatrix::KVOSrvScratchDenseMatrix(int rows, int columns, int const* rowNumbers, int const* columnNumbers, int rowChunk,
                                                   int columnChunk)
{
    CreateDatabase(rows, columns, rowNumbers, columnNumbers, rowChunk, columnChunk);
}

KVOSrvScratchDenseMatrix::KVOSrvScratchDenseMatrix(KVOSimCSetID const& rowSet, KVOSimCSetID const& columnSet, int rowChunk, int columnChunk)
    : m_sourceRows(std::make_unique<KVOSimCSet const>(rowSet)), m_sourceColumns(std::make_unique<KVOSimCSet const>(columnSet))
{
    KVOSimArray<int> const rowNumbers = m_sourceRows->OrderedMembers(), columnNumbers = m_sourceColumns->OrderedMembers();
    CreateDatabase(rowNumbers.Size(), columnNumbers.Size(), rowNumbers.begin(), columnNumbers.begin(), rowChunk, columnChunk);
}

KVOSrvScratchDenseMatrix::KVOSrvScratchDenseMatrix(KVOSrvScratchDenseMatrix const& parent, int r0, int r1, int c0, int c1)
    : KVOSrvDenseMatrix(parent, r0, r1, c0, c1), m_fileHandle(parent.m_fileHandle)
{
}

KVOSrvScratchDenseMatrix::~KVOSrvScratchDenseMatrix() = default;

// Whatever fails here, the file goes with the handle.
void KVOSrvScratchDenseMatrix::CreateDatabase(int rows, int columns, int const* rowNumbers, int const* columnNumbers, int rowChunk,
                                              int columnChunk)
{
    ChunkLimit const chunk("KVOSrvScratchDenseMatrix", "KVOSrvScratchDenseMatrix", rows, columns, rowChunk, columnChunk);

    m_fileHandle.Associate(ScratchFiles::PathForMatrix(this));
    KVOSimContext context(m_fileHandle.ContextID());
    KVOSimTransaction transaction(context);
    KVOSimCSetID const rowSet = MakeMembers(context, rows, rowNumbers), columnSet = MakeMembers(context, columns, columnNumbers);
    KVOSimDistributionID const distribution = KVOSrvUtilities::Create2DDistribution(rowSet, columnSet, chunk.rows, chunk.columns);
    transaction.Commit();
    Bind(KVOSimDistribution(distribution));
}

KVOSimCSetID KVOSrvScratchDenseMatrix::RowCSetID() const
{
    return m_sourceRows == nullptr ? KVOSrvDenseMatrix::RowCSetID() : m_sourceRows->ID();
}

KVOSimCSetID KVOSrvScratchDenseMatrix::ColumnCSetID() const
{
    return m_sourceColumns == nullptr ? KVOSrvDenseMatrix::ColumnCSetID() : m_sourceColumns->ID();
}

KVOSrvScratchDenseMatrix* KVOSrvScratchDenseMatrix::ConstSubmatrix(int r0, int r1, int c0, int c1) const
{
    return new KVOSrvScratchDenseMatrix(*this, r0, r1, c0, c1);
}

KVOSrvScratchDenseMatrix* KVOSrvScratchDenseMatrix::Submatrix(int r0, int r1, int c0, int c1)
{
    return new KVOSrvScratchDenseMatrix(*this, r0, r1, c0, c1);
}
