#include "DenseDrawer.h"
#include "DrawerOracle.h"
#include "KVOSimException.h"
#include "KVOSimFaults.h"
#include "KVOSimTypeKey.h"
#include "TemporaryFolder.h"

#include <cerrno>
#include <functional>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <unistd.h>

using simdb::DenseDrawer;
using simdb::DenseShape;
using simdb::File;
using simdb::Range;
using testing::AllOf;
using testing::HasSubstr;

namespace
{

using Ranges = std::vector<Range>;

std::string Failure(std::function<void()> const& call)
{
    try {
        call();
    } catch (KVOSimException const& e) {
        return e.AsString().c_str();
    }
    return "";
}

class DenseDrawerFaults : public testing::Test
{
protected:
    ~DenseDrawerFaults() override { KVOSimFaults::Disarm(); }

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
        bool failed = true;
        for (std::int64_t successes = 0; failed && successes < 100; ++successes) {
            SCOPED_TRACE(successes);
            unlink(m_path.c_str());
            auto file = File::Create(m_path, File::Kind::Persistent);
            auto drawer = DenseDrawer::Create(file, {{100, 200}, chunks, KVOSimDouble, {}});
            DrawerOracle oracle({100, 200}, std::vector<std::byte>(8));
            drawer->LinkTo(file->Hdf5(), "values");

            KVOSimFaults::FailAfter(successes, ENOSPC, 1, successes % 2 == 1);
            std::string const failure = Failure([&] { drawer->Write(ranges, values.data()); });
            KVOSimFaults::Disarm();

            failed = !failure.empty();
            EXPECT_TRUE(!failed || (failure.find(m_path) != failure.npos && failure.find("No space left on device") != failure.npos))
                << failure;
            EXPECT_EQ(Failure([&] { drawer->Write(ranges, values.data()); }), "");
            oracle.Write(ranges, values);
            std::vector<std::byte> read(oracle.Values().size());
            drawer->Read(oracle.Everything(), read.data());
            EXPECT_TRUE(read == oracle.Values());
            drawer.reset();
            file->Close();
            file = File::Open(m_path, true);
            read.assign(read.size(), std::byte{});
            DenseDrawer::Open(file, file->Hdf5(), "values")->Read(oracle.Everything(), read.data());
            EXPECT_TRUE(read == oracle.Values());
        }
        EXPECT_FALSE(failed) << "every number of calls was too small";
    }
}

TEST_F(DenseDrawerFaults, AFullDiskIsAnErrorAndNotASignal)
{
    auto const file = File::Create(m_path, File::Kind::Scratch);
    rlimit old;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    for (std::vector<std::int64_t> const& chunks : {std::vector<std::int64_t>{512, 512}, {}}) {
        auto const drawer = DenseDrawer::Create(file, {{1024, 1024}, chunks, KVOSimDouble, {}});
        std::vector<double> const values(1024 * 1024, 1.0), column(1024, 1.0);
        rlimit limit = old;
        limit.rlim_cur = 1 << 20;

        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        std::string const whole = Failure([&] { drawer->Write(Ranges{{0, 1023}, {0, 1023}}, values.data()); });
        std::string const part = Failure([&] { drawer->Write(Ranges{{0, 1023}, {700, 700}}, column.data()); });
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);

        EXPECT_THAT(whole, HasSubstr("File too large"));
        EXPECT_THAT(part, HasSubstr("File too large"));
        EXPECT_EQ(Failure([&] { drawer->Write(Ranges{{0, 1023}, {0, 1023}}, values.data()); }), "");
    }
}

TEST_F(DenseDrawerFaults, AFileCutShortGivesItsValuesOrAnError)
{
    auto file = File::Create(m_path, File::Kind::Persistent);
    std::vector<double> values(64 * 64, 2.0), window(64 * 3);
    for (char const* const name : {"chunked", "contiguous"}) {
        auto const drawer = DenseDrawer::Create(
            file, {{64, 64}, name[1] == 'h' ? std::vector<std::int64_t>{20, 30} : std::vector<std::int64_t>{}, KVOSimDouble, {}});
        drawer->Write(Ranges{{0, 63}, {0, 63}}, values.data());
        drawer->LinkTo(file->Hdf5(), name);
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
                std::string const failure = Failure([&] { DenseDrawer::Open(file, file->Hdf5(), name)->Read(ranges, read.data()); });
                failures += !failure.empty();
                EXPECT_TRUE(!failure.empty() || read == std::vector<double>(read.size(), 2.0)) << length;
            }
        file->Close();
    }
    EXPECT_GT(failures, 100);
}

