#include "Crc32c.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

// Products of 256 bytes at a time, the instruction's streams of 4096 bytes, their ends and what is left over at any alignment, and sums
// that go on where another ended.
TEST(Crc32c, IsTheSameByEveryWay)
{
    EXPECT_EQ(simdb::Crc32c("123456789", 9), 0xe3069283u);
    EXPECT_EQ(simdb::Crc32cByTables("123456789", 9), 0xe3069283u);
    std::mt19937 random(1);
    std::vector<unsigned char> bytes(5 * 12288 + 100);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    for (std::size_t const length : {0, 1, 7, 8, 9, 4095, 12287, 12288, 12289, 24576, 24583, 61440, 61533}) {
        SCOPED_TRACE(length);
        std::uint32_t const expected = simdb::Crc32cByTables(bytes.data() + 3, length, 77);
        EXPECT_EQ(simdb::Crc32c(bytes.data() + 3, length, 77), expected);
        std::size_t const first = length / 3;
        EXPECT_EQ(simdb::Crc32c(bytes.data() + 3 + first, length - first, simdb::Crc32c(bytes.data() + 3, first, 77)), expected);
    }
    for (int round = 0; round < 2000; ++round) {
        std::size_t const start = random() % 80, length = random() % (round % 2 == 0 ? 1500 : 40000);
        std::uint32_t const before = static_cast<std::uint32_t>(random());
        std::uint32_t const expected = simdb::Crc32cByTables(bytes.data() + start, length, before);
        ASSERT_EQ(simdb::Crc32c(bytes.data() + start, length, before), expected) << length << " bytes from " << start;
        ASSERT_EQ(simdb::Crc32cByInstruction(bytes.data() + start, length, before), expected) << length << " bytes from " << start;
    }
}
