#include "SimJournal.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace
{

using simdb::FileMark;
using simdb::Journal;
using simdb::JournalFile;

std::vector<std::byte> SomeBytes(std::size_t count, unsigned seed)
{
    std::vector<std::byte> bytes(count);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::byte>(seed = seed * 5 + 3); });
    return bytes;
}

struct Example {
    std::vector<std::byte> first = SomeBytes(48, 1), second = SomeBytes(5, 2);
    FileMark mark = FileMark::New(FileMark::kOffset);
    Journal journal{mark, {{0, first}, {1000, second}, {4096, {}}}};
    std::vector<std::byte> image{journal.Image().begin(), journal.Image().end()};
};

TEST(SimJournal, ComesBackFromItsImage)
{
    Example example;
    auto longer = example.image;
    longer.resize(longer.size() + 100, std::byte{7}); // the end of an older one

    for (auto const& image : {example.image, longer}) {
        auto const parsed = Journal::Parse(image);

        ASSERT_TRUE(parsed.has_value());
        EXPECT_EQ(parsed->Mark().offset, FileMark::kOffset);
        EXPECT_EQ(parsed->Mark().bytes, example.mark.bytes);
        ASSERT_EQ(parsed->Pieces().size(), 3u);
        EXPECT_EQ(parsed->Pieces()[1].address, 1000u);
        EXPECT_TRUE(std::ranges::equal(parsed->Pieces()[0].bytes, example.first));
        EXPECT_TRUE(std::ranges::equal(parsed->Pieces()[1].bytes, example.second));
        EXPECT_TRUE(parsed->Pieces()[2].bytes.empty());
    }
}

TEST(SimJournal, IsNoneWithAnyByteMissingOrChanged)
{
    Example example;
    for (std::size_t length = 0; length < example.image.size(); ++length)
        EXPECT_FALSE(Journal::Parse({example.image.begin(), example.image.begin() + length})) << length;
    for (std::size_t at = 0; at < example.image.size(); ++at)
        for (int bit = 0; bit < 8; ++bit) {
            auto image = example.image;
            image[at] ^= std::byte(1 << bit);
            EXPECT_FALSE(Journal::Parse(std::move(image))) << at;
        }
}

// The checksum is right here: the addresses alone are not.
TEST(SimJournal, IsNoneWithAPieceOutsideOfAnyFile)
{
    auto const bytes = SomeBytes(5, 2);
    for (std::uint64_t const address : {UINT64_MAX, std::uint64_t{INT64_MAX}, std::uint64_t{INT64_MAX} - 4}) {
        Journal const journal(FileMark::New(FileMark::kOffset), {{address, bytes}});
        EXPECT_FALSE(Journal::Parse({journal.Image().begin(), journal.Image().end()})) << address;
    }
}

TEST(SimJournal, FileHoldsItUntilItIsDropped)
{
    TemporaryFolder const folder;
    std::string const path = folder / "x.journal";
    Example example;
    std::optional<Journal> read;

    {
        JournalFile file(path, 0600);
        EXPECT_EQ(file.Read(read), 0);
        EXPECT_FALSE(read);
        ASSERT_EQ(file.Write(example.journal), 0);
    }
    JournalFile file(path, 0600);
    EXPECT_EQ(file.Read(read), 0);
    ASSERT_TRUE(read);
    EXPECT_TRUE(std::ranges::equal(read->Image(), example.image));
    ASSERT_EQ(file.Drop(), 0);
    EXPECT_EQ(file.Read(read), 0);
    EXPECT_FALSE(read);
    EXPECT_EQ(file.Remove(), 0);
    EXPECT_EQ(file.Remove(), 0) << "a journal that is not there is removed";
    EXPECT_NE(access(path.c_str(), F_OK), 0);
}

} // namespace
