#include "KVOSrvBlockCut.h"

#include "DensePieces.h"

#include <gtest/gtest.h>
#include <vector>

namespace
{

// The blocks follow each other without gaps and cover everything, and the queries agree about where they are.
void ExpectTiled(KVOSrvBlockCut const& cut)
{
    int next = 0, largest = 0;
    for (int b = 0; b < cut.blocks; ++b) {
        int const count = cut.NumberInBlock(b);
        ASSERT_GT(count, 0);
        ASSERT_EQ(cut.FirstInBlock(b), next);
        ASSERT_EQ(cut.BlockContaining(next), b);
        next += count;
        ASSERT_EQ(cut.BlockContaining(next - 1), b);
        ASSERT_EQ(cut.NumberInBlocks(0, b), next);
        largest = std::max(largest, count);
    }
    ASSERT_EQ(next, cut.size);
    ASSERT_EQ(cut.MaxNumberInBlock(), largest);
    for (int b0 = 0; b0 < cut.blocks; ++b0)
        for (int b1 = b0; b1 < cut.blocks; ++b1)
            ASSERT_EQ(cut.NumberInBlocks(b0, b1), cut.FirstInBlock(b1) + cut.NumberInBlock(b1) - cut.FirstInBlock(b0));
}

void ExpectBlocksAreChunks(KVOSrvBlockCut const& cut)
{
    for (int b = 0; b < cut.blocks; ++b) {
        int const first = cut.offset + cut.FirstInBlock(b), last = first + cut.NumberInBlock(b) - 1;
        ASSERT_EQ(first / cut.perBlock, cut.offset / cut.perBlock + b);
        ASSERT_EQ(last / cut.perBlock, first / cut.perBlock);
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

TEST(KVOSrvBlockCut, BlocksTileEveryViewOfEveryView)
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
                    ExpectTiled(inner);
                    ExpectBlocksAreChunks(inner);
                });
            });
            ASSERT_EQ(whole, whole.View(0, size - 1));
        }
}

TEST(KVOSrvBlockCut, AnswersAsDocumented)
{
    KVOSrvBlockCut const cut = KVOSrvBlockCut::Whole(10, 4);
    EXPECT_EQ(cut.inLast, 2);
    EXPECT_EQ(cut.NumberInBlock(-1), 0);
    EXPECT_EQ(cut.NumberInBlock(8), 2);
    EXPECT_EQ(cut.NumberInBlocks(-1, 1), 0);
    EXPECT_EQ(cut.NumberInBlocks(2, 1), 0);
    EXPECT_EQ(cut.NumberInBlocks(1, 9), 4 + 2 + 7 * 4);
    EXPECT_EQ(cut.FirstInBlock(-3), 0);
    EXPECT_EQ(cut.BlockContaining(-3), 0);
    EXPECT_EQ(cut.BlockContaining(100), 2);
    // Numbers out of all bounds have no meaningful answer, but an answer.
    for (int const extreme : {INT32_MIN, INT32_MAX}) {
        cut.FirstInBlock(extreme);
        cut.BlockContaining(extreme);
        cut.NumberInBlock(extreme);
        cut.NumberInBlocks(0, extreme);
        cut.NumberInBlocks(extreme, 0);
    }
    EXPECT_EQ(KVOSrvBlockCut::Whole(0, 4).blocks, 0);
    EXPECT_EQ(KVOSrvBlockCut().MaxNumberInBlock(), 0);
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
        for (int const count : visits)
            ASSERT_EQ(count, 1);
    };

    for (int side = 1; side <= 8; ++side)
        check({side, 9 - side}, side * (9 - side));
    for (int entries = 1; entries <= 40; ++entries)
        check(DensePieces::LimitEntries(rows, entries), entries);
}
