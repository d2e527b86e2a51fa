#include "ChunkIndex.h"
#include "DenseDrawer.h"
#include "DrawerOracle.h"
#include "DriverFile.h"
#include "FileAccess.h"
#include "Hdf5.h"
#include "KVOSimTypeKey.h"
#include "ResidentBytes.h"
#include "TemporaryFolder.h"
#include "ValueSums.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <numeric>
#include <unistd.h>

using simdb::DenseDrawer;
using simdb::DenseShape;
using simdb::File;
using simdb::FileAccess;
using simdb::Range;

namespace
{

using Ranges = std::vector<Range>;

struct RandomDrawer {
    explicit RandomDrawer(std::mt19937_64& random)
    {
        std::size_t const rank = static_cast<std::size_t>(RandomUpTo(random, 1, 4));
        std::int64_t const longest[] = {3000, 90, 20, 9};
        bool const chunked = RandomUpTo(random, 0, 3) > 0;
        for (std::size_t d = 0; d < rank; ++d) {
            shape.sizes.push_back(RandomUpTo(random, 1, longest[rank - 1]));
            if (chunked)
                shape.chunkSizes.push_back(RandomUpTo(random, 1, longest[rank - 1] / (d == 0 ? 2 : 1)));
        }
        int const keys[] = {KVOSimDouble, KVOSimInt32, KVOSimInt8, KVOSimUInt8, KVOSimFloat};
        shape.typeKey = keys[RandomUpTo(random, 0, 4)];
        std::vector<std::byte> const initial = RandomBytes(random, static_cast<std::size_t>(KVOSimTypeKeySize(shape.typeKey)));
        if (RandomUpTo(random, 0, 1) == 0)
            std::copy(initial.begin(), initial.end(), shape.initialValue.begin());
    }

    DrawerOracle Oracle() const
    {
        return {shape.sizes, {shape.initialValue.begin(), shape.initialValue.begin() + KVOSimTypeKeySize(shape.typeKey)}};
    }

    DenseShape shape;
};

std::string Text(DenseShape const& shape)
{
    return "key " + std::to_string(shape.typeKey) + " sizes " + testing::PrintToString(shape.sizes) + " chunks " +
           testing::PrintToString(shape.chunkSizes);
}

// Reads with a margin around the buffer that must stay as it is.
std::vector<std::byte> Read(DenseDrawer& drawer, std::span<Range const> ranges, std::size_t bytes)
{
    constexpr std::size_t kMargin = 64;
    std::vector<std::byte> buffer(bytes + 2 * kMargin, std::byte{0xA5});
    drawer.Read(ranges, buffer.data() + kMargin);
    for (std::size_t i = 0; i < kMargin; ++i)
        EXPECT_TRUE(buffer[i] == std::byte{0xA5} && buffer[bytes + kMargin + i] == std::byte{0xA5}) << "written outside the buffer";
    return {buffer.begin() + kMargin, buffer.end() - kMargin};
}

void ExpectSame(DenseDrawer& drawer, DrawerOracle const& oracle)
{
    EXPECT_EQ(drawer.Shape().sizes, oracle.Sizes());
    EXPECT_TRUE(Read(drawer, oracle.Everything(), oracle.Values().size()) == oracle.Values());
    std::optional<simdb::PlacesSum> const kept = drawer.Places();
    EXPECT_TRUE(!kept || kept == drawer.FindPlaces()) << "the checksum of the places does not follow them";
}

void WriteSomewhere(DenseDrawer& drawer, DrawerOracle& oracle, std::mt19937_64& random)
{
    std::vector<Range> const ranges = RandomRanges(random, oracle.Sizes());
    std::vector<std::byte> const values = RandomBytes(random, oracle.Read(ranges).size());
    drawer.Write(ranges, values.data());
    oracle.Write(ranges, values);
}

void ReadSomewhere(DenseDrawer& drawer, DrawerOracle const& oracle, std::mt19937_64& random)
{
    std::vector<Range> const ranges = RandomRanges(random, oracle.Sizes());
    drawer.Announce(ranges);
    std::vector<std::byte> const expected = oracle.Read(ranges);
    EXPECT_TRUE(Read(drawer, ranges, expected.size()) == expected);
    auto const* const inPlace = static_cast<std::byte const*>(drawer.FetchInPlace(ranges));
    EXPECT_TRUE(inPlace == nullptr || std::equal(expected.begin(), expected.end(), inPlace));
}

class DenseDrawerTest : public testing::Test
{
protected:
    std::shared_ptr<FileAccess> NewFile(File::Kind kind = File::Kind::Persistent)
    {
        m_path = m_folder / ("file" + std::to_string(m_files++) + ".sim");
        m_file = File::Create(m_path, kind);
        return m_access = std::make_shared<FileAccess>(m_file);
    }
    /// The drawer again, in a later session.
    template<class Between = void (*)()>
    std::shared_ptr<DenseDrawer> Reopened(
        std::shared_ptr<DenseDrawer>& drawer, Between const& between = [] {}, bool readOnly = false)
    {
        if (H5Lexists(m_file->Hdf5(), "values", H5P_DEFAULT) == 0)
            drawer->LinkTo(m_file->Hdf5(), "values");
        drawer.reset();
        m_access.reset();
        m_file->Close();
        between();
        m_file = File::Open(m_path, readOnly);
        m_access = std::make_shared<FileAccess>(m_file);
        return DenseDrawer::Open(m_access, m_file->Hdf5(), "values");
    }

