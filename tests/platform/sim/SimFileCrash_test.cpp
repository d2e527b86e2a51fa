#include "SimWorkload.h"

#include <chrono>
#include <map>
#include <random>
#include <thread>

namespace
{

using simdb::File;

/// A program that makes a database, commits, closes it, opens it again and commits more. Tells `report` of each commit that returned.
template<class Report>
void RunProgram(std::string const& path, Report const& report)
{
    for (int const first : {1, 4}) {
        auto const file = first == 1 ? File::Create(path, File::Kind::Persistent) : File::Open(path, false);
        for (int number = first; number < first + 3; ++number) {
            workload::Commit(file, number, number);
            report(number);
        }
        file->Close();
    }
}

/// The commits that are whole in the file; 0 also for a file to which nothing was ever committed.
int CommitsIn(std::string const& path, bool readOnly)
{
    int commits = 0;
    EXPECT_THAT(FailureOf([&] { commits = workload::CommitsIn(path, readOnly); }),
                testing::ContainsRegex("no failure|nothing was ever committed|it is empty|No such file"));
    return commits;
}

std::string BytesOf(std::string const& path)
{
    return std::filesystem::exists(path) ? ReadFile(path) : "";
}

/// A reader, which writes nothing, and then a writer see the same, at least what was reported and at most one commit more; and the work can
/// go on.
void ExpectWhole(std::string const& path, int reported)
{
    std::string const bytes = BytesOf(path), journal = BytesOf(path + ".journal");
    int const commits = CommitsIn(path, true);
    EXPECT_TRUE(BytesOf(path) == bytes && BytesOf(path + ".journal") == journal);
    EXPECT_GE(commits, reported);
    EXPECT_LE(commits, reported + 1);
    EXPECT_EQ(CommitsIn(path, false), commits);
    if (commits == 0)
        return;
    auto const file = File::Open(path, false);
    workload::Change(file, commits + 1);
    file->Close();
    EXPECT_EQ(CommitsIn(path, true), commits + 1);
}

using SimFileCrash = workload::FileTest;

TEST_F(SimFileCrash, KilledAtEveryCall)
{
    int kills = 0;
    for (bool const torn : {false, true})
        for (int call = 0;; ++call) {
            SCOPED_TRACE("call " + std::to_string(call) + (torn ? ", torn" : ""));
            std::filesystem::remove(path);
            std::filesystem::remove(journal);
            Reports reports;
            ChildProcess child([&] {
                KillAtChange(call, torn);
                RunProgram(path, [&](int number) { reports.Send(number); });
                return 0;
            });
            int const end = child.Wait();
            ExpectWhole(path, reports.Last());
            if (end == 0 || HasFailure())
                break;
            ASSERT_EQ(end, -SIGKILL);
            ++kills;
        }
    std::printf("%d kills\n", kills);
    EXPECT_GT(kills, 150);
}

// As often as KVO_CRASH_ROUNDS says; docs/reliability.md has the figures of a long run.
TEST_F(SimFileCrash, KilledAtRandomMoments)
{
    char const* const variable = std::getenv("KVO_CRASH_ROUNDS");
    if (variable == nullptr)
        GTEST_SKIP() << "KVO_CRASH_ROUNDS says no number of rounds";
    int const rounds = std::atoi(variable);
    std::mt19937_64 random(4711);
    long committed = 0;
    for (int round = 0; round < rounds && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        std::filesystem::remove(path);
        std::filesystem::remove(journal);
        Reports reports;
        ChildProcess child([&] {
            auto const file = File::Create(path, File::Kind::Persistent);
            for (int number = 1;; ++number) {
                workload::Commit(file, number, number);
                reports.Send(number);
            }
            return 0;
        });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
        child.Kill();
        int const reported = reports.Last();
        committed += reported;
        ExpectWhole(path, reported);
    }
    std::printf("%d kills, %ld commits\n", rounds, committed);
}

/// What a disk has of the files when the power goes: what was synced, and any part of what came after.
class Disk : public FileObserver
{
public:
    explicit Disk(std::string folder) : m_folder(std::move(folder)) {}

    /// The last commit that has returned, and the number of times that the power went.
    int reported = 0;
    int failures = 0;

    void OnWrite(int descriptor, void const* data, std::size_t bytes, std::uint64_t offset) override
    {
        Blackout();
        auto const* const begin = static_cast<char const*>(data);
        // A disk writes sectors; each is written or not.
        for (std::size_t at = 0, count = 0; at < bytes; at += count) {
            count = std::min(bytes - at, kSector - (offset + at) % kSector);
            FileAt(descriptor).unsynced.push_back({offset + at, {begin + at, count}, 0});
        }
    }
    void OnSync(int descriptor) override
    {
        Blackout();
        Content& file = FileAt(descriptor);
        for (Change const& change : file.unsynced)
            Make(file.synced, change);
        file.unsynced.clear();
    }
    void OnLength(int descriptor, std::uint64_t length) override
    {
        Blackout();
        FileAt(descriptor).unsynced.push_back({0, {}, length});
    }
    void OnRemove(char const* path) override
    {
        Blackout();
        if (m_random() % 2 == 0) // or the removal never reaches the disk
            m_files.erase(std::filesystem::path(path).filename());
    }

private:
    static constexpr std::size_t kSector = 512;
    struct Change {
        std::uint64_t offset;
        std::string bytes;
        std::uint64_t length; // a change of the length, where it is not 0
    };
    struct Content {
        std::string synced;
        std::vector<Change> unsynced;
    };

    static void Make(std::string& content, Change const& change)
    {
        if (change.length != 0)
            content.resize(change.length);
        else if (content.size() < change.offset + change.bytes.size())
            content.resize(change.offset + change.bytes.size());
        content.replace(change.offset, change.bytes.size(), change.bytes);
    }
    Content& FileAt(int descriptor)
    {
        return m_files[std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).filename()];
    }
    void Blackout()
    {
        if (testing::Test::HasFailure())
            return;
        fileObserver = nullptr;
        for (int share : {0, 50, 90, 100}) { // of the changes that reach the disk, in per cent
            for (char const* const name : {"a.sim", "a.sim.journal"}) {
                std::filesystem::remove(m_folder + name);
                if (!m_files.contains(name))
                    continue;
                std::string content = m_files[name].synced;
                for (Change const& change : m_files[name].unsynced)
                    if (static_cast<int>(m_random() % 100) < share)
                        Make(content, change);
                WriteFile(m_folder + name, content);
            }
            ++failures;
            SCOPED_TRACE("power failure " + std::to_string(failures));
            EXPECT_EQ(FailureOf([&] { ExpectWhole(m_folder + "a.sim", reported); }),
                      "no failure"); // the calls that are watched are noexcept
        }
        fileObserver = this;
    }

    std::string m_folder;
    std::map<std::string, Content> m_files;
    std::mt19937_64 m_random{99};
};

TEST_F(SimFileCrash, PowerFailureAtEveryCall)
{
    TemporaryFolder const afterwards(FolderWithoutDisk());
    Disk disk(afterwards / "");
    fileObserver = &disk;
    RunProgram(path, [&](int number) { disk.reported = number; });
    fileObserver = nullptr;
    std::printf("%d power failures\n", disk.failures);
    EXPECT_GT(disk.failures, 300);
}

} // namespace
