#include "DrawerOracle.h"
#include "StridedCopy.h"

#include <gtest/gtest.h>

using simdb::Range;
using simdb::StridedRuns;

namespace
{

using Sizes = std::vector<std::int64_t>;

TEST(StridedCopy, MovesAPartBetweenArraysOfDifferentExtents)
{
    for (std::uint64_t seed = 0; seed < 400; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937_64 random(seed);
        Sizes counts, extents0, extents1;
        for (std::int64_t d = RandomUpTo(random, 1, 5); d > 0; --d) {
            counts.push_back(RandomUpTo(random, 1, 5));
            extents0.push_back(counts.back() + RandomUpTo(random, 0, 1));
            extents1.push_back(counts.back() + RandomUpTo(random, 0, 1) * 2);
        }
        std::size_t const valueBytes = std::size_t(1) << (RandomUpTo(random, 0, 2) * 3 / 2); // 1, 2 or 8
        std::vector<std::byte> const initial(valueBytes, std::byte{0xEE});
        DrawerOracle first(extents0, initial), second(extents1, initial);
        std::vector<Range> part;
        for (std::int64_t const count : counts)
            part.push_back({0, count - 1});
        std::vector<std::byte> const values = RandomBytes(random, first.Read(part).size());
        first.Write(part, values);
        StridedRuns const runs(counts, extents0, extents1, valueBytes);

        std::vector<std::byte> copy = second.Values();
        CopyToSecond(runs, first.Values().data(), copy.data());
        second.Write(part, values);
        EXPECT_TRUE(copy == second.Values()); // what lies around the part included

        copy.assign(first.Values().size(), std::byte{0xEE});
        CopyToFirst(runs, copy.data(), second.Values().data());
        EXPECT_TRUE(copy == first.Values());
        EXPECT_EQ(static_cast<std::size_t>(runs.NumRuns()) * runs.runBytes, values.size());
    }
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

TEST(StridedCopy, RepeatsARun)
{
    StridedRuns const runs = StridedRuns(Sizes{3, 2}, Sizes{3, 4}, Sizes{3, 3}, 4).Repeating(0);
    std::int32_t const source[2] = {1, 2};
    std::int32_t target[9] = {};
    CopyToSecond(runs, reinterpret_cast<std::byte const*>(source), reinterpret_cast<std::byte*>(target));
    EXPECT_EQ(std::vector<std::int32_t>(target, target + 9), (std::vector<std::int32_t>{1, 2, 0, 1, 2, 0, 1, 2, 0}));
}

} // namespace