    TemporaryFolder m_folder;
    std::shared_ptr<File> m_file;
    std::shared_ptr<FileAccess> m_access;
    std::string m_path;
    int m_files = 0;
};

TEST_F(DenseDrawerTest, HoldsWhatWasWrittenWhicheverWayItTravels)
{
    for (std::uint64_t seed = 0; seed < 120; ++seed) {
        std::mt19937_64 random(seed);
        RandomDrawer const made(random);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", " + Text(made.shape));
        DrawerOracle oracle = made.Oracle();
        auto drawer = DenseDrawer::Create(NewFile(seed % 2 == 0 ? File::Kind::Persistent : File::Kind::Scratch), made.shape);
        ExpectSame(*drawer, oracle);
        for (int i = 0; i < 12; ++i) {
            WriteSomewhere(*drawer, oracle, random);
            ReadSomewhere(*drawer, oracle, random);
            if (RandomUpTo(random, 0, 3) == 0) {
                auto const dim = static_cast<std::size_t>(RandomUpTo(random, 0, static_cast<std::int64_t>(made.shape.sizes.size()) - 1));
                std::int64_t const size = RandomUpTo(random, 1, made.shape.sizes[dim] * 5 / 4 + 1);
                drawer->Resize(static_cast<int>(dim), size);
                oracle.Resize(dim, size);
            }
            ExpectSame(*drawer, oracle);
        }
        if (seed % 2 != 0)
            continue;
        for (char const* const who : {"own", "hdf5"}) {
            SCOPED_TRACE(who);
            setenv("KVO_SIM_DATA_PATH", who, 1);
            drawer = Reopened(drawer);
            ExpectSame(*drawer, oracle);
            for (int i = 0; i < 3; ++i)
                WriteSomewhere(*drawer, oracle, random);
            ExpectSame(*drawer, oracle);
        }
        unsetenv("KVO_SIM_DATA_PATH");
        ExpectSame(*Reopened(
                       drawer, [] {}, true),
                   oracle);
    }
}

TEST_F(DenseDrawerTest, MovesLargeChunksAndTheirParts)
{
    // Beside the sizes of the random test: parts that go by calls of their own, chunks too large to be staged.
    for (std::vector<std::int64_t> const& chunks : {std::vector<std::int64_t>{96, 200}, {700, 3100}, {}}) {
        std::mt19937_64 random(chunks.size());
        DenseShape shape{{1300, 500}, chunks, KVOSimDouble, {}};
        shape.initialValue[7] = std::byte{0x40}; // 2.0
        SCOPED_TRACE(Text(shape));
        DrawerOracle oracle(shape.sizes, {shape.initialValue.begin(), shape.initialValue.end()});
        auto const drawer = DenseDrawer::Create(NewFile(), shape);
        for (int i = 0; i < 3; ++i) {
            WriteSomewhere(*drawer, oracle, random);
            ReadSomewhere(*drawer, oracle, random);
        }
        drawer->Resize(1, 560);
        oracle.Resize(1, 560);
        ExpectSame(*drawer, oracle);
    }
}

