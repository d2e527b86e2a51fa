#include "Residency.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <set>

namespace
{

using simdb::Residency;

constexpr std::uint64_t kRegion = Residency::kRegion;

/// What is resident, told from outside.
struct Regions : Residency::Memory {
    std::set<std::uint64_t> resident;
    void Drop(std::uint64_t region) noexcept override { EXPECT_EQ(resident.erase(region), 1u) << "it was not there"; }
    void DropAll() noexcept override { resident.clear(); }
};

// All uses of a file in any order: what stays is what was told, and no more than may.
TEST(Residency, KeepsToItsBudgetAndKnowsWhatStays)
{
    constexpr std::uint64_t kRegions = 200;
    std::mt19937 random(3);
    for (std::uint64_t const budget : {4 * kRegion, 50 * kRegion + 7, 300 * kRegion}) {
        Regions memory;
        Residency residency(memory);
        ASSERT_TRUE(residency.Know(kRegions + 1));
        for (std::uint64_t region = 0; region < kRegions; ++region) {
            memory.resident.insert(region);
            residency.LetPass(region, region + 1, budget);
        }
        EXPECT_EQ(memory.resident.size(), std::min(Residency::kPassing, budget) / kRegion) << "what is only walked through";
        EXPECT_EQ(*memory.resident.rbegin() - *memory.resident.begin() + 1, memory.resident.size()) << "the oldest goes first";
        for (int use = 0; use < 5000; ++use) {
            std::uint64_t const first = random() % kRegions, end = std::min<std::uint64_t>(kRegions, first + 1 + random() % 4);
            unsigned const kind = random() % 8;
            if (kind == 0) {
                residency.Touch(first, end, budget);
            } else if (kind < 5 && end - first < std::min<std::uint64_t>(4, budget / kRegion)) {
                residency.LetPass(first, end, budget);
            } else {
                if (residency.HasRoom(first, budget)) {
                    residency.Settle(first, kind == 6);
                    memory.resident.insert(first);
                }
                residency.MarkUsed(end - 1);
                EXPECT_NE(residency.Of(end - 1), Residency::State::None);
            }
            if (kind < 5)
                for (std::uint64_t region = first; region < end; ++region)
                    if (residency.Of(region) >= Residency::State::Touched)
                        memory.resident.insert(region);
            EXPECT_LE(memory.resident.size() * kRegion, std::max(budget, (end - first) * kRegion));
            for (std::uint64_t region = 0; region < kRegions; ++region)
                EXPECT_EQ(residency.Of(region) >= Residency::State::Touched, memory.resident.contains(region)) << region;
            if (HasFailure())
                return;
        }
        int refusals = 0;
        while (refusals < 2000 && !residency.HasRoom(kRegions, budget))
            ++refusals;
        EXPECT_LT(refusals, 2000) << "in the end all give way";
    }
}

} // namespace
