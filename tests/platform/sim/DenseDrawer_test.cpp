#include "ChunkIndex.h"
#include "DrawerOracle.h"
#include "DriverFile.h"
#include "Hdf5.h"
#include "ResidentBytes.h"
#include "TemporaryFolder.h"
#include "ValueSums.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <optional>

using simdb::DenseDrawer;
using simdb::DenseShape;
using simdb::File;

namespace
{

DenseShape RandomShape(std::mt19937_64& random)
{
    DenseShape shape;
    auto const rank = static_cast<std::size_t>(RandomUpTo(random, 1, 4));
    std::int64_t const longest = std::array{3000, 90, 20, 9}[rank - 1];
    bool const chunked = RandomUpTo(random, 0, 3) > 0;
    for (std::size_t d = 0; d < rank; ++d) {
        shape.sizes.push_back(RandomUpTo(random, 1, longest));
        if (chunked)
            shape.chunkSizes.push_back(RandomUpTo(random, 1, longest / (d == 0 ? 2 : 1)));
    }
    shape.typeKey = std::array{KVOSimDouble, KVOSimInt32, KVOSimInt8, KVOSimUInt8, KVOSimFloat}[random() % 5];
    if (random() % 2 == 0)
        std::ranges::copy(RandomBytes(random, static_cast<std::size_t>(KVOSimTypeKeySize(shape.typeKey))), shape.initialValue.begin());
    return shape;
}

std::string Text(DenseShape const& shape)
{
    return testing::PrintToString(shape.sizes) + " chunks " + testing::PrintToString(shape.chunkSizes) + " key " +
           std::to_string(shape.typeKey);
}

// Reads with a margin around the buffer that must stay as it is.
DrawerBytes Read(DenseDrawer& drawer, Ranges const& ranges, std::size_t bytes)
{
    constexpr std::size_t kMargin = 64;
    DrawerBytes buffer(bytes + 2 * kMargin, std::byte{0xA5});
    static bool callsAlone = false;
    drawer.Read(ranges, buffer.data() + kMargin, {false, callsAlone = !callsAlone}); // by turns
    for (std::size_t i = 0; i < kMargin; ++i)
        EXPECT_TRUE(buffer[i] == std::byte{0xA5} && buffer[bytes + kMargin + i] == std::byte{0xA5}) << "written outside the buffer";
    return {buffer.begin() + kMargin, buffer.end() - kMargin};
}

void ExpectSame(DenseDrawer& drawer, DrawerOracle const& oracle)
{
    EXPECT_EQ(drawer.Shape().sizes, oracle.AllSizes());
    EXPECT_TRUE(Read(drawer, oracle.Everything(), oracle.Values().size()) == oracle.Values());
    std::optional<simdb::PlacesSum> const kept = drawer.Places();
    EXPECT_TRUE(!kept || kept == drawer.FindPlaces()) << "the checksum of the places does not follow them";
}

bool ReadSomewhere(DenseDrawer& drawer, DrawerOracle const& oracle, std::mt19937_64& random)
{
    Ranges const ranges = RandomRanges(random, oracle.AllSizes());
    drawer.Announce(ranges);
    DrawerBytes const expected = oracle.Read(ranges);
    EXPECT_TRUE(Read(drawer, ranges, expected.size()) == expected);
    auto const* const inPlace = static_cast<std::byte const*>(drawer.FetchInPlace(ranges));
    EXPECT_TRUE(inPlace == nullptr || std::equal(expected.begin(), expected.end(), inPlace));
    return inPlace != nullptr;
}

class DenseDrawerTest : public testing::Test
{
protected:
    std::shared_ptr<DenseDrawer> Create(DenseShape const& shape, File::Kind kind = File::Kind::Persistent)
    {
        std::filesystem::remove(m_path);
        m_file = File::Create(m_path, kind);
        auto drawer = CreateDrawer(m_file, shape);
        drawer->LinkTo(m_file->Hdf5(), "values");
        return drawer;
    }
    /// The drawer again, in a later session.
    void Reopen(std::shared_ptr<DenseDrawer>& drawer, bool readOnly = false)
    {
        drawer.reset();
        m_file->Close();
        m_file = File::Open(m_path, readOnly);
        drawer = OpenDrawer(m_file);
    }