TEST_F(DenseDrawerTest, MapsWhatIsUsedAgainWithinItsBudget)
{
    // The chunks of the second shape cross the borders of the parts that are mapped, columns of the third begin in the middle of a line.
    for (std::vector<std::int64_t> const& chunks : {std::vector<std::int64_t>{512, 512}, {300, 700}, {699, 749}})
        for (std::uint64_t const budget : {std::uint64_t(64) << 20, std::uint64_t(5) << 20}) {
            SCOPED_TRACE(testing::PrintToString(chunks) + " budget " + std::to_string(budget));
            std::mt19937_64 random(budget);
            DrawerOracle oracle({3 * chunks[0] - 10, chunks[1]}, std::vector<std::byte>(8));
            auto const drawer = DenseDrawer::Create(NewFile(), {oracle.Sizes(), chunks, KVOSimDouble, {}});
            drawer->SetCacheBytes(budget);
            std::vector<Ranges> wholeChunks;
            for (std::int64_t j = 0; j < oracle.Sizes()[0]; j += chunks[0])
                wholeChunks.push_back({{j, std::min(j + chunks[0], oracle.Sizes()[0]) - 1}, {0, chunks[1] - 1}});
            int found = 0;
            for (int round = 0; round < 4; ++round) {
                for (Ranges const& chunk : wholeChunks) {
                    std::vector<std::byte> values = RandomBytes(random, oracle.Read(chunk).size());
                    drawer->Write(chunk, values.data());
                    bool const toWrite = round % 2 == 1;
                    if (auto* const inPlace = static_cast<std::byte*>(drawer->InPlace(chunk, toWrite))) {
                        ++found;
                        EXPECT_TRUE(std::equal(values.begin(), values.end(), inPlace));
                        if (toWrite)
                            inPlace[8] = values[8] = std::byte{0x42};
                    }
                    oracle.Write(chunk, values);
                    if (round > 0) {
                        Ranges const columns{{chunk[0].first + 7, chunk[0].first + 200}, chunk[1]};
                        values.resize(oracle.Read(columns).size());
                        drawer->Write(columns, values.data());
                        oracle.Write(columns, values);
                    }
                    EXPECT_LE(ResidentBytes(m_path), budget);
                }
                EXPECT_TRUE(round > 0 || ResidentBytes(m_path) == 0) << "what is used once only is not mapped";
                for (Ranges const& chunk : wholeChunks) {
                    std::vector<std::byte> const expected = oracle.Read(chunk);
                    EXPECT_TRUE(Read(*drawer, chunk, expected.size()) == expected);
                }
            }
            EXPECT_TRUE(found > 0 || budget < oracle.Values().size());
            WriteSomewhere(*drawer, oracle, random);
            ExpectSame(*drawer, oracle);
        }
}

// First by calls, then through the mapping, strided and too large for the memory of one chunk.
TEST_F(DenseDrawerTest, SumsLargeChunksAsTheyTravel)
{
    for (std::int64_t const size : {512, 1450}) {
        SCOPED_TRACE(size);
        std::mt19937_64 random(1);
        DrawerOracle oracle({size, 2 * size}, std::vector<std::byte>(8));
        auto const drawer = DenseDrawer::Create(NewFile(), {oracle.Sizes(), {size, size}, KVOSimDouble, {}});
        drawer->SetSums(std::make_shared<simdb::ValueSums>(m_access, std::vector<std::int64_t>{1, 2}));
        drawer->SetCacheBytes(std::uint64_t(256) << 20);
        Ranges const whole{{0, size - 1}, {size, 2 * size - 1}}, part{{3, size / 2}, {size + 5, size + 99}};
        auto const read = [&](Ranges const& ranges) {
            std::vector<std::byte> values(oracle.Read(ranges).size());
            drawer->Read(ranges, values.data(), true);
            return values;
        };
        for (int round = 0; round < (size == 512 ? 3 : 1); ++round)
            for (Ranges const& ranges : {oracle.Everything(), whole}) {
                std::vector<std::byte> const values = RandomBytes(random, oracle.Read(ranges).size());
                drawer->Write(ranges, values.data());
                oracle.Write(ranges, values);
                EXPECT_EQ(drawer->CheckValues([](std::string const& what) { ADD_FAILURE() << what; }), 2);
                for (Ranges const& asked : {whole, part})
                    EXPECT_TRUE(read(asked) == oracle.Read(asked));
            }
        std::vector<std::byte> byte = oracle.Read(whole);
        byte[byte.size() / 2] ^= std::byte{1};
        auto const sums = drawer->Sums();
        drawer->SetSums(nullptr);
        drawer->Write(whole, byte.data());
        drawer->SetSums(sums);
        for (Ranges const& asked : {whole, part})
            EXPECT_THROW(read(asked), KVOSimException);
    }
}

