#include "HeldWrites.h"
#include "SimJournal.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace
{

using simdb::FileMark;
using simdb::HeldWrites;
using simdb::Journal;

// What comes back, and what is torn, the tests of crashes show. The checksum is right here: the addresses, outside of any file, are not.
TEST(SimJournal, RefusesPlacesOutsideOfAnyFile)
{
    std::vector<std::byte> const bytes(5);
    for (std::uint64_t const address : {std::uint64_t{4096}, UINT64_MAX, std::uint64_t{INT64_MAX}, std::uint64_t{INT64_MAX} - 4}) {
        Journal const journal(FileMark::New(FileMark::kOffset), 0, {{address, bytes}});
        EXPECT_EQ(Journal::Parse({journal.Image().begin(), journal.Image().end()}).has_value(), address == 4096) << address;
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
