// The makers of distributions, and what a distribution holds.

#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimException.h"
#include "KVOSimTransfer.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <cstdint>
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
KVOSimDistributionID WithDrawer(KVOSimDistributionID const& id, KVOSimArray<KVOSimCSetID> const& sets, KVOSimArray<int> const& chunks,
                                bool valueChecksums = false)
{
    KVOSimTransfer transfer{KVOSimDistribution(id)};
    if (chunks.IsEmpty())
        transfer.SetMakeNewDrawer();
    else
        transfer.SetMakeNewDrawerChunked(chunks);
    if (valueChecksums)
        transfer.SetValueChecksums();
    transfer.SetWrite();
    for (int dim = 0; dim < sets.Size(); ++dim)
        transfer.SetDim(dim, sets[dim]);
    transfer.SetInitializationValue(0.0, KVOSimDouble);
    transfer.CheckView();
    transfer.InitializePersistentDrawer();
    return id;
}

// Bad arguments are refused before the distribution is there, which would stay behind empty.
void RequireArgument(bool valid, KVOSimContext const& context, char const* doing, char const* why, int line = __builtin_LINE())
{
    if (!valid)
        KVOSimException(doing, context.Path(), why).Throw("mtx/impl/KVOSrvUtilities", line);
}

bool IsWhole(KVOSimArray<int> const& chunks)
{
    return std::all_of(chunks.begin(), chunks.end(), [](int chunk) { return chunk == kWholeDimension; });
}

bool IsChunk(KVOSimArray<int> const& chunks)
{
    std::uint64_t bytes = sizeof(double);
    for (int const chunk : chunks)
        if (__builtin_mul_overflow(bytes, static_cast<std::uint64_t>(chunk), &bytes))
            return false;
    return bytes < std::uint64_t{1} << 32; // what the database stores in one piece
}

// With the sizes of the sets put in for -1. Chunks that are too large for the database only because they reach beyond the matrix end with
// it.
KVOSimArray<int> ChunkSizes(KVOSimContext const& context, KVOSimArray<KVOSimCSetID> const& sets, KVOSimArray<int> chunks)
{
    constexpr char const* kMaking = "Cannot make a distribution";
    KVOSimArray<int> sizes;
    for (int dim = 0; dim < chunks.Size(); ++dim) {
        RequireArgument(chunks[dim] > 0 || chunks[dim] == kWholeDimension, context, kMaking, "a chunk size is neither positive nor -1");
        sizes.Append(std::max(1, KVOSimCSet(sets[dim]).Size()));
        if (chunks[dim] == kWholeDimension)
            chunks[dim] = sizes[dim];
    }
    if (!IsChunk(chunks))
        for (int dim = 0; dim < chunks.Size(); ++dim)
            chunks[dim] = std::min(chunks[dim], sizes[dim]);
    RequireArgument(IsChunk(chunks), context, kMaking, "a chunk must stay below 4 GiB");
    return chunks;
}

// Matrices whose chunk sizes are all -1 are not chunked.
KVOSimArray<int> ChunksOrNone(KVOSimContext const& context, KVOSimArray<KVOSimCSetID> const& sets, KVOSimArray<int> const& chunks)
{
    return IsWhole(chunks) ? KVOSimArray<int>() : ChunkSizes(context, sets, chunks);
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
    KVOSimArray<int> const chunks = ChunksOrNone(position.Context(), sets, List<int>({chunk}));
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
    return Create2DDistribution(position, typeIndex, rows, columns, rowChunk, columnChunk, false);
}

KVOSimDistributionID KVOSrvUtilities::Create2DDistribution(KVOSimPosition& position, int typeIndex, KVOSimCSetID const& rows,
                                                           KVOSimCSetID const& columns, int rowChunk, int columnChunk, bool valueChecksums)
{
    KVOSimArray<KVOSimCSetID> const sets = InDistinctColors(List<KVOSimCSetID>({columns, rows}));
    KVOSimArray<int> const chunks = ChunksOrNone(position.Context(), sets, List<int>({columnChunk, rowChunk}));
    RequireArgument(!valueChecksums || !chunks.IsEmpty(), position.Context(), "Cannot create a distribution",
                    "checksums of values need chunk sizes");
    return WithDrawer(CreateAt(position, typeIndex, GridOf(sets)), sets, chunks, valueChecksums);
}

KVOSimDistributionID KVOSrvUtilities::CreateDistribution(KVOSimPosition& position, int typeIndex, KVOSimArray<KVOSimCSetID> const& sets,
                                                         KVOSimArray<int> const& chunks, bool temporary)
{
    if (!chunks.IsEmpty() && chunks.Size() != sets.Size())
        KVOSrvMtxRefusedInput("KVOSrvUtilities", "CreateDistribution", "there are not as many chunk sizes as member sets")
            .Throw("mtx/impl/KVOSrvUtilities", __LINE__);
    KVOSimArray<KVOSimCSetID> const colored = InDistinctColors(sets);
    KVOSimArray<int> const sizes = ChunkSizes(position.Context(), colored, chunks);
    KVOSimGrid const grid = GridOf(colored);
    KVOSimDistributionID const id = temporary ? CreateTemporaryAt(position, typeIndex, grid) : CreateAt(position, typeIndex, grid);
    return WithDrawer(id, colored, sizes);
}

KVOSimDistributionID KVOSrvUtilities::Write1DIntDistribution(KVOSimCSetID const& set, int const* values, int count)
{
    KVOSimContext context = ContextOf(set);
    constexpr char const* kWriting = "Cannot write a distribution";
    int const members = KVOSimCSet(set).Size();
    RequireArgument(count >= members, context, kWriting, "there are fewer values than members");
    RequireArgument(values != nullptr || members == 0, context, kWriting, "the values are null");
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
