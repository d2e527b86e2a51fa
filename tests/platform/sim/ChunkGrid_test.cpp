#include "ChunkGrid.h"
#include "StridedCopy.h"

#include <gtest/gtest.h>
#include <vector>

using simdb::ChunkGrid;
using simdb::ChunkPiece;
using simdb::Range;
using simdb::StridedRuns;

namespace
{

using Sizes = std::vector<std::int64_t>;

// Only what the tests of the drawers, which see every value arrive, do not show.

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

TEST(StridedCopy, JoinsWhatIsContiguous)
{
    StridedRuns const all(Sizes{4, 5, 6}, Sizes{9, 5, 6}, Sizes{4, 5, 6}, 8);
    EXPECT_TRUE(all.IsOneRun());
    EXPECT_EQ(all.runBytes, 4u * 5u * 6u * 8u);
    StridedRuns const rows(Sizes{4, 5, 6}, Sizes{9, 5, 7}, Sizes{4, 5, 8}, 8); // the two outer dimensions become one loop
    EXPECT_EQ(rows.depth, 1u);
    EXPECT_EQ(rows.loops[0].count, 20);
    EXPECT_EQ(rows.Span(0), (19 * 7 + 6) * 8);
}

// Behind the run lies nothing that may be read.
TEST(StridedCopy, RepeatsARun)
{
    StridedRuns const runs = StridedRuns(Sizes{3, 2}, Sizes{3, 4}, Sizes{3, 3}, 4).Repeating(0);
    std::int32_t const source[2] = {1, 2};
    std::int32_t target[9] = {};
    CopyToSecond(runs, reinterpret_cast<std::byte const*>(source), reinterpret_cast<std::byte*>(target));
    EXPECT_EQ(std::vector<std::int32_t>(target, target + 9), (std::vector<std::int32_t>{1, 2, 0, 1, 2, 0, 1, 2, 0}));
}

} // namespace
