#include "ChunkGrid.h"

#include <gtest/gtest.h>
#include <vector>

using simdb::ChunkGrid;
using simdb::ChunkPiece;
using simdb::Extents;
using simdb::Range;

namespace
{

using Sizes = std::vector<std::int64_t>;

// Every value of the range is in exactly one piece, at the place in chunk and buffer that its coordinates give.
void ExpectTiled(ChunkGrid const& grid, Range const& rows, Range const& columns)
{
    std::int64_t const width = columns.Count();
    std::vector<int> seen(static_cast<std::size_t>(rows.Count() * width));
    Range const ranges[2] = {rows, columns};
    std::int64_t last = -1;
    grid.ForEachPiece(ranges, [&](ChunkPiece const& piece) {
        EXPECT_GT(piece.chunk, last);
        last = piece.chunk;
        for (std::int64_t i = 0; i < piece.counts[0]; ++i)
            for (std::int64_t j = 0; j < piece.counts[1]; ++j) {
                std::int64_t const inChunk = piece.chunkOffset + i * grid.ChunkSizes()[1] + j,
                                   inBuffer = piece.bufferOffset + i * width + j;
                std::int64_t const row = piece.origin[0] + inChunk / grid.ChunkSizes()[1];
                std::int64_t const column = piece.origin[1] + inChunk % grid.ChunkSizes()[1];
                ASSERT_LT(inChunk, grid.ValuesPerChunk());
                ASSERT_EQ(row - rows.first, inBuffer / width);
                ASSERT_EQ(column - columns.first, inBuffer % width);
                ++seen[static_cast<std::size_t>(inBuffer)];
            }
    });
    EXPECT_EQ(seen, std::vector<int>(seen.size(), 1));
}

TEST(ChunkGrid, CutsEveryRangeOfSmallGridsIntoPiecesThatTileIt)
{
    for (std::int64_t rows = 1; rows <= 5; ++rows)
        for (std::int64_t columns = 1; columns <= 4; ++columns)
            for (std::int64_t chunkRows = 1; chunkRows <= 6; ++chunkRows)
                for (std::int64_t chunkColumns = 1; chunkColumns <= 5; ++chunkColumns) {
                    ChunkGrid const grid(Sizes{rows, columns}, Sizes{chunkRows, chunkColumns});
                    for (std::int64_t r0 = 0; r0 < rows; ++r0)
                        for (std::int64_t r1 = r0; r1 < rows; ++r1)
                            for (std::int64_t c0 = 0; c0 < columns; ++c0)
                                for (std::int64_t c1 = c0; c1 < columns; ++c1)
                                    ExpectTiled(grid, {r0, r1}, {c0, c1});
                }
}

TEST(ChunkGrid, NumbersChunksWithoutGaps)
{
    Sizes const sizes{5, 1, 9}, chunks{2, 4, 3};
    ChunkGrid const grid(sizes, chunks);
    std::vector<Range> places;
    for (std::int64_t const count : grid.ChunkCounts())
        places.push_back({0, count - 1});
    std::int64_t next = 0;
    ChunkGrid::ForEachPlace(places, [&](Extents const& at) {
        EXPECT_EQ(grid.Number(at), next);
        Extents const place = grid.Place(next++);
        EXPECT_TRUE(std::equal(at.begin(), at.begin() + 3, place.begin()));
        return true;
    });
    EXPECT_EQ(next, 3 * 1 * 3);
}

TEST(ChunkGrid, TakesAContiguousDrawerForOneChunk)
{
    Sizes const sizes{5, 3};
    ChunkGrid const grid(sizes, {});
    EXPECT_EQ(grid.ValuesPerChunk(), 15);
    ExpectTiled(grid, {1, 3}, {0, 2});
}

TEST(ChunkGrid, CutsSizesNearTheLargestNumber)
{
    std::int64_t const huge = INT64_MAX - 1;
    ChunkGrid const grid(Sizes{huge}, Sizes{std::int64_t(1) << 31});
    Range const end{huge - 3, huge - 1};
    int pieces = 0;
    grid.ForEachPiece({&end, 1}, [&](ChunkPiece const& piece) {
        ++pieces;
        EXPECT_EQ(piece.counts[0], 3);
        EXPECT_EQ(piece.origin[0] + piece.chunkOffset, end.first);
    });
    EXPECT_EQ(pieces, 1);
}

} // namespace
