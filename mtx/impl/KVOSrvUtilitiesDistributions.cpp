#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimException.h"
#include "KVOSimTransfer.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvUtilities.h"

#include <utility>
#include <vector>

namespace
{

constexpr int kWholeDimension = -1;

bool HasOneDrawer(KVOSimDistribution const& distribution, KVOSimDrawer& drawer)
{
    KVOSimArray<KVOSimDrawer> drawers;
    distribution.QueryDrawers(drawers);
    if (drawers.Size() != 1)
        return false;
    drawer = drawers[0];
    return true;
}

KVOSimContext ContextOf(KVOSimCSetID const& set)
{
    KVOSimContext context(set.ContextID());
    context.Open();
    return context;
}

// The sets with their collections made distinct: of dimensions over one collection the last one keeps its colour.
KVOSimArray<KVOSimCSetID> InDistinctColors(KVOSimArray<KVOSimCSetID> sets)
{
    auto const isTaken = [&](int dim) {
        for (int later = dim + 1; later < sets.Size(); ++later)
            if (sets[later].CollectionID() == sets[dim].CollectionID())
                return true;
        return false;
    };
    for (int dim = sets.Size() - 2; dim >= 0; --dim)
        while (!sets[dim].IsNull() && isTaken(dim))
            sets[dim] = sets[dim].InColor(sets[dim].CollectionID().Color() + 1);
    return sets;
}

KVOSimGrid GridOf(KVOSimArray<KVOSimCSetID> const& sets)
{
    KVOSimArray<KVOSimCollectionID> collections;
    for (KVOSimCSetID const& set : sets)
        collections.Append(set.CollectionID());
    return KVOSimGrid(collections);
}

KVOSimDistributionID CreateAt(KVOSimPosition& position, int typeIndex, KVOSimGrid const& grid)
{
    KVOSimRangeType const type(KVOSimDouble);
    return typeIndex < 0 ? position.CreateDistribution(grid, type) : position.CreateTypedDistribution(typeIndex, grid, type);
}

KVOSimDistributionID CreateTemporaryAt(KVOSimPosition& position, int typeIndex, KVOSimGrid const& grid)
{
    KVOSimContext& context = position.Context();
    KVOSimTypeID const type = typeIndex < 0 ? KVOSimTypeID(-1) : context.Schema().TypeID(typeIndex);
    return context.CreateTempDistribution(grid, KVOSimRangeType(KVOSimDouble), type);
}

// Makes the drawer of a new distribution of doubles. `chunks`: one a dimension, or none.
KVOSimDistributionID WithDrawer(KVOSimDistributionID const& id, KVOSimArray<KVOSimCSetID> const& sets, KVOSimArray<int> const& chunks)
{
    KVOSimTransfer transfer{KVOSimDistribution(id)};
    if (chunks.IsEmpty())
        transfer.SetMakeNewDrawer();
    else
        transfer.SetMakeNewDrawerChunked(chunks);
    transfer.SetWrite();
    for (int dim = 0; dim < sets.Size(); ++dim)
        transfer.SetDim(dim, sets[dim]);
    transfer.SetInitializationValue(0.0, KVOSimDouble);
    transfer.CheckView();
    transfer.InitializePersistentDrawer();
    return id;
}

// Bad arguments are refused before the distribution is there, which would stay behind empty.
void Require(bool valid, char const* doing, char const* why, int line = __builtin_LINE())
{
    if (!valid)
        KVOSimException(doing, "", why).Throw("mtx/impl/KVOSrvUtilities", line);
}

// None when all are -1; else with the sizes of the sets put in for -1.
KVOSimArray<int> ChunkSizes(KVOSimArray<KVOSimCSetID> const& sets, KVOSimArray<int> chunks)
{
    bool chunked = false;
    for (int const chunk : chunks) {
        Require(chunk > 0 || chunk == kWholeDimension, "Cannot make a distribution", "a chunk size is neither positive nor -1");
        chunked = chunked || chunk != kWholeDimension;
    }
    if (!chunked)
        return {};
    for (int dim = 0; dim < chunks.Size(); ++dim)
        if (chunks[dim] == kWholeDimension)
            chunks[dim] = KVOSimCSet(sets[dim]).Size();
    return chunks;
}

template<class T>
KVOSimArray<T> List(std::vector<T> elements)
{
    return KVOSimArray<T>(std::move(elements));
}

} // namespace

bool KVOSrvUtilities::IsDenseMatrix(KVOSimDistribution const& distribution)
{
    if (distribution.IsNull() || distribution.NumDimensions() < 1 || distribution.NumDimensions() > 2)
        return false;
    KVOSimDrawer drawer;
    return HasOneDrawer(distribution, drawer) && drawer.kind == KVOSimDenseDrawer;
}

