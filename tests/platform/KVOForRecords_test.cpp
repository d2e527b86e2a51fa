#include "KVOForRecords.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <sys/stat.h>

namespace
{

constexpr int kUnit = 7;

// A record split into sub-records of at most `longest` bytes.
std::string Record(std::string const& items, std::size_t longest = 1000)
{
    std::string bytes;
    std::size_t begin = 0;
    do {
        std::string const part = items.substr(begin, longest);
        bool const first = begin == 0;
        begin += part.size();
        auto const length = static_cast<std::int32_t>(part.size());
        bytes += Bytes(begin < items.size() ? -length : length) + part + Bytes(first ? length : -length);
    } while (begin < items.size());
    return bytes;
}

class KVOForRecords : public testing::Test
{
protected:
    ~KVOForRecords() override { for_close(kUnit); }

    KVOForStatus Open(std::string const& bytes)
    {
        WriteFile(m_path, bytes);
        return for_open(kUnit, m_path.c_str());
    }

    TemporaryFolder m_folder;
    std::string const m_path = m_folder / "records";
};

// Pieces that end before, at and after the seams of sub-records, some read, some skipped, some left to the next record; records on both
// sides of the reader's buffer.
TEST_F(KVOForRecords, ReadsAcrossSubRecords)
{
    std::mt19937 random(3);
    for (std::size_t const longest : {1u, 3u, 8u, 500u, 70000u, 400000u}) {
        std::string file;
        std::vector<std::string> records;
        for (std::size_t const length : {0u, 1u, 7u, 8u, 9u, 499u, 501u, 65536u, 200001u}) {
            std::string items(length, ' ');
            std::ranges::generate(items, [&] { return static_cast<char>(random()); });
            records.push_back(items);
            file += Record(items, longest);
        }
        for (int round = 0; round < 5; ++round) {
            SCOPED_TRACE("sub-records of " + std::to_string(longest) + ", round " + std::to_string(round));
            ASSERT_EQ(Open(file), KVOForOk);
            for (std::string const& items : records) {
                ASSERT_EQ(for_read_seq(kUnit), KVOForOk);
                std::size_t begin = 0;
                while (begin < items.size()) {
                    std::size_t const length = std::min<std::size_t>(items.size() - begin, 1 + random() % (items.size() / 3 + 1));
                    std::string part(length, '?');
                    bool const skip = random() % 4 == 0;
                    ASSERT_EQ(for_read_seq_xmit(kUnit, skip ? nullptr : part.data(), static_cast<std::int64_t>(length), 1), KVOForOk);
                    ASSERT_TRUE(skip || part == items.substr(begin, length));
                    begin += length;
                    if (random() % 32 == 0)
                        break;
                }
                char item;
                ASSERT_TRUE(begin < items.size() || for_read_seq_xmit(kUnit, &item, 1, 1) == KVOForEndOfRecord);
            }
            EXPECT_EQ(for_read_seq(kUnit), KVOForEndOfFile);
        }
    }
}

// The first status that is not success while every record is read by bytes.
KVOForStatus ReadAll()
{
    char item;
    KVOForStatus status;
    while ((status = for_read_seq(kUnit)) == KVOForOk) {
        while ((status = for_read_seq_xmit(kUnit, &item, 1, 1)) == KVOForOk) {
        }
        if (status != KVOForEndOfRecord)
            break;
    }
    return status;
}

TEST_F(KVOForRecords, ReportsEveryTruncationAndWrongMarker)
{
    std::string const first = Record("abcdefg", 3), file = first + Record("hi");
    ASSERT_EQ(Open(file), KVOForOk);
    ASSERT_EQ(ReadAll(), KVOForEndOfFile);

    for (std::size_t length = 1; length < file.size(); ++length) {
        ASSERT_EQ(Open(file.substr(0, length)), KVOForOk);
        EXPECT_EQ(ReadAll(), length == first.size() ? KVOForEndOfFile : KVOForMalformed) << length;
        EXPECT_EQ(for_read_seq(kUnit), length == first.size() ? KVOForEndOfFile : KVOForMalformed) << length;
    }
    // Markers of the first record: 0, 7, 11, 18, 22, 27.
    for (std::size_t const place : {0u, 7u, 11u, 18u, 22u, 27u})
        for (std::int32_t const marker : {0, 2, -2, 4, -4, INT32_MAX, -INT32_MAX, INT32_MIN}) {
            std::string damaged = file;
            damaged.replace(place, 4, Bytes(marker));
            ASSERT_EQ(Open(damaged), KVOForOk);
            EXPECT_EQ(ReadAll(), KVOForMalformed) << place << ' ' << marker;
        }
}

TEST_F(KVOForRecords, RefusesWhatIsNoOpenUnitOrFile)
{
    char item;
    EXPECT_EQ(for_read_seq(kUnit), KVOForNotOpen);
    EXPECT_EQ(for_read_seq_xmit(kUnit, &item, 1, 1), KVOForNotOpen);
    EXPECT_EQ(for_close(kUnit), KVOForNotOpen);
    std::string const fifo = m_folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (char const* const path : {static_cast<char const*>(nullptr), "", "/", "/dev/zero", "/no/such/file", fifo.c_str()})
        EXPECT_EQ(for_open(kUnit, path), KVOForOpenFailure);

    ASSERT_EQ(Open(Record("abc")), KVOForOk);
    ASSERT_EQ(for_read_seq(kUnit), KVOForOk);
    EXPECT_EQ(for_read_seq_xmit(kUnit, &item, -1, 1), KVOForBadArgument);
    EXPECT_EQ(for_read_seq_xmit(kUnit, &item, 1, -1), KVOForBadArgument);
    EXPECT_EQ(for_read_seq_xmit(kUnit, &item, INT64_MAX, 8), KVOForBadArgument);
    EXPECT_EQ(for_read_seq_xmit(kUnit, nullptr, INT64_MAX, 2), KVOForEndOfRecord);
}

TEST_F(KVOForRecords, KeepsUnitsApart)
{
    std::string const path = m_folder / "other";
    int const other = kUnit + 1;
    char item = '?';
    std::string items(20, '?');
    WriteFile(path, Record(Bytes(3, 1.5, 2.5)));
    ASSERT_EQ(Open(Record("a")), KVOForOk);
    ASSERT_EQ(for_open(other, path.c_str()), KVOForOk);
    EXPECT_EQ(for_read_seq_xmit(other, &item, 1, 1), KVOForEndOfRecord); // in front of the first record
    EXPECT_EQ(for_read_seq(other), KVOForOk);
    EXPECT_EQ(for_read_seq(kUnit), KVOForOk);
    EXPECT_EQ(for_read_seq_xmit(kUnit, &item, 1, 1), KVOForOk);
    EXPECT_EQ(item, 'a');
    EXPECT_EQ(for_open(kUnit, path.c_str()), KVOForOk); // another file takes the unit over
    EXPECT_EQ(for_read_seq_xmit(kUnit, &item, 1, 1), KVOForEndOfRecord);

    EXPECT_EQ(for_read_seq_xmit(other, items.data(), 1, 4), KVOForOk);
    EXPECT_EQ(for_read_seq_xmit(other, items.data() + 4, 2, 8), KVOForOk);
    EXPECT_EQ(items, Bytes(3, 1.5, 2.5));
    EXPECT_EQ(for_close(other), KVOForOk);
    EXPECT_EQ(for_read_seq_xmit(other, &item, 1, 1), KVOForNotOpen);
}

} // namespace
