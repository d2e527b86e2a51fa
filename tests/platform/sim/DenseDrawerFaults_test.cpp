#include "ChildProcess.h"
#include "DenseDrawer.h"
#include "DrawerOracle.h"
#include "FileAccess.h"
#include "KVOSimTypeKey.h"
#include "SimFailure.h"
#include "TemporaryFolder.h"

#include <cstring>
#include <fstream>
#include <sys/resource.h>
#include <unistd.h>

using simdb::DenseDrawer;
using simdb::File;
using simdb::FileAccess;
using simdb::Range;
using testing::HasSubstr;

namespace
{

using Ranges = std::vector<Range>;

class DenseDrawerFaults : public testing::Test
{
protected:
    TemporaryFolder m_folder;
    std::string const m_path = m_folder / "faults.sim";
};

TEST_F(DenseDrawerFaults, EveryFailedCallOfAWriteIsAnErrorAndTheDrawerGoesOn)
{
    // New chunks whole and in part, small and too large to be staged; then the same ones again.
    for (std::vector<std::int64_t> const& chunks : {std::vector<std::int64_t>{40, 90}, {2100, 1100}, {}}) {
        SCOPED_TRACE(chunks.size() + (chunks.empty() ? 0 : static_cast<std::size_t>(chunks[0])));
        std::mt19937_64 random(5);
        std::vector<Range> const ranges{{3, 85}, {0, 199}};
        std::vector<std::byte> const values = RandomBytes(random, 83 * 200 * 8);
        DrawerOracle oracle({100, 200}, std::vector<std::byte>(8));
        oracle.Write(ranges, values);
        std::shared_ptr<File> file;
        auto const prepare = [&] {
            unlink(m_path.c_str());
            file = File::Create(m_path, File::Kind::Persistent);
            auto drawer = DenseDrawer::Create(std::make_shared<FileAccess>(file), {{100, 200}, chunks, KVOSimDouble, {}});
            drawer->LinkTo(file->Hdf5(), "values");
            return drawer;
        };
        auto const write = [&](std::shared_ptr<DenseDrawer> const& drawer) { drawer->Write(ranges, values.data()); };
        auto const check = [&](std::shared_ptr<DenseDrawer>& drawer, bool, bool) {
            write(drawer);
            std::vector<std::byte> read(oracle.Values().size());
            drawer->Read(oracle.Everything(), read.data());
            EXPECT_TRUE(read == oracle.Values());
            drawer.reset();
            file->Close();
            file = File::Open(m_path, true);
            read.assign(read.size(), std::byte{});
            DenseDrawer::Open(std::make_shared<FileAccess>(file), file->Hdf5(), "values")->Read(oracle.Everything(), read.data());
            EXPECT_TRUE(read == oracle.Values());
        };
        EXPECT_GT(FailEachCall({{ENOSPC, 1, false}, {ENOSPC, 1, true}}, prepare, write, check), 0);
    }
}

TEST_F(DenseDrawerFaults, AFileCutShortGivesItsValuesOrAnError)
{
    auto file = File::Create(m_path, File::Kind::Persistent);
    std::vector<double> const values(64 * 64, 2.0);
    for (std::vector<std::int64_t> const& chunks : {std::vector<std::int64_t>{20, 30}, {}}) {
        auto const drawer = DenseDrawer::Create(std::make_shared<FileAccess>(file), {{64, 64}, chunks, KVOSimDouble, {}});
        drawer->Write(Ranges{{0, 63}, {0, 63}}, values.data());
        drawer->LinkTo(file->Hdf5(), chunks.empty() ? "contiguous" : "chunked");
    }
    file->Close();
    std::string const bytes = ReadFile(m_path);

    // Cut behind HDF5's back: it refuses to open a file that is too short.
    int failures = 0;
    for (std::size_t length = bytes.size(); length > 4096; length -= std::min<std::size_t>(length, 1021)) {
        WriteFile(m_path, bytes);
        file = File::Open(m_path, true);
        ASSERT_EQ(truncate(m_path.c_str(), static_cast<off_t>(length)), 0);
        for (char const* const name : {"chunked", "contiguous"})
            for (Ranges const& ranges : {Ranges{{0, 63}, {0, 63}}, Ranges{{0, 63}, {7, 9}}}) {
                std::vector<double> read(static_cast<std::size_t>(ranges[0].Count() * ranges[1].Count()));
                std::string const failure = FailureOf(
                    [&] { DenseDrawer::Open(std::make_shared<FileAccess>(file), file->Hdf5(), name)->Read(ranges, read.data()); });
                failures += failure != "no failure";
                EXPECT_TRUE(failure != "no failure" || read == std::vector<double>(read.size(), 2.0)) << length;
            }
        file->Close();
    }
    EXPECT_GT(failures, 100);
}

TEST_F(DenseDrawerFaults, RefusesWhatADrawerCannotBe)
{
    auto const file = File::Create(m_path, File::Kind::Scratch);
    auto const create = [&](std::vector<std::int64_t> const& sizes, std::vector<std::int64_t> const& chunks) {
        return FailureOf([&] { DenseDrawer::Create(std::make_shared<FileAccess>(file), {sizes, chunks, KVOSimDouble, {}}); });
    };
    EXPECT_THAT(create({}, {}), HasSubstr("1 to 32 dimensions"));
    EXPECT_THAT(create(std::vector<std::int64_t>(33, 1), {}), HasSubstr("1 to 32 dimensions"));
    EXPECT_THAT(create({INT64_MAX, 4}, {}), HasSubstr("too large"));
    EXPECT_EQ(create({1 << 20, 1 << 20}, {1 << 14, 1 << 14}), "no failure"); // a chunk of 2 GiB
    EXPECT_EQ(create({0, 5}, {2, 2}), "no failure");

    auto const drawer = DenseDrawer::Create(std::make_shared<FileAccess>(file), {{4, 6}, {3, 3}, KVOSimDouble, {}});
    std::vector<double> values(24, -1.0);
    for (Ranges const& ranges : {Ranges{{0, 3}}, Ranges{{0, 4}, {0, 5}}, Ranges{{-1, 2}, {0, 5}}, Ranges{{2, 1}, {0, 5}}}) {
        ExpectFailure("outside the drawer", [&] { drawer->Read(ranges, values.data()); });
        ExpectFailure("outside the drawer", [&] { drawer->Write(ranges, values.data()); });
        drawer->Announce(ranges);
    }
    EXPECT_THAT(values, testing::Each(-1.0));
}

// Lets this process have no file in memory, for a limit or want of pages.
void ForbidMemoryFiles(bool byLimit)
{
    rlimit const limit{std::size_t(200) << 10, RLIM_INFINITY};
    if (byLimit)
        setrlimit(RLIMIT_FSIZE, &limit);
    else
        SetCallFault({SystemCall::Change, 0, ENOSPC, INT64_MAX / 2});
}

// Initial values lie in a file in memory, which counts, and whose pages have to be had before they are touched.
TEST_F(DenseDrawerFaults, InitialValuesNeedNoFileInMemory)
{
    for (bool const byLimit : {true, false})
        for (double const initial : {0.0, 7.0}) {
            ChildProcess child([&] {
                std::array<std::byte, 8> value;
                std::memcpy(value.data(), &initial, sizeof initial);
                std::array<Range, 2> const all{Range{0, 2999}, Range{0, 999}};
                std::vector<double> values(3000000, -1.0);
                auto const file = File::Create(m_path, File::Kind::Scratch);
                auto const drawer =
                    DenseDrawer::Create(std::make_shared<FileAccess>(file), {{3000, 1000}, {1000, 1000}, KVOSimDouble, value});
                ForbidMemoryFiles(byLimit);
                drawer->Read(all, values.data());
                if (std::any_of(values.begin(), values.end(), [&](double v) { return v != initial; }))
                    return 3;
                std::ifstream mappings("/proc/self/maps");
                for (std::string line; std::getline(mappings, line);)
                    if (line.find("initial values") != std::string::npos)
                        return 4;
                return 0;
            });
            EXPECT_EQ(child.Wait(), 0) << byLimit << initial;
            unlink(m_path.c_str());
        }
}

} // namespace
