#include "ChildProcess.h"
#include "DrawerOracle.h"
#include "SimFailure.h"
#include "TemporaryFolder.h"

#include <sys/resource.h>

using simdb::DenseDrawer;
using simdb::DenseShape;
using simdb::File;

namespace
{

class DenseDrawerFaults : public testing::Test
{
protected:
    TemporaryFolder m_folder;
    std::string const m_path = m_folder / "faults.sim";
};

TEST_F(DenseDrawerFaults, EveryFailedCallOfAWriteIsAnErrorAndTheDrawerGoesOn)
{
    // New chunks whole and in part, small and too large to be staged; then the same ones again.
    for (Sizes const& chunks : {Sizes{40, 90}, {2100, 1100}, {}}) {
        SCOPED_TRACE(testing::PrintToString(chunks));
        std::mt19937_64 random(5);
        DenseShape const shape{{100, 200}, chunks};
        Ranges const ranges{{3, 85}, {0, 199}};
        DrawerBytes const values = RandomBytes(random, 83 * 200 * 8);
        DrawerOracle oracle(shape);
        oracle.Write(ranges, values);
        std::shared_ptr<File> file;
        auto const prepare = [&] {
            unlink(m_path.c_str());
            file = File::Create(m_path, File::Kind::Persistent);
            auto drawer = CreateDrawer(file, shape);
            drawer->LinkTo(file->Hdf5(), "values");
            return drawer;
        };
        auto const write = [&](std::shared_ptr<DenseDrawer> const& drawer) { drawer->Write(ranges, values.data()); };
        auto const expectSame = [&](DenseDrawer& drawer) {
            DrawerBytes read(oracle.Values().size());
            drawer.Read(oracle.Everything(), read.data());
            EXPECT_TRUE(read == oracle.Values());
        };
        auto const check = [&](std::shared_ptr<DenseDrawer>& drawer, bool, bool) {
            write(drawer);
            expectSame(*drawer);
            drawer.reset();
            file->Close();
            file = File::Open(m_path, true);
            expectSame(*OpenDrawer(file));
        };
        EXPECT_GT(FailEachCall({{ENOSPC, 1, false}, {ENOSPC, 1, true}}, prepare, write, check), 0);
    }
}

TEST_F(DenseDrawerFaults, AFileCutShortGivesItsValuesOrAnError)
{
    auto file = File::Create(m_path, File::Kind::Persistent);
    std::vector<double> const values(64 * 64, 2.0);
    for (Sizes const& chunks : {Sizes{20, 30}, {}}) {
        auto const drawer = CreateDrawer(file, {{64, 64}, chunks});
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
                bool const failed = FailureOf([&] { OpenDrawer(file, name)->Read(ranges, read.data()); }) != "no failure";
                failures += failed;
                EXPECT_TRUE(failed || read == std::vector<double>(read.size(), 2.0)) << length;
            }
        file->Close();
    }
    EXPECT_GT(failures, 100);
}

TEST_F(DenseDrawerFaults, RefusesWhatADrawerCannotBe)
{
    auto const file = File::Create(m_path, File::Kind::Scratch);
    for (auto const& [shape, failure] : {std::pair<DenseShape, char const*>{{}, "1 to 32 dimensions"},
                                         {{Sizes(33, 1), {}}, "1 to 32 dimensions"},
                                         {{{INT64_MAX, 4}, {}}, "too large"},
                                         {{{1 << 20, 1 << 20}, {1 << 14, 1 << 14}}, "no failure"}, // a chunk of 2 GiB
                                         {{{0, 5}, {2, 2}}, "no failure"}}) {
        std::string const text = FailureOf([&, &asked = shape] { CreateDrawer(file, asked); });
        EXPECT_THAT(text, testing::HasSubstr(failure));
    }

    auto const drawer = CreateDrawer(file, {{4, 6}, {3, 3}});
    std::vector<double> values(24, -1.0);
    for (Ranges const& ranges : {Ranges{{0, 3}}, Ranges{{0, 4}, {0, 5}}, Ranges{{-1, 2}, {0, 5}}, Ranges{{2, 1}, {0, 5}}}) {
        ExpectFailure("outside the drawer", [&] { drawer->Read(ranges, values.data()); });
        ExpectFailure("outside the drawer", [&] { drawer->Write(ranges, values.data()); });
        drawer->Announce(ranges);
    }
    EXPECT_THAT(values, testing::Each(-1.0));
    auto const longest = CreateDrawer(file, {{INT64_MAX - 1}, {std::int64_t(1) << 31}, KVOSimInt8, {std::byte{'x'}}});
    std::string end(3, '?');
    longest->Read(Ranges{{INT64_MAX - 4, INT64_MAX - 2}}, end.data());
    EXPECT_EQ(end, "xxx");
}

// Initial values lie in a file in memory, which counts, and whose pages have to be had before they are touched. No such file can be made
// under a limit, or for want of pages.
TEST_F(DenseDrawerFaults, InitialValuesNeedNoFileInMemory)
{
    for (bool const byLimit : {true, false})
        for (double const initial : {0.0, 7.0}) {
            ChildProcess child([&] {
                DenseShape shape{{3000, 1000}, {1000, 1000}};
                std::memcpy(shape.initialValue.data(), &initial, sizeof initial);
                std::vector<double> values(3000000, -1.0);
                auto const file = File::Create(m_path, File::Kind::Scratch);
                auto const drawer = CreateDrawer(file, shape);
                rlimit const limit{std::size_t(200) << 10, RLIM_INFINITY};
                if (byLimit)
                    setrlimit(RLIMIT_FSIZE, &limit);
                else
                    SetCallFault({SystemCall::Change, 0, ENOSPC, INT64_MAX / 2});
                drawer->Read(Ranges{{0, 2999}, {0, 999}}, values.data());
                if (std::any_of(values.begin(), values.end(), [&](double v) { return v != initial; }))
                    return 3;
                return ReadFile("/proc/self/maps").find("initial values") != std::string::npos ? 4 : 0;
            });
            EXPECT_EQ(child.Wait(), 0) << byLimit << initial;
            unlink(m_path.c_str());
        }
}

} // namespace
