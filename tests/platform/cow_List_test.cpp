#include "cow_List.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace
{

std::vector<int> ByIndex(cow_List<int> const& list)
{
    std::vector<int> values;
    for (std::int64_t k = 0; k < list.Size(); ++k)
        values.push_back(list[k]);
    return values;
}

std::vector<int> ByBlocks(cow_List<int> const& list)
{
    std::vector<int> values;
    for (int block = 0; block < list.BlockCount(); ++block) {
        EXPECT_FALSE(list.Block(block).empty());
        values.insert(values.end(), list.Block(block).begin(), list.Block(block).end());
    }
    return values;
}

void ExpectSame(cow_List<int> const& list, std::vector<int> const& expected)
{
    ASSERT_EQ(ByIndex(list), expected);
    ASSERT_EQ(ByBlocks(list), expected);
}

std::pair<cow_List<int>, std::vector<int>> Numbers(int size)
{
    std::pair<cow_List<int>, std::vector<int>> numbers;
    for (int k = 0; k < size; ++k) {
        numbers.first.Append(3 * k);
        numbers.second.push_back(3 * k);
    }
    return numbers;
}

constexpr int kSizes[] = {-1, 0, 1, 15, 16, 17, 47, 48, 49, 111, 112, 113}; // around the ends of the first three blocks

// Truncated alone and while shared, then grown again: the list follows a vector, and what shares its content does not see it.
TEST(cow_List, TruncatesToEverySizeAndGrowsAgain)
{
    for (int const from : kSizes)
        for (int const to : kSizes)
            for (bool const shared : {false, true}) {
                SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to) + (shared ? ", shared" : ""));
                auto [list, expected] = Numbers(from);
                cow_List<int> const other = shared ? list : cow_List<int>();
                std::vector<int> const before = expected;

                list.Truncate(to);
                expected.resize(static_cast<std::size_t>(std::clamp(to, 0, std::max(from, 0))));
                ExpectSame(list, expected);
                for (int k = 0; k < 50; ++k) {
                    list.Append(-k);
                    expected.push_back(-k);
                }

                ExpectSame(list, expected);
                ExpectSame(other, shared ? before : std::vector<int>());
            }
}

TEST(cow_List, FollowsVectorsThroughRandomChanges)
{
    std::mt19937 random(3);
    cow_List<int> lists[3];
    std::vector<int> expected[3];
    for (int step = 0; step < 4000; ++step) {
        std::size_t const a = random() % 3, b = random() % 3;
        switch (random() % 16) {
        case 0:
            lists[a] = lists[b];
            expected[a] = std::vector<int>(expected[b]);
            break;
        case 1:
            if (a != b) {
                lists[a] = std::move(lists[b]);
                expected[a] = std::exchange(expected[b], {});
            }
            break;
        case 2: {
            std::size_t const size = random() % (expected[a].size() + 2);
            lists[a].Truncate(static_cast<std::int64_t>(size));
            expected[a].resize(std::min(size, expected[a].size()));
            break;
        }
        case 3:
            if (!expected[a].empty()) { // an element of the list itself, which a clone or a new block must not lose
                lists[a].Append(lists[a][0]);
                expected[a].push_back(expected[a][0]);
            }
            break;
        default:
            lists[a].Append(step);
            expected[a].push_back(step);
        }
        if (step % 8 == 0)
            for (int k = 0; k < 3; ++k)
                ExpectSame(lists[k], expected[k]);
    }
}

TEST(cow_List, IsUnchangedWhenMemoryEnds)
{
    for (int const size : {0, 15, 16, 48})
        for (bool const shared : {false, true})
            for (int successes = 0;; ++successes) {
                SCOPED_TRACE(std::to_string(size) + (shared ? " shared, " : ", ") + std::to_string(successes));
                auto [list, expected] = Numbers(size);
                cow_List<int> const other = shared ? list : cow_List<int>();
                bool failed = false;
                mem_FailAllocationAfter(successes);
                try {
                    list.Append(7);
                    expected.push_back(7);
                } catch (mem_OutOfMemory const&) {
                    failed = true;
                }
                mem_FailAllocationAfter(-1);
                ExpectSame(list, expected);
                if (!failed)
                    break;
                ASSERT_LT(successes, 10);
            }
}

TEST(cow_List, DrainEmptiesOneSharerAndLeavesTheOther)
{
    for (int const size : {0, 1, 16, 17, 1000})
        for (bool const shared : {false, true}) {
            cow_List<int> list;
            std::vector<int> expected, drained;
            for (int k = 0; k < size; ++k) {
                list.Append(k);
                expected.push_back(k);
            }
            cow_List<int> const other = shared ? list : cow_List<int>();
            list.Drain([&](std::span<int const> piece) { drained.insert(drained.end(), piece.begin(), piece.end()); });
            EXPECT_EQ(drained, expected);
            ExpectSame(list, {});
            ExpectSame(other, shared ? expected : std::vector<int>());
            list.Append(5);
            ExpectSame(list, {5});
        }
}

} // namespace
