#include "SimWorkload.h"

#include <sys/resource.h>

namespace
{

using simdb::File;
using workload::CommitsIn;
using workload::FilePointer;

constexpr std::initializer_list<Fault> kFaults = {{ENOSPC, 1, false}, {ENOSPC, 1, true}, {EIO, INT64_MAX / 2, false}};

using SimFileFaults = workload::FileTest;

TEST_F(SimFileFaults, FailedCloseClosesAndKeepsTheLastCommit)
{
    auto const prepare = [&] {
        auto file = workload::NewDatabase(path, 2);
        workload::Change(file, 3);
        return file;
    };
    FailEachCall(
        kFaults, prepare, [](FilePointer const& file) { file->Close(); },
        [&](FilePointer const& file, bool threw, bool) {
            EXPECT_FALSE(file->IsOpen());
            int const commits = CommitsIn(path);
            EXPECT_EQ(CommitsIn(path, false), commits);
            EXPECT_TRUE(commits == 3 || (threw && commits == 2)) << commits;
        });
}

TEST_F(SimFileFaults, FailedCreationLeavesNoFile)
{
    auto const prepare = [&] {
        std::filesystem::remove(path);
        return FilePointer();
    };
    auto const create = [&](FilePointer& file) { file = File::Create(path, File::Kind::Persistent); };
    auto const check = [&](FilePointer const&, bool threw) { EXPECT_NE(std::filesystem::exists(path), threw); };
    // A disk that fails for good does not even remove a file.
    EXPECT_GT(FailEachCall({{ENOSPC, 1, false}, {ENOSPC, 1, true}}, prepare, create,
                           [&](FilePointer const& file, bool threw, bool) { check(file, threw); }),
              0);
    EXPECT_GT(FailEach(SystemCalls(SystemCall::Look), prepare, create, check), 1);
}

// A kill that left a journal to be applied, and then a disk on which even that fails.
TEST_F(SimFileFaults, FailedRecoveryLosesNothing)
{
    std::string const left = folder / "left.sim";
    workload::MakeUnapplied(left, 3);
    auto const prepare = [&] {
        for (char const* const end : {"", ".journal"})
            std::filesystem::copy_file(left + end, path + end, std::filesystem::copy_options::overwrite_existing);
        return FilePointer();
    };
    auto const open = [&](FilePointer& file) { file = File::Open(path, false); };
    auto const check = [&](FilePointer& file, bool, bool) {
        file.reset();
        EXPECT_EQ(CommitsIn(path, true), 3);
        EXPECT_EQ(CommitsIn(path, false), 3);
    };
    EXPECT_GT(FailEachCall(kFaults, prepare, open, check), 5);
}

// The kernel's own refusal; the signal that goes with it would end the process.
TEST_F(SimFileFaults, FileSizeLimitIsAFullDisk)
{
    for (auto const handler : {SIG_DFL, SIG_IGN}) {
        workload::NewDatabase(path, 2).reset();
        auto const length = std::filesystem::file_size(path);
        int result = 0;
        for (std::uintmax_t room = 0; result == 0; room += 3331) {
            SCOPED_TRACE(room);
            ChildProcess child([&] {
                std::signal(SIGXFSZ, handler);
                auto const limited = File::Open(path, false);
                rlimit const limit{length + room, RLIM_INFINITY}, none{RLIM_INFINITY, RLIM_INFINITY};
                setrlimit(RLIMIT_FSIZE, &limit);
                std::string const failure = FailureOf([&] { workload::Commit(limited, 3, 3); });
                if (failure == "no failure")
                    return 2; // there was room for it
                setrlimit(RLIMIT_FSIZE, &none);
                workload::Change(limited, 3);
                return failure.find("File too large") != failure.npos && workload::CheckedCommits(limited) == 3 ? 0 : 1;
            });
            result = child.Wait();
            EXPECT_TRUE(result == 0 || (result == 2 && room > 50000)) << result;
            EXPECT_EQ(CommitsIn(path, false), result == 2 ? 3 : 2);
        }
    }
}

} // namespace