bool KVOSrvUtilities::IsSparseMatrix(KVOSimDistribution const& distribution)
{
    if (distribution.IsNull() || distribution.NumDimensions() != 2)
        return false;
    KVOSimDrawer drawer;
    return HasOneDrawer(distribution, drawer) && (drawer.kind == KVOSimSparseDrawer || drawer.kind == KVOSimSparseSymDrawer);
}

KVOSimDistributionID KVOSrvUtilities::Create1DDistribution(KVOSimCSetID const& set, int chunk)
{
    KVOSimPosition position(ContextOf(set));
    return Create1DDistribution(position, -1, set, chunk);
}

KVOSimDistributionID KVOSrvUtilities::Create1DDistribution(KVOSimPosition& position, int typeIndex, KVOSimCSetID const& set, int chunk)
{
    KVOSimArray<KVOSimCSetID> const sets = List<KVOSimCSetID>({set});
    KVOSimArray<int> const chunks = ChunkSizes(sets, List<int>({chunk}));
    return WithDrawer(CreateAt(position, typeIndex, GridOf(sets)), sets, chunks);
}

KVOSimDistributionID KVOSrvUtilities::Create2DDistribution(KVOSimCSetID const& rows, KVOSimCSetID const& columns, int rowChunk,
                                                           int columnChunk)
{
    KVOSimPosition position(ContextOf(rows));
    return Create2DDistribution(position, -1, rows, columns, rowChunk, columnChunk);
}

KVOSimDistributionID KVOSrvUtilities::Create2DDistribution(KVOSimPosition& position, int typeIndex, KVOSimCSetID const& rows,
                                                           KVOSimCSetID const& columns, int rowChunk, int columnChunk)
{
    KVOSimArray<KVOSimCSetID> const sets = InDistinctColors(List<KVOSimCSetID>({columns, rows}));
    KVOSimArray<int> const chunks = ChunkSizes(sets, List<int>({columnChunk, rowChunk}));
    return WithDrawer(CreateAt(position, typeIndex, GridOf(sets)), sets, chunks);
}

KVOSimDistributionID KVOSrvUtilities::CreateDistribution(KVOSimPosition& position, int typeIndex, KVOSimArray<KVOSimCSetID> const& sets,
                                                         KVOSimArray<int> const& chunks, bool temporary)
{
    if (!chunks.IsEmpty() && chunks.Size() != sets.Size())
        KVOSrvMtxIllegalInput("CreateDistribution").Throw("mtx/impl/KVOSrvUtilities", __LINE__);
    KVOSimArray<KVOSimCSetID> const colored = InDistinctColors(sets);
    KVOSimArray<int> const sizes = ChunkSizes(colored, chunks);
    KVOSimGrid const grid = GridOf(colored);
    KVOSimDistributionID const id = temporary ? CreateTemporaryAt(position, typeIndex, grid) : CreateAt(position, typeIndex, grid);
    return WithDrawer(id, colored, sizes);
}

KVOSimDistributionID KVOSrvUtilities::Write1DIntDistribution(KVOSimCSetID const& set, int const* values, int count)
{
    KVOSimContext context = ContextOf(set);
    Require(count >= KVOSimCSet(set).Size(), "Cannot write a distribution", "there are fewer values than members");
    KVOSimGrid const grid = GridOf(List<KVOSimCSetID>({set}));
    KVOSimDistributionID const id = context.CreateDistribution(grid, KVOSimRangeType(KVOSimInt32), -1);
    KVOSimTransfer transfer{KVOSimDistribution(id)};
    transfer.SetMakeNewDrawer();
    transfer.SetBufferPadding(0);
    transfer.SetWrite();
    transfer.SetDim(0, set);
    transfer.CheckView();
    transfer.SetBuffer(0, values, mem_ArrayBytes(count, sizeof(int)));
    transfer.ExecWrite();
    transfer.RelinquishBuffers();
    return id;
}

KVOSimDistributionID KVOSrvUtilities::CreateSparseDistribution(KVOSimCSetID const& rows, KVOSimCSetID const& columns)
{
    KVOSimPosition position(ContextOf(rows));
    return CreateSparseDistribution(position, -1, rows, columns);
}

KVOSimDistributionID KVOSrvUtilities::CreateSparseDistribution(KVOSimPosition& position, int typeIndex, KVOSimCSetID const& rows,
                                                               KVOSimCSetID const& columns)
{
    KVOSimArray<KVOSimCSetID> const sets = InDistinctColors(List<KVOSimCSetID>({columns, rows}));
    return CreateAt(position, typeIndex, GridOf(List<KVOSimCSetID>({sets[1], sets[0]})));
}