TEST_F(DenseDrawerFaults, RefusesWhatADrawerCannotBe)
{
    auto const file = File::Create(m_path, File::Kind::Scratch);
    auto const create = [&](std::vector<std::int64_t> sizes, std::vector<std::int64_t> chunks) {
        return Failure([&] { DenseDrawer::Create(file, {std::move(sizes), std::move(chunks), KVOSimDouble, {}}); });
    };
    EXPECT_THAT(create({}, {}), HasSubstr("1 to 32 dimensions"));
    EXPECT_THAT(create(std::vector<std::int64_t>(33, 1), {}), HasSubstr("1 to 32 dimensions"));
    EXPECT_THAT(create({10, 10}, {4}), HasSubstr("one chunk size per dimension"));
    EXPECT_THAT(create({10, 10}, {4, 0}), HasSubstr("1 or more values"));
    EXPECT_THAT(create({1 << 20, 1 << 20}, {1 << 15, 1 << 14}), HasSubstr("less than 4 GiB"));
    EXPECT_THAT(create({INT64_MAX, 4}, {}), HasSubstr("too large"));
    EXPECT_EQ(create({1 << 20, 1 << 20}, {1 << 14, 1 << 14}), ""); // a chunk of 2 GiB
    EXPECT_EQ(create({0, 5}, {2, 2}), "");

    auto const drawer = DenseDrawer::Create(file, {{4, 6}, {3, 3}, KVOSimDouble, {}});
    std::vector<double> const untouched(24, -1.0);
    std::vector<double> values = untouched;
    for (Ranges const& ranges : {Ranges{{0, 3}}, Ranges{{0, 4}, {0, 5}}, Ranges{{-1, 2}, {0, 5}}, Ranges{{2, 1}, {0, 5}}}) {
        EXPECT_THAT(Failure([&] { drawer->Read(ranges, values.data()); }), HasSubstr("outside the drawer"));
        EXPECT_THAT(Failure([&] { drawer->Write(ranges, values.data()); }), HasSubstr("outside the drawer"));
        drawer->Announce(ranges);
    }
    EXPECT_EQ(values, untouched);
    EXPECT_THAT(Failure([&] { drawer->Resize(2, 1); }), HasSubstr("no such dimension"));
    EXPECT_THAT(Failure([&] { drawer->Resize(0, -1); }), HasSubstr("too large"));
}

TEST_F(DenseDrawerFaults, RefusesAnotherProgramsDatasets)
{
    auto const file = File::Create(m_path, File::Kind::Scratch);
    hsize_t const size = 4;
    simdb::Hid const space(H5Screate_simple(1, &size, nullptr)), scalar(H5Screate(H5S_SCALAR)), compact(H5Pcreate(H5P_DATASET_CREATE));
    H5Pset_layout(compact, H5D_COMPACT);
    simdb::Hid const made[] = {
        simdb::Hid(H5Dcreate2(file->Hdf5(), "short", H5T_STD_I16LE, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)),
        simdb::Hid(H5Dcreate2(file->Hdf5(), "big", H5T_IEEE_F64BE, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)),
        simdb::Hid(H5Dcreate2(file->Hdf5(), "scalar", H5T_IEEE_F64LE, scalar, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)),
        simdb::Hid(H5Dcreate2(file->Hdf5(), "compact", H5T_IEEE_F64LE, space, H5P_DEFAULT, compact, H5P_DEFAULT))};
    auto const open = [&](char const* name) { return Failure([&] { DenseDrawer::Open(file, file->Hdf5(), name); }); };
    EXPECT_THAT(open("missing"), AllOf(HasSubstr("Cannot open a dense drawer of"), HasSubstr(m_path)));
    EXPECT_THAT(open("short"), HasSubstr("\"short\" has a type that drawers don't have"));
    EXPECT_THAT(open("big"), HasSubstr("type"));
    EXPECT_THAT(open("scalar"), HasSubstr("no dimension"));
    EXPECT_THAT(open("compact"), HasSubstr("neither chunked nor contiguous"));
}

TEST_F(DenseDrawerFaults, LeavesAReadOnlyAndAClosedFileAlone)
{
    auto file = File::Create(m_path, File::Kind::Persistent);
    auto drawer = DenseDrawer::Create(file, {{4}, {2}, KVOSimDouble, {}});
    drawer->LinkTo(file->Hdf5(), "values");
    double values[4] = {1, 2, 3, 4};
    drawer->Write(Ranges{{0, 1}}, values);
    file->Close();
    std::string const bytes = ReadFile(m_path);
    EXPECT_THAT(Failure([&] { drawer->Read(Ranges{{0, 3}}, values); }), HasSubstr("closed"));

    file = File::Open(m_path, true);
    drawer = DenseDrawer::Open(file, file->Hdf5(), "values");
    EXPECT_THAT(Failure([&] { drawer->Write(Ranges{{0, 3}}, values); }), HasSubstr("reading only"));
    EXPECT_THAT(Failure([&] { drawer->Resize(0, 9); }), HasSubstr("reading only"));
    drawer->Read(Ranges{{0, 3}}, values);
    EXPECT_THAT(values, testing::ElementsAre(1, 2, 0, 0));
    file->Close();
    EXPECT_EQ(ReadFile(m_path), bytes);
}

} // namespace
