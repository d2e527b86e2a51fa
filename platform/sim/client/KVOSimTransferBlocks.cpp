// Blocks that other processes are to write.

#include "KVOSimTransfer.h"

#include "ChunkGrid.h"
#include "Context.h"
#include "Distribution.h"
#include "KVOSimTypeKey.h"
#include "Session.h"
#include "SimJournal.h"

namespace
{

constexpr char const* kAllocating = "Cannot give blocks their places";
constexpr char const* kTelling = "Cannot tell the places of blocks";

} // namespace

simdb::DenseDrawer& KVOSimTransfer::BlocksOf(simdb::Drawer& drawer, char const* doing) const
{
    if (drawer.kind != KVOSimDenseDrawer)
        Refuse(doing, "a sparse drawer has none");
    simdb::DenseDrawer& dense = m_distribution->Dense(drawer);
    if (dense.IsMovedByHdf5())
        Refuse(doing, "HDF5 moves the values, through a filter or because the variable KVO_SIM_DATA_PATH says so");
    return dense;
}

void KVOSimTransfer::AllocateBlocks()
{
    RequireWritable(kAllocating);
    BlocksOf(ViewedDrawer(kAllocating), kAllocating).Allocate();
}

KVOSimBlockPlaces KVOSimTransfer::BlockPlaces()
{
    RequireWritable(kTelling);
    simdb::Drawer& drawer = ViewedDrawer(kTelling);
    simdb::DenseDrawer& dense = BlocksOf(drawer, kTelling);
    simdb::Session const& session = m_distribution->RequireOpen(kTelling).OpenSession(kTelling);
    std::size_t const rank = m_dims.size();
    if (session.IsScratch() || m_distribution->IsTemporary())
        Refuse(kTelling, "the matrix goes with this process");
    if (rank > 2 || m_distribution->RangeType() != KVOSimDouble)
        Refuse(kTelling, "it is no matrix of doubles in one or two dimensions");
    if (drawer.fate.stored)
        Refuse(kTelling, "a commit has kept the matrix: what is written to it could not be taken back");
    if (dense.Sums() != nullptr)
        Refuse(kTelling, "the matrix has checksums of its values, which other processes cannot keep");

    // A distribution in one dimension is a column.
    simdb::ChunkGrid const grid(dense.Shape().sizes, dense.Shape().chunkSizes);
    auto const size = [&](std::span<std::int64_t const> of, bool ofRows) {
        return ofRows ? static_cast<std::int32_t>(of[rank - 1]) : rank == 1 ? 1 : static_cast<std::int32_t>(of[0]);
    };
    KVOSimBlockPlaces places;
    places.rows = size(grid.Sizes(), true);
    places.columns = size(grid.Sizes(), false);
    places.rowsPerBlock = size(grid.ChunkSizes(), true);
    places.columnsPerBlock = size(grid.ChunkSizes(), false);
    std::vector<KVOSimBlockPlace> blocks;
    for (std::int64_t column = 0; column < size(grid.ChunkCounts(), false); ++column)
        for (std::int64_t row = 0; row < size(grid.ChunkCounts(), true); ++row) {
            std::array<std::int64_t, 2> const at{column, row};
            auto const address = dense.ChunkAddress(std::span(at).last(rank));
            if (!address)
                Refuse(kTelling, "a block has none; allocate the blocks first");
            KVOSimBlockPlace& block = blocks.emplace_back();
            block.offset = *address;
            block.leadingDimension = places.rowsPerBlock;
            block.firstRow = static_cast<std::int32_t>(row * places.rowsPerBlock);
            block.firstColumn = static_cast<std::int32_t>(column * places.columnsPerBlock);
            block.rows = std::min(places.rowsPerBlock, places.rows - block.firstRow);
            block.columns = std::min(places.columnsPerBlock, places.columns - block.firstColumn);
        }
    places.blocks = KVOSimArray<KVOSimBlockPlace>(std::move(blocks));
    simdb::FileMark const mark = session.GetFile()->MarkForWriters();
    places.mark = mark.bytes;
    places.markOffset = mark.offset;
    return places;
}