TEST_F(DenseDrawerTest, FetchesChunksFromTheDiskWithinItsBudget)
{
    std::mt19937_64 random(8);
    DrawerOracle oracle({900, 700}, std::vector<std::byte>(8));
    auto drawer = DenseDrawer::Create(NewFile(), {oracle.Sizes(), {400, 350}, KVOSimDouble, {}});
    std::vector<std::byte> const values = RandomBytes(random, oracle.Values().size());
    oracle.Write(oracle.Everything(), values);
    drawer->Write(oracle.Everything(), values.data());
    drawer = Reopened(drawer, [&] {
        int const file = open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
        EXPECT_TRUE(fsync(file) == 0 && posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED) == 0);
        close(file);
    });
    constexpr std::uint64_t kBudget = 4 << 20;
    drawer->SetCacheBytes(kBudget);

    for (std::int64_t const column : {0, 400, 800, 0})
        for (std::int64_t const row : {0, 350}) {
            Ranges const chunk{{column, std::min<std::int64_t>(column + 399, 899)}, {row, row + 349}};
            std::vector<std::byte> const expected = oracle.Read(chunk);
            auto const* const fetched = static_cast<std::byte const*>(drawer->FetchInPlace(chunk));
            ASSERT_NE(fetched, nullptr);
            EXPECT_TRUE(std::equal(expected.begin(), expected.end(), fetched));
            EXPECT_LE(ResidentBytes(m_path), kBudget);
        }
    EXPECT_EQ(drawer->FetchInPlace(Ranges{{0, 399}, {0, 350}}), nullptr) << "of two chunks";
    EXPECT_EQ(drawer->FetchInPlace(Ranges{{0, 399}, {0, 300}}), nullptr) << "not packed";
    drawer->SetCacheBytes(1 << 20);
    EXPECT_EQ(drawer->FetchInPlace(Ranges{{0, 399}, {0, 349}}), nullptr) << "more than may stay";
}

// Where pieces of so many bytes begin; two of them would take a third more room, or twice as much, on a large page.
TEST(DriverFile, PutsLargePiecesOnPagesAndLargePages)
{
    constexpr std::uint64_t kPage = 4096, kLargePage = 2 << 20;
    simdb::DriverFile file{Descriptor()};
    std::uint64_t end = 0, address = 0;
    for (auto const& [bytes, alignment] : {std::pair<std::uint64_t, std::uint64_t>{280, 1},
                                           {16383, 1},
                                           {16384, kPage},
                                           {kLargePage, kLargePage},
                                           {kLargePage + kPage, kPage},
                                           {3 << 20, kPage},
                                           {8000000, kLargePage}})
        for (int i = 0; i < 3; ++i, end = address + bytes) {
            ASSERT_TRUE(file.Allocate(bytes, address));
            EXPECT_EQ(address, (end + alignment - 1) / alignment * alignment) << bytes;
            EXPECT_EQ(file.End(), address + bytes);
        }
    EXPECT_FALSE(file.Allocate(INT64_MAX, address));
    EXPECT_EQ(file.End(), end);
}

TEST_F(DenseDrawerTest, GrowsIntoTheInitialValueWhateverAnEdgeChunkHeld)
{
    auto drawer = DenseDrawer::Create(NewFile(), {{3, 3}, {4, 4}, KVOSimInt32, {std::byte{7}}});
    std::vector<std::int32_t> chunk(16);
    std::iota(chunk.begin(), chunk.end(), 100);
    hsize_t const origin[2] = {0, 0};
    ASSERT_GE(H5Dwrite_chunk(drawer->Dataset(), H5P_DEFAULT, 0, origin, 64, chunk.data()), 0); // as another program may leave it
    drawer = Reopened(drawer);

    drawer->Resize(0, 5);
    drawer->Resize(1, 4);

    std::vector<std::int32_t> read(20);
    drawer->Read(Ranges{{0, 4}, {0, 3}}, read.data());
    EXPECT_EQ(read, (std::vector<std::int32_t>{100, 101, 102, 7, 104, 105, 106, 7, 108, 109, 110, 7, 7, 7, 7, 7, 7, 7, 7, 7}));
}

TEST_F(DenseDrawerTest, KeepsAttributesAndNameOfAContiguousDrawerThatGrows)
{
    auto const file = NewFile();
    auto const drawer = DenseDrawer::Create(file, {{5}, {}, KVOSimInt32, {}});
    drawer->LinkTo(m_file->Hdf5(), "values");
    std::int32_t const values[] = {1, 2, 3, 4, 5};
    drawer->Write(Ranges{{0, 4}}, values);
    simdb::Hid const space(H5Screate(H5S_SCALAR));
    simdb::Hid const attribute(H5Acreate2(drawer->Dataset(), "unit", H5T_NATIVE_INT, space, H5P_DEFAULT, H5P_DEFAULT));
    H5Awrite(attribute, H5T_NATIVE_INT, &values[3]);

    drawer->Resize(0, 7);

    auto const again = DenseDrawer::Open(file, m_file->Hdf5(), "values");
    std::vector<std::int32_t> read(7, -1);
    again->Read(Ranges{{0, 6}}, read.data());
    EXPECT_EQ(read, (std::vector<std::int32_t>{1, 2, 3, 4, 5, 0, 0}));
    simdb::Hid const copied(H5Aopen(again->Dataset(), "unit", H5P_DEFAULT));
    int unit = 0;
    EXPECT_GE(H5Aread(copied, H5T_NATIVE_INT, &unit), 0);
    EXPECT_EQ(unit, 4);
}

} // namespace
