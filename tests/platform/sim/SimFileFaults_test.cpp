#include "ChildProcess.h"
#include "KVOSimException.h"
#include "KVOSimFaults.h"
#include "SimFile.h"
#include "SimWorkload.h"
#include "TemporaryFolder.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <vector>

namespace
{

using simdb::File;

struct Fault {
    int error;
    std::int64_t times;
    bool torn;
};
constexpr Fault kFaults[] = {{ENOSPC, 1, false}, {ENOSPC, 1, true}, {EIO, INT64_MAX / 2, false}};

int CommitsIn(std::string const& path, bool readOnly)
{
    return workload::CheckedCommits(*File::Open(path, readOnly));
}

/// Lets each call of `run` that changes a file fail in turn, after `prepare`, and gives `check` what came of it.
template<class Prepare, class Run, class Check>
void FailEachCall(Prepare const& prepare, Run const& run, Check const& check)
{
    for (Fault const& fault : kFaults)
        for (int call = 0;; ++call) {
            SCOPED_TRACE("call " + std::to_string(call) + (fault.torn ? ", torn: " : ": ") + std::strerror(fault.error));
            auto file = prepare();
            bool threw = false;
            KVOSimFaults::FailAfter(call, fault.error, fault.times, fault.torn);
            try {
                run(file);
            } catch (KVOSimException const& exception) {
                threw = true;
                EXPECT_NE(std::string(exception.AsString().c_str()).find(std::strerror(fault.error)), std::string::npos)
                    << exception.AsString().c_str();
            }
            bool const reached = KVOSimFaults::Calls() > call;
            KVOSimFaults::Disarm();
            check(file, threw, fault.times > 1);
            if (!reached || testing::Test::HasFailure())
                break;
        }
}

std::shared_ptr<File> TwoCommits(TemporaryFolder const& folder)
{
    std::string const path = folder / "a.sim";
    std::filesystem::remove(path);
    std::filesystem::remove(path + ".journal");
    auto file = File::Create(path, File::Kind::Persistent);
    for (int number = 1; number <= 2; ++number) {
        workload::Change(*file, number);
        file->Commit();
    }
    return file;
}

TEST(SimFileFaults, FailedCommitLeavesTheLastOneAndCanBeTriedAgain)
{
    TemporaryFolder const folder(workload::FolderWithoutDisk());
    std::string const path = folder / "a.sim";
    int failures = 0;
    auto const change = [](std::shared_ptr<File> const& file) {
        workload::Change(*file, 3);
        file->Commit();
    };
    FailEachCall([&] { return TwoCommits(folder); }, change,
                 [&](std::shared_ptr<File>& file, bool threw, bool lasting) {
                     failures += threw;
                     file.reset(); // without trying again
                     int const commits = CommitsIn(path, true);
                     // On a disk that fails for good, the journal may be complete and impossible to take back.
                     EXPECT_TRUE(commits == (threw ? 2 : 3) || (commits == 3 && lasting)) << commits;
                     EXPECT_EQ(CommitsIn(path, false), commits);
                 });
    EXPECT_GT(failures, 20);
    FailEachCall([&] { return TwoCommits(folder); }, change,
                 [&](std::shared_ptr<File>& file, bool, bool) {
                     workload::Change(*file, 3); // what HDF5 itself could not write is not in memory
                     EXPECT_EQ(workload::CheckedCommits(*file), 3);
                     file->Commit();
                     workload::Change(*file, 4);
                     file->Close();
                     EXPECT_EQ(CommitsIn(path, true), 4);
                 });
}

TEST(SimFileFaults, FailedCloseClosesAndKeepsTheLastCommit)
{
    TemporaryFolder const folder(workload::FolderWithoutDisk());
    std::string const path = folder / "a.sim";
    FailEachCall(
        [&] {
            auto file = TwoCommits(folder);
            workload::Change(*file, 3);
            return file;
        },
        [](std::shared_ptr<File> const& file) { file->Close(); },
        [&](std::shared_ptr<File> const& file, bool threw, bool) {
            EXPECT_FALSE(file->IsOpen());
            int const commits = CommitsIn(path, true);
            EXPECT_EQ(CommitsIn(path, false), commits);
            EXPECT_TRUE(commits == 3 || (threw && commits == 2)) << commits;
        });
}

TEST(SimFileFaults, FailedCreationLeavesNoFile)
{
    TemporaryFolder const folder(workload::FolderWithoutDisk());
    std::string const path = folder / "a.sim";
    int failures = 0;
    FailEachCall(
        [&] {
            std::filesystem::remove(path);
            return std::shared_ptr<File>();
        },
        [&](std::shared_ptr<File>& file) { file = File::Create(path, File::Kind::Persistent); },
        [&](std::shared_ptr<File> const&, bool threw, bool) {
            failures += threw;
            EXPECT_NE(std::filesystem::exists(path), threw);
        });
    EXPECT_GT(failures, 0);
}

// A kill that left a journal to be applied, and then a disk on which even that fails.
TEST(SimFileFaults, FailedRecoveryLosesNothing)
{
    TemporaryFolder const folder(workload::FolderWithoutDisk()), killed(workload::FolderWithoutDisk());
    std::string const path = folder / "a.sim", left = killed / "a.sim";
    auto const copy = [](std::string const& from, std::string const& to) {
        for (char const* const end : {"", ".journal"})
            if (std::filesystem::exists(from + end))
                std::filesystem::copy_file(from + end, to + end, std::filesystem::copy_options::overwrite_existing);
    };
    TwoCommits(folder).reset();
    // The first call at which the journal of the third commit counts.
    for (int call = 0; !std::filesystem::exists(left) || CommitsIn(left, true) < 3; ++call) {
        std::filesystem::remove(left + ".journal");
        copy(path, left);
        ChildProcess child([&] {
            auto const file = File::Open(left, false);
            workload::Change(*file, 3);
            KVOSimFaults::KillAfter(call);
            file->Commit();
            return 0;
        });
        ASSERT_EQ(child.Wait(), -SIGKILL);
    }

    int failures = 0;
    FailEachCall(
        [&] {
            copy(left, path);
            return std::shared_ptr<File>();
        },
        [&](std::shared_ptr<File>& file) { file = File::Open(path, false); },
        [&](std::shared_ptr<File>& file, bool threw, bool) {
            failures += threw;
            file.reset();
            EXPECT_EQ(CommitsIn(path, true), 3);
            EXPECT_EQ(CommitsIn(path, false), 3);
        });
    EXPECT_GT(failures, 5);
}

// The kernel's own refusal; the signal that goes with it would end the process.
TEST(SimFileFaults, FileSizeLimitIsAFullDisk)
{
    TemporaryFolder const folder(workload::FolderWithoutDisk());
    std::string const path = folder / "a.sim";
    for (auto const handler : {SIG_DFL, SIG_IGN}) {
        auto file = TwoCommits(folder);
        file->Close();
        auto const length = std::filesystem::file_size(path);
        for (std::uintmax_t room = 0; room < 80000; room += 3331) {
            SCOPED_TRACE(room);
            ChildProcess child([&] {
                std::signal(SIGXFSZ, handler);
                auto const limited = File::Open(path, false);
                rlimit const limit{length + room, RLIM_INFINITY};
                setrlimit(RLIMIT_FSIZE, &limit);
                try {
                    workload::Change(*limited, 3);
                    limited->Commit();
                } catch (KVOSimException const& exception) {
                    rlimit const none{RLIM_INFINITY, RLIM_INFINITY};
                    setrlimit(RLIMIT_FSIZE, &none);
                    if (std::string(exception.AsString().c_str()).find("File too large") == std::string::npos)
                        return 1;
                    workload::Change(*limited, 3);
                    return workload::CheckedCommits(*limited) == 3 ? 0 : 1;
                }
                return 2; // there was room for it
            });
            int const result = child.Wait();
            EXPECT_TRUE(result == 0 || (result == 2 && room > 50000)) << result;
            EXPECT_EQ(CommitsIn(path, false), result == 2 ? 3 : 2);
            if (result == 2)
                break;
        }
    }
}

} // namespace
