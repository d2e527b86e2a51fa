#include "DenseDrawer.h"
#include "DrawerOracle.h"
#include "KVOSimException.h"
#include "KVOSimTypeKey.h"
#include "TemporaryFolder.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

using simdb::DenseDrawer;
using simdb::DenseShape;
using simdb::File;
using simdb::Range;

namespace
{

using Ranges = std::vector<Range>;

/// The variable that says who moves the values, while this lives.
class MovedBy
{
public:
    explicit MovedBy(char const* who) { setenv("KVO_SIM_DATA_PATH", who, 1); }
    ~MovedBy() { unsetenv("KVO_SIM_DATA_PATH"); }
    MovedBy(MovedBy const&) = delete;
    MovedBy& operator=(MovedBy const&) = delete;
};

struct RandomDrawer {
    explicit RandomDrawer(std::mt19937_64& random, std::size_t most = 3)
    {
        std::size_t const rank = static_cast<std::size_t>(RandomUpTo(random, 1, static_cast<std::int64_t>(most)));
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
    std::string text = "key " + std::to_string(shape.typeKey) + " sizes";
    for (std::int64_t const size : shape.sizes)
        text += ' ' + std::to_string(size);
    text += " chunks";
    for (std::int64_t const size : shape.chunkSizes)
        text += ' ' + std::to_string(size);
    return text;
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
}

class DenseDrawerTest : public testing::Test
{
protected:
    std::shared_ptr<File> NewFile(File::Kind kind = File::Kind::Persistent) { return File::Create(m_path = m_folder / Name(), kind); }
    std::string Name() { return "file" + std::to_string(m_files++) + ".sim"; }

