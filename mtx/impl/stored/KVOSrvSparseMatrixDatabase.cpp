// Storage in the database.

#include "KVOSimCSet.h"
#include "KVOSimDistribution.h"
#include "KVOSimTransfer.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvSparseMatrixContent.h"

#include <algorithm>
#include <utility>

using namespace KVOSrvSparseSupport;

namespace
{

// The buffers of a sparse drawer.
enum Slot : int { kValues = 0, kColumnIndices = 1, kRowStart = 2, kDiagonal = 3 };

template<class T>
void SetBuffer(KVOSimTransfer& transfer, Slot slot, T* entries, std::int64_t count)
{
    transfer.SetBuffer(slot, entries, mem_ArrayBytes(count, sizeof(T)));
}

KVOSimDrawer SparseDrawerOf(KVOSimDistribution const& distribution, int number)
{
    KVOSimArray<KVOSimDrawer> drawers;
    distribution.QueryDrawers(drawers);
    auto const drawer = std::find_if(drawers.begin(), drawers.end(), [&](KVOSimDrawer const& d) { return d.id == number; });
    RequireFitting(drawer != drawers.end(), "Import", "the distribution has no such drawer");
    RequireFitting(drawer->kind == KVOSimSparseDrawer || drawer->kind == KVOSimSparseSymDrawer, "Import", "the drawer is not sparse");
    RequireFitting(drawer->typeKey == KVOSimDouble && drawer->dimensionSizes.Size() == 2, "Import",
                   "the drawer holds no matrix of doubles");
    return *drawer;
}

} // namespace

KVOSrvSparseMatrix::KVOSrvSparseMatrix(KVOSimDistributionID const& distribution) : KVOSrvSparseMatrix(0, 0)
{
    if (!distribution.IsNull())
        Import(distribution);
}

void KVOSrvSparseMatrix::Export(KVOSimCSetID const& rows, KVOSimCSetID const& columns, KVOSimDistributionID const& distribution) const
{
    Export(rows, columns, distribution, false);
}

void KVOSrvSparseMatrix::Export(KVOSimCSetID const& rows, KVOSimCSetID const& columns, KVOSimDistributionID const& distribution,
                                bool valueChecksums) const
{
    RequireAssembled("Export");
    int const members = KVOSimCSet(columns).Size();
    RequireFitting(KVOSimCSet(rows).Size() == m_rowCount, "Export", "the set of the rows has not as many members as there are rows");
    RequireFitting(members >= m_columnCount, "Export", "the set of the columns has fewer members than there are columns");
    RequireFitting(!IsHalfStored() || members == m_columnCount, "Export",
                   "the columns of half storage are its rows, its sets have one size");
    KVOSrvSparseRows const content = View();

    KVOSimTransfer transfer{KVOSimDistribution(distribution)};
    KVOSimSerializationType type;
    if (content.diagonal != nullptr)
        type.SetSparseSym();
    else
        type.SetSparse();
    transfer.SetMakeNewDrawer();
    transfer.SetWrite();
    transfer.SetBufferPadding(0);
    transfer.SetSparseNNonzero(content.entries);
    transfer.SetDim(0, rows);
    transfer.SetDim(1, columns);
    transfer.SetSerialization(type);
    if (valueChecksums)
        transfer.SetValueChecksums();
    transfer.CheckView();
    SetBuffer(transfer, kRowStart, content.rowStart, std::int64_t{content.rows} + 1);
    SetBuffer(transfer, kColumnIndices, content.columnIndices, content.entries);
    SetBuffer(transfer, kValues, content.values, content.entries);
    if (type.Code() == KVOSimSparseSymDrawer)
        SetBuffer(transfer, kDiagonal, content.diagonal, content.rows);
    transfer.ExecWrite();
    transfer.RelinquishBuffers();
}

void KVOSrvSparseMatrix::Import(KVOSimDistributionID const& distribution)
{
    Import(distribution, 0);
}

void KVOSrvSparseMatrix::Import(KVOSimDistributionID const& distribution, int number)
{
    KVOSimDistribution const source(distribution);
    KVOSimDrawer const drawer = SparseDrawerOf(source, number);
    bool const symmetric = drawer.serialization.Code() == KVOSimSparseSymDrawer;
    int const rows = drawer.dimensionSizes[0], columns = drawer.dimensionSizes[1];
    RequireFitting(!symmetric || rows == columns, "Import", "the symmetric drawer is not square");
    std::int64_t const entries = source.DataSizeItems(drawer.id, kValues);
    CompressedRows content(rows, columns, entries);
    Array<double> diagonal = symmetric ? AllocateArray<double>(rows) : nullptr;
    KVOSimTransfer transfer(source);
    transfer.SetDrawer(number);
    transfer.SetRead();
    transfer.SetBufferPadding(0);
    transfer.SetSerialization(drawer.serialization);
    transfer.SetDim(0, drawer.csets[0]);
    transfer.SetDim(1, drawer.csets[1]);
    transfer.CheckView();
    SetBuffer(transfer, kRowStart, content.rowStart.get(), std::int64_t{rows} + 1);
    SetBuffer(transfer, kColumnIndices, content.columnIndices.get(), entries);
    if (symmetric)
        SetBuffer(transfer, kDiagonal, diagonal.get(), rows);
    SetBuffer(transfer, kValues, content.values.get(), entries);
    transfer.ExecRead();
    transfer.RelinquishBuffers();
    // Half storage keeps the order that it came with, as it does from a file.
    RequireFitting(symmetric || ColumnsAscend(content.View()), "Import", "the column indices of a row do not ascend");

    if (symmetric)
        Take(HalfRows{std::move(content), std::move(diagonal)});
    else
        Take(std::move(content), Symmetry::kNot); // what is stored in full counts as not symmetric; nobody looked
    m_content->rowCSet = drawer.csets[0];
    m_content->columnCSet = drawer.csets[1];
}
