#include "Crc32c.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

using simdb::Crc32cWay;

// Products of 256 bytes at a time, the instruction's streams of 2048 bytes, their ends and what is left over at any alignment, sums that
// go on where another ended, and copies, which touch nothing beside theirs.
TEST(Crc32c, IsTheSameByEveryWay)
{
    EXPECT_EQ(simdb::Crc32c("123456789", 9), 0xe3069283u);
    EXPECT_EQ(simdb::Crc32c("123456789", 9, 0, Crc32cWay::Tables), 0xe3069283u);
    std::mt19937 random(1);
    std::vector<unsigned char> bytes(5 * 12288 + 200);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    std::vector<std::size_t> lengths{0, 1, 7, 8, 9, 1023, 1024, 1025, 6143, 6144, 6145, 12287, 12288, 12289, 24576, 24583, 61440, 61533};
    for (int round = 0; round < 2000; ++round)
        lengths.push_back(random() % (round % 2 == 0 ? 1500 : 40000));
    std::vector<unsigned char> copy(bytes.size());
    for (std::size_t const length : lengths) {
        std::size_t const start = random() % 60, first = length / 3, target = 1 + random() % 70;
        SCOPED_TRACE(std::to_string(length) + " bytes from " + std::to_string(start) + " to " + std::to_string(target));
        unsigned char const* const from = bytes.data() + start;
        std::uint32_t const before = static_cast<std::uint32_t>(random());
        std::uint32_t const expected = simdb::Crc32c(from, length, before, Crc32cWay::Tables);
        ASSERT_EQ(simdb::Crc32c(from + first, length - first, simdb::Crc32c(from, first, before)), expected);
        for (Crc32cWay const way : {Crc32cWay::Products, Crc32cWay::Instruction, Crc32cWay::Tables}) {
            ASSERT_EQ(simdb::Crc32c(from, length, before, way), expected);
            for (auto const sumAndCopy : {simdb::Crc32cCopy, simdb::Crc32cCopyPastCache}) {
                std::fill(copy.begin(), copy.end(), 0xa5);
                unsigned char* const to = copy.data() + target;
                ASSERT_EQ(sumAndCopy(to, from, length, before, way), expected);
                ASSERT_TRUE(std::equal(from, from + length, to) && to[-1] == 0xa5 && to[length] == 0xa5);
            }
        }
    }
}