    TemporaryFolder m_folder;
    std::string m_path;
    int m_files = 0;
};

TEST_F(DenseDrawerTest, HoldsWhatWasWrittenWhicheverWayItTravels)
{
    for (std::uint64_t seed = 0; seed < 120; ++seed) {
        std::mt19937_64 random(seed);
        RandomDrawer const made(random, 4);
        SCOPED_TRACE("seed " + std::to_string(seed) + ", " + Text(made.shape));
        DrawerOracle oracle = made.Oracle();
        auto file = NewFile(seed % 2 == 0 ? File::Kind::Persistent : File::Kind::Scratch);
        auto drawer = DenseDrawer::Create(file, made.shape);
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
        drawer->LinkTo(file->Hdf5(), "values");
        drawer.reset();
        file->Close();
        for (char const* const who : {"own", "hdf5"}) {
            SCOPED_TRACE(who);
            MovedBy const moved(who);
            file = File::Open(m_path, false);
            drawer = DenseDrawer::Open(file, file->Hdf5(), "values");
            ExpectSame(*drawer, oracle);
            for (int i = 0; i < 3; ++i)
                WriteSomewhere(*drawer, oracle, random);
            ExpectSame(*drawer, oracle);
            drawer.reset();
            file->Close();
        }
        file = File::Open(m_path, true);
        ExpectSame(*DenseDrawer::Open(file, file->Hdf5(), "values"), oracle);
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
        auto const file = NewFile();
        auto const drawer = DenseDrawer::Create(file, shape);
        for (int i = 0; i < 3; ++i) {
            WriteSomewhere(*drawer, oracle, random);
            ReadSomewhere(*drawer, oracle, random);
        }
        drawer->Resize(1, 560);
        oracle.Resize(1, 560);
        ExpectSame(*drawer, oracle);
    }
}

TEST_F(DenseDrawerTest, TakesSpaceForTouchedChunksOnly)
{
    auto const file = NewFile();
    auto const drawer = DenseDrawer::Create(file, {{100, 100}, {30, 30}, KVOSimDouble, {}});
    double const value = 1.0;
    drawer->Write(Ranges{{95, 95}, {31, 31}}, &value);

    std::vector<double> read(100 * 100);
    drawer->Read(Ranges{{0, 99}, {0, 99}}, read.data());

    for (std::int64_t i = 0; i < 4; ++i)
        for (std::int64_t j = 0; j < 4; ++j)
            EXPECT_EQ(drawer->ChunksAllocated(Ranges{{i, i}, {j, j}}), i == 3 && j == 1) << i << ' ' << j;
    EXPECT_FALSE(drawer->ChunksAllocated(Ranges{{2, 3}, {1, 1}}));
    EXPECT_THROW(drawer->ChunksAllocated(Ranges{{0, 4}, {0, 0}}), KVOSimException);
    EXPECT_TRUE(DenseDrawer::Create(file, {{100}, {}, KVOSimDouble, {}})->ChunksAllocated(Ranges{{0, 0}}));
}

TEST_F(DenseDrawerTest, GrowsIntoTheInitialValueWhateverAnEdgeChunkHeld)
{
    auto file = NewFile();
    auto drawer = DenseDrawer::Create(file, {{3, 3}, {4, 4}, KVOSimInt32, {std::byte{7}}});
    drawer->LinkTo(file->Hdf5(), "values");
    std::vector<std::int32_t> chunk(16);
    for (int i = 0; i < 16; ++i)
        chunk[static_cast<std::size_t>(i)] = 100 + i;
    hsize_t const origin[2] = {0, 0};
    ASSERT_GE(H5Dwrite_chunk(drawer->Dataset(), H5P_DEFAULT, 0, origin, 64, chunk.data()), 0); // as another program may leave it
    drawer.reset();
    file->Close();
    file = File::Open(m_path, false);
    drawer = DenseDrawer::Open(file, file->Hdf5(), "values");

    drawer->Resize(0, 5);
    drawer->Resize(1, 4);

    std::vector<std::int32_t> read(20);
    drawer->Read(Ranges{{0, 4}, {0, 3}}, read.data());
    EXPECT_EQ(read, (std::vector<std::int32_t>{100, 101, 102, 7, 104, 105, 106, 7, 108, 109, 110, 7, 7, 7, 7, 7, 7, 7, 7, 7}));
}

TEST_F(DenseDrawerTest, SeesThroughHolesThatAnotherProgramMade)
{
    auto file = NewFile();
    auto drawer = DenseDrawer::Create(file, {{64, 64}, {64, 64}, KVOSimDouble, {}});
    drawer->LinkTo(file->Hdf5(), "values");
    std::vector<double> values(64 * 64, 0.0);
    drawer->Write(Ranges{{0, 63}, {0, 63}}, values.data());
    drawer.reset();
    file->Close();
    ASSERT_EQ(std::system(("fallocate --dig-holes '" + m_path + "'").c_str()), 0);
    file = File::Open(m_path, false);
    drawer = DenseDrawer::Open(file, file->Hdf5(), "values");
    std::vector<double> const column(64, 3.0);

    drawer->Write(Ranges{{0, 63}, {5, 5}}, column.data());

    drawer->Read(Ranges{{0, 63}, {0, 63}}, values.data());
    for (std::size_t i = 0; i < 64; ++i)
        for (std::size_t j = 0; j < 64; ++j)
            ASSERT_EQ(values[64 * i + j], j == 5 ? 3.0 : 0.0);
}

TEST_F(DenseDrawerTest, KeepsAttributesAndNameOfAContiguousDrawerThatGrows)
{
    auto const file = NewFile();
    auto const drawer = DenseDrawer::Create(file, {{5}, {}, KVOSimInt32, {}});
    drawer->LinkTo(file->Hdf5(), "values");
    std::int32_t const values[] = {1, 2, 3, 4, 5};
    drawer->Write(Ranges{{0, 4}}, values);
    simdb::Hid const space(H5Screate(H5S_SCALAR));
    simdb::Hid const attribute(H5Acreate2(drawer->Dataset(), "unit", H5T_NATIVE_INT, space, H5P_DEFAULT, H5P_DEFAULT));
    H5Awrite(attribute, H5T_NATIVE_INT, &values[3]);

    drawer->Resize(0, 7);

    auto const again = DenseDrawer::Open(file, file->Hdf5(), "values");
    std::vector<std::int32_t> read(7, -1);
    again->Read(Ranges{{0, 6}}, read.data());
    EXPECT_EQ(read, (std::vector<std::int32_t>{1, 2, 3, 4, 5, 0, 0}));
    simdb::Hid const copied(H5Aopen(again->Dataset(), "unit", H5P_DEFAULT));
    int unit = 0;
    EXPECT_GE(H5Aread(copied, H5T_NATIVE_INT, &unit), 0);
    EXPECT_EQ(unit, 4);
}

TEST_F(DenseDrawerTest, ShowsOtherProgramsTheSameValues)
{
    auto file = NewFile();
    auto drawer = DenseDrawer::Create(
        file, {{10, 10},
               {4, 4},
               KVOSimDouble,
               {std::byte{}, std::byte{}, std::byte{}, std::byte{}, std::byte{}, std::byte{}, std::byte{}, std::byte{0x40}}});
    drawer->LinkTo(file->Hdf5(), "values");
    std::vector<double> values{1, 2, 3, 4, 5, 6};
    drawer->Write(Ranges{{3, 5}, {7, 8}}, values.data());
    drawer.reset();
    file->Close();
    file.reset();

    simdb::Hid const plain(H5Fopen(m_path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
    simdb::Hid const dataset(H5Dopen2(plain, "values", H5P_DEFAULT));
    std::vector<double> read(100, -1.0);
    ASSERT_GE(H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, read.data()), 0);

    for (std::size_t i = 0; i < 10; ++i)
        for (std::size_t j = 0; j < 10; ++j)
            EXPECT_EQ(read[10 * i + j], i >= 3 && i <= 5 && j >= 7 && j <= 8 ? values[2 * (i - 3) + (j - 7)] : 2.0);
}

} // namespace
