#include "KVOSrvBlockCut.h"

#include "DensePieces.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <vector>

namespace
{

// Row by row: each lies in the block of the chunk that holds its place in the store.
void ExpectBlocksAreChunks(KVOSrvBlockCut const& cut)
{
    std::vector<int> rows; // of each block
    for (int r = 0; r < cut.size; ++r) {
        int const block = (cut.offset + r) / cut.perBlock - cut.offset / cut.perBlock;
        ASSERT_EQ(cut.BlockContaining(r), block);
        if (block == static_cast<int>(rows.size())) {
            ASSERT_EQ(cut.FirstInBlock(block), r);
            rows.push_back(0);
        }
        ++rows[static_cast<std::size_t>(block)];
    }
    ASSERT_EQ(cut.blocks, static_cast<int>(rows.size()));
    ASSERT_EQ(cut.MaxNumberInBlock(), *std::ranges::max_element(rows));
    for (int b0 = 0; b0 < cut.blocks; ++b0) {
        ASSERT_EQ(cut.NumberInBlock(b0), rows[static_cast<std::size_t>(b0)]);
        for (int b1 = b0; b1 < cut.blocks; ++b1)
            ASSERT_EQ(cut.NumberInBlocks(b0, b1), std::accumulate(rows.begin() + b0, rows.begin() + b1 + 1, 0));
    }
}

template<class Run>
void ForAllViews(KVOSrvBlockCut const& cut, Run const& run)
{
    for (int first = 0; first < cut.size; ++first)
        for (int last = first; last < cut.size; ++last)
            run(cut.View(first, last), first, last);
}

} // namespace

TEST(KVOSrvBlockCut, BlocksAreTheChunksInEveryViewOfEveryView)
{
    for (int size = 1; size <= 11; ++size)
        for (int perBlock = 0; perBlock <= size + 2; ++perBlock) {
            SCOPED_TRACE(testing::Message() << size << " in blocks of " << perBlock);
            KVOSrvBlockCut const whole = KVOSrvBlockCut::Whole(size, perBlock);
            ForAllViews(whole, [&](KVOSrvBlockCut const& view, int, int) {
                ForAllViews(view, [&](KVOSrvBlockCut const& inner, int first, int last) {
                    ASSERT_EQ(inner.size, last - first + 1);
                    ASSERT_EQ(inner.offset, view.offset + first);
                    ASSERT_EQ(inner, inner.Stored());
                    ExpectBlocksAreChunks(inner);
                });
            });
            ASSERT_EQ(whole, whole.View(0, size - 1));
        }
}

TEST(KVOSrvBlockCut, AnswersNumbersOutOfRange)
{
    KVOSrvBlockCut const cut = KVOSrvBlockCut::Whole(10, 4);
    EXPECT_TRUE(cut.NumberInBlock(-1) == 0 && cut.NumberInBlock(8) == 2);
    EXPECT_TRUE(cut.NumberInBlocks(-1, 1) == 0 && cut.NumberInBlocks(2, 1) == 0 && cut.NumberInBlocks(1, 9) == 4 + 2 + 7 * 4);
    EXPECT_TRUE(cut.FirstInBlock(-3) == 0 && cut.BlockContaining(-3) == 0 && cut.BlockContaining(100) == 2);
    EXPECT_TRUE(KVOSrvBlockCut::Whole(0, 4).blocks == 0 && KVOSrvBlockCut().MaxNumberInBlock() == 0);
    for (int const extreme : {INT32_MIN, INT32_MAX}) { // no meaningful answer, but one
        cut.FirstInBlock(extreme);
        cut.BlockContaining(extreme);
        cut.NumberInBlock(extreme);
        cut.NumberInBlocks(0, extreme);
        cut.NumberInBlocks(extreme, 0);
    }
}

TEST(KVOSrvBlockCut, AppendingKeepsTheFirstBlock)
{
    for (int size = 0; size <= 9; ++size)
        for (int perBlock = 0; perBlock <= 6; ++perBlock)
            for (int count = 1; count <= 9; ++count) {
                KVOSrvBlockCut cut = KVOSrvBlockCut::Whole(size, perBlock);
                int const inFirst = cut.inFirst, regular = cut.perBlock > 0 ? cut.perBlock : count;
                cut.Append(count);

                KVOSrvBlockCut const whole = KVOSrvBlockCut::Whole(size + count, regular);
                ASSERT_EQ(cut.Stored(), whole);
                ASSERT_EQ(cut.blocks, whole.blocks);
                ASSERT_EQ(cut.inLast, whole.inLast);
                ASSERT_EQ(cut.inFirst, size == 0 ? whole.inFirst : inFirst);
            }
}

TEST(DensePieces, PiecesCoverEveryElementOnceWithinBlocksAndLimits)
{
    KVOSrvBlockCut const rows = KVOSrvBlockCut::Whole(23, 7).View(3, 21), columns = KVOSrvBlockCut::Whole(17, 5).View(1, 15);
    auto const check = [&](DensePieces::Limit const& limit, int mostEntries) {
        std::vector<int> visits(static_cast<std::size_t>(rows.size * columns.size));
        DensePieces::ForEachPiece(rows, columns, limit, [&](DensePieces::Window const& w) {
            EXPECT_LE(w.Rows(), limit.rows);
            EXPECT_LE(w.Columns(), limit.columns);
            EXPECT_LE(w.Entries(), mostEntries);
            EXPECT_EQ(rows.BlockContaining(w.r0), rows.BlockContaining(w.r1));
            EXPECT_EQ(columns.BlockContaining(w.c0), columns.BlockContaining(w.c1));
            for (int j = w.c0; j <= w.c1; ++j)
                for (int i = w.r0; i <= w.r1; ++i)
                    ++visits[static_cast<std::size_t>(i + j * rows.size)];
        });
        ASSERT_EQ(visits, std::vector<int>(visits.size(), 1));
    };

    for (int side = 1; side <= 8; ++side)
        check({side, 9 - side}, side * (9 - side));
    for (int entries = 1; entries <= 40; ++entries)
        check(DensePieces::LimitEntries(rows, entries), entries);
}
