#include "HeldWrites.h"
#include "SimJournal.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>
#include <random>

namespace
{

using simdb::FileMark;
using simdb::HeldWrites;
using simdb::Journal;

TEST(SimJournal, ComesBackFromItsImageAndFromNothingElse)
{
    std::vector<std::byte> const first(48, std::byte{1}), second(5, std::byte{2});
    FileMark const mark = FileMark::New(FileMark::kOffset);
    Journal const journal(mark, 4096, {{0, first}, {1000, second}, {4096, {}}});
    std::vector<std::byte> const image(journal.Image().begin(), journal.Image().end());
    auto longer = image;
    longer.resize(image.size() + 100, std::byte{7}); // the end of an older one
    for (auto const& readable : {image, longer}) {
        auto const parsed = Journal::Parse(readable);

        ASSERT_TRUE(parsed.has_value());
        EXPECT_EQ(parsed->Before(), mark);
        EXPECT_EQ(parsed->After(), mark.AfterCommit());
        EXPECT_EQ(parsed->FileBytes(), 4096u);
        ASSERT_EQ(parsed->Pieces().size(), 3u);
        EXPECT_EQ(parsed->Pieces()[1].address, 1000u);
        EXPECT_TRUE(std::ranges::equal(parsed->Pieces()[0].bytes, first));
        EXPECT_TRUE(std::ranges::equal(parsed->Pieces()[1].bytes, second));
        EXPECT_TRUE(parsed->Pieces()[2].bytes.empty());
    }
    for (std::size_t at = 0; at < image.size(); ++at) {
        EXPECT_FALSE(Journal::Parse({image.begin(), image.begin() + static_cast<std::ptrdiff_t>(at)})) << at;
        for (int bit = 0; bit < 8; ++bit) {
            auto damaged = image;
            damaged[at] ^= std::byte(1 << bit);
            EXPECT_FALSE(Journal::Parse(std::move(damaged))) << at;
        }
    }
    // The checksum is right here: the addresses, outside of any file, are not.
    for (std::uint64_t const address : {UINT64_MAX, std::uint64_t{INT64_MAX}, std::uint64_t{INT64_MAX} - 4}) {
        Journal const outside(mark, 0, {{address, second}});
        EXPECT_FALSE(Journal::Parse({outside.Image().begin(), outside.Image().end()})) << address;
    }
}

// Against a map of single bytes.
TEST(HeldWrites, HoldsTheLastBytesPut)
{
    constexpr std::uint64_t kBytes = 200;
    std::mt19937_64 random(7);
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        HeldWrites held;
        std::map<std::uint64_t, std::byte> expected;
        for (int put = 0; put < 20; ++put) {
            std::uint64_t const address = random() % kBytes, bytes = random() % 30;
            std::vector<std::byte> data(bytes);
            for (std::uint64_t i = 0; i < bytes; ++i)
                expected[address + i] = data[i] = static_cast<std::byte>(random());
            held.Put(address, data.data(), bytes);
        }

        std::uint64_t end = 0;
        for (auto const& [address, bytes] : held.All()) {
            EXPECT_GE(address, end) << "pieces overlap";
            end = address + bytes.size();
        }
        EXPECT_EQ(held.End(), expected.empty() ? 0 : expected.rbegin()->first + 1);
        std::uint64_t const from = random() % kBytes, count = random() % 60;
        constexpr std::byte kBelow{0x5a};
        std::vector<std::byte> seen(count, kBelow);
        held.Overlay(from, seen.data(), count);
        bool covered = true;
        for (std::uint64_t i = 0; i < count; ++i) {
            auto const at = expected.find(from + i);
            covered = covered && at != expected.end();
            EXPECT_EQ(seen[i], at == expected.end() ? kBelow : at->second);
        }
        EXPECT_EQ(held.Covers(from, count), covered);
    }
}

} // namespace