    TemporaryFolder m_folder;
    std::string const m_path = m_folder / "drawer.sim";
    std::shared_ptr<File> m_file;
};

TEST_F(DenseDrawerTest, HoldsWhatWasWrittenWhicheverWayItTravels)
{
    // Beside the random ones: parts that go by calls of their own, chunks too large to be staged.
    int fetched = 0;
    DenseShape const large[] = {{{1300, 500}, {96, 200}}, {{1300, 500}, {700, 3100}}, {{1300, 500}, {}}};
    for (std::uint64_t seed = 0; seed < 123; ++seed) {
        std::mt19937_64 random(seed);
        DenseShape const shape = seed < 120 ? RandomShape(random) : large[seed - 120];
        SCOPED_TRACE("seed " + std::to_string(seed) + ", " + Text(shape));
        DrawerOracle oracle(shape);
        auto const writeSomewhere = [&](DenseDrawer& to) {
            oracle.Randomize(to, RandomRanges(random, oracle.AllSizes()), random, random() % 2 == 0);
        };
        auto drawer = Create(shape, seed % 2 == 0 ? File::Kind::Persistent : File::Kind::Scratch);
        ExpectSame(*drawer, oracle);
        for (int i = 0; i < (seed < 120 ? 12 : 3); ++i) {
            writeSomewhere(*drawer);
            fetched += ReadSomewhere(*drawer, oracle, random);
            if (random() % 4 == 0) {
                std::size_t const dim = random() % shape.sizes.size();
                std::int64_t const size = RandomUpTo(random, 1, shape.sizes[dim] * 5 / 4 + 1);
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
            Reopen(drawer);
            ExpectSame(*drawer, oracle);
            for (int i = 0; i < 3; ++i)
                writeSomewhere(*drawer);
            ExpectSame(*drawer, oracle);
        }
        unsetenv("KVO_SIM_DATA_PATH");
        Reopen(drawer, true);
        EXPECT_EQ(posix_fadvise(m_file->Descriptor(), 0, 0, POSIX_FADV_DONTNEED), 0); // so that it comes from the disk
        fetched += ReadSomewhere(*drawer, oracle, random);
        ExpectSame(*drawer, oracle);
    }
    EXPECT_GT(fetched, 10);
}

TEST_F(DenseDrawerTest, MapsWhatIsUsedAgainWithinItsBudget)
{
    // The chunks of the second shape cross the borders of the parts that are mapped, columns of the third begin in the middle of a line.
    for (Sizes const& chunks : {Sizes{512, 512}, {300, 700}, {699, 749}})
        for (std::uint64_t const budget : {std::uint64_t(64) << 20, std::uint64_t(5) << 20}) {
            DenseShape const shape{{3 * chunks[0] - 10, chunks[1]}, chunks};
            SCOPED_TRACE(Text(shape) + " budget " + std::to_string(budget));
            std::mt19937_64 random(budget);
            DrawerOracle oracle(shape);
            auto const drawer = Create(shape);
            drawer->SetCacheBytes(budget);
            int uses = 0;
            for (int round = 0; round < 4; ++round) {
                for (std::int64_t first = 0; first < shape.sizes[0]; first += chunks[0]) {
                    Ranges const chunk{{first, std::min(first + chunks[0], shape.sizes[0]) - 1}, {0, chunks[1] - 1}};
                    oracle.Randomize(*drawer, chunk, random);
                    DrawerBytes values = oracle.Read(chunk);
                    bool const toWrite = round % 2 == 1;
                    void* const found = round == 2 ? const_cast<void*>(drawer->FetchInPlace(chunk)) : drawer->InPlace(chunk, toWrite);
                    if (auto* const inPlace = static_cast<std::byte*>(found)) {
                        ++uses;
                        EXPECT_TRUE(std::equal(values.begin(), values.end(), inPlace));
                        if (toWrite)
                            inPlace[8] = values[8] = std::byte{0x42};
                        oracle.Write(chunk, values);
                    }
                    if (round > 0)
                        oracle.Randomize(*drawer, {{first + 7, first + 200}, chunk[1]}, random);
                    EXPECT_LE(ResidentBytes(m_path), budget);
                }
                EXPECT_TRUE(round > 0 || ResidentBytes(m_path) == 0) << "what is used once only is not mapped";
                ExpectSame(*drawer, oracle);
            }
            EXPECT_TRUE(uses > 0 || budget < oracle.Values().size());
            oracle.Randomize(*drawer, RandomRanges(random, shape.sizes), random);
            ExpectSame(*drawer, oracle);
            drawer->SetCacheBytes(1 << 20);
            EXPECT_EQ(drawer->FetchInPlace(Ranges{{0, chunks[0] - 1}, {0, chunks[1] - 1}}), nullptr) << "more than may stay";
        }
}

// First by calls, then through the mapping, strided and too large for the memory of one chunk.
TEST_F(DenseDrawerTest, SumsLargeChunksAsTheyTravel)
{
    for (std::int64_t const size : {512, 1450}) {
        SCOPED_TRACE(size);
        std::mt19937_64 random(1);
        DenseShape const shape{{size, 2 * size}, {size, size}};
        DrawerOracle oracle(shape);
        auto const drawer = Create(shape);
        auto const sums = std::make_shared<simdb::ValueSums>(std::make_shared<simdb::FileAccess>(m_file), Sizes{1, 2});
        drawer->SetSums(sums);
        drawer->SetCacheBytes(std::uint64_t(256) << 20);
        Ranges const whole{{0, size - 1}, {size, 2 * size - 1}}, part{{3, size / 2}, {size + 5, size + 99}};
        auto const read = [&](Ranges const& ranges) {
            DrawerBytes values(oracle.Read(ranges).size());
            drawer->Read(ranges, values.data(), {true, size == 512});
            return values;
        };
        for (int round = 0; round < (size == 512 ? 3 : 1); ++round)
            for (Ranges const& ranges : {oracle.Everything(), whole}) {
                oracle.Randomize(*drawer, ranges, random);
                EXPECT_EQ(drawer->CheckValues([](std::string const& what) { ADD_FAILURE() << what; }), 2);
                for (Ranges const& asked : {whole, part})
                    EXPECT_TRUE(read(asked) == oracle.Read(asked));
            }
        drawer->SetSums(nullptr);
        oracle.Randomize(*drawer, {{size / 2, size / 2}, {size + 50, size + 50}}, random);
        drawer->SetSums(sums);
        for (Ranges const& asked : {whole, part})
            EXPECT_THROW(read(asked), KVOSimException);
    }
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
    auto drawer = Create({{3, 3}, {4, 4}, KVOSimInt8, {std::byte{7}}});
    hsize_t const origin[2] = {0, 0};
    ASSERT_GE(H5Dwrite_chunk(drawer->Dataset(), H5P_DEFAULT, 0, origin, 16, "abcdefghijklmnop"), 0); // as another program may leave it
    Reopen(drawer);

    drawer->Resize(0, 5);
    drawer->Resize(1, 4);

    char read[20];
    drawer->Read(Ranges{{0, 4}, {0, 3}}, read);
    EXPECT_EQ(std::string(read, 20), "abc\7efg\7ijk\7\7\7\7\7\7\7\7\7");
}

TEST_F(DenseDrawerTest, KeepsAttributesAndNameOfAContiguousDrawerThatGrows)
{
    auto const drawer = Create({{5}, {}, KVOSimInt8});
    drawer->Write(Ranges{{0, 4}}, "abcde");
    simdb::Hid const space(H5Screate(H5S_SCALAR));
    simdb::Hid const attribute(H5Acreate2(drawer->Dataset(), "unit", H5T_NATIVE_INT, space, H5P_DEFAULT, H5P_DEFAULT));
    int unit = 4;
    H5Awrite(attribute, H5T_NATIVE_INT, &unit);

    drawer->Resize(0, 7);

    auto const again = OpenDrawer(m_file);
    char read[7];
    again->Read(Ranges{{0, 6}}, read);
    EXPECT_EQ(std::string_view(read, 7), std::string_view("abcde\0\0", 7));
    H5Aread(simdb::Hid(H5Aopen(again->Dataset(), "unit", H5P_DEFAULT)), H5T_NATIVE_INT, &(unit = 0));
    EXPECT_EQ(unit, 4);
}

} // namespace
