#include "SimWorkload.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace
{

using simdb::File;
using simdb::Hid;
using testing::EndsWith;
using testing::HasSubstr;
using workload::CommitsIn;
using workload::NewDatabase;

std::string FailureOfOpening(std::string const& path, bool readOnly)
{
    return FailureOf([&] { File::Open(path, readOnly); });
}

using SimFile = workload::FileTest;

TEST_F(SimFile, KeepsWhatWasCommittedAndNothingElse)
{
    auto file = File::Create(path, File::Kind::Scratch);
    workload::Commit(file, 1, 1); // a commit is nothing there
    EXPECT_EQ(workload::CheckedCommits(file), 1);
    file->Close();
    for (bool const scratch : {true, false}) {
        if (!scratch)
            workload::Change(File::Create(path, File::Kind::Persistent), 1);
        for (bool const readOnly : {true, false})
            EXPECT_THAT(FailureOfOpening(path, readOnly),
                        EndsWith(": nothing was ever committed to it, it holds nothing and can be removed."));
        EXPECT_FALSE(std::filesystem::exists(journal));
        std::filesystem::remove(path);
    }

    file = NewDatabase(path, 1);
    workload::Change(file, 2);
    EXPECT_EQ(workload::CheckedCommits(file), 2) << "what is not committed yet can be read";
    file.reset();
    EXPECT_EQ(CommitsIn(path), 1) << "closing without Close() does not commit";
    file = File::Open(path, false);
    workload::Change(file, 2);
    file->Close();
    EXPECT_FALSE(file->IsOpen());
    file->Close();
    EXPECT_THAT(FailureOf([&] { file->Commit(); }), EndsWith(": it is closed."));
    EXPECT_FALSE(std::filesystem::exists(journal));

    std::string const before = ReadFile(path);
    for (bool const readOnly : {true, false}) {
        EXPECT_EQ(CommitsIn(path, readOnly), 2);
        File::Open(path, readOnly)->Close();
    }
    EXPECT_TRUE(ReadFile(path) == before) << "opening and closing changes nothing";
}

TEST_F(SimFile, OneWriterOrSeveralReaders)
{
    NewDatabase(path, 1).reset();
    auto const expectRefused = [&](char const* reason, bool readOnly) {
        std::string const text = "Cannot open the database " + path + ": it is open for " + reason + " elsewhere.";
        EXPECT_EQ(FailureOfOpening(path, readOnly), text);
        EXPECT_EQ(ChildProcess([&] { return FailureOfOpening(path, readOnly) == text ? 0 : 1; }).Wait(), 0);
    };

    for (char const* const variable : {"TRUE", "FALSE", "BEST_EFFORT"}) {
        SCOPED_TRACE(variable);
        setenv("HDF5_USE_FILE_LOCKING", variable, 1);
        {
            auto const writer = File::Open(path, false);
            expectRefused("writing", false);
            expectRefused("writing", true);
        }
        auto const reader = File::Open(path, true), another = File::Open(path, true);
        EXPECT_EQ(workload::CheckedCommits(another), 1);
        EXPECT_THAT(FailureOf([&] { reader->Commit(); }), EndsWith(": the database is open for reading only."));
        expectRefused("reading", false);
    }
    unsetenv("HDF5_USE_FILE_LOCKING");
}

// What programs act on, and what people read; the journal is a file of its own.
TEST_F(SimFile, RefusalsSayWhichFileOfWhatKindAndWhy)
{
    using enum KVOSimException::Kind;
    struct Refusal {
        KVOSimException::Kind kind;
        std::string of, why;
    };
    std::string const text = folder / "text", pipe = folder / "pipe", cut = folder / "cut.sim", other = folder / "other.sim",
                      missing = folder / "missing/a.sim", others = other + ".journal";
    WriteFile(text, "This is no database, and it is long enough to have been one, had somebody cared to write it as that.\n");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    workload::MakeUnapplied(path, 2);
    NewDatabase(other, 1).reset();
    std::filesystem::rename(journal, others);
    std::string const left = ReadFile(others), before = ReadFile(other);
    NewDatabase(cut, 1).reset();
    WriteFile(cut, ReadFile(cut).substr(0, 1000));
    auto file = NewDatabase(path, 1);
    auto const expect = [](Refusal const& refusal, auto const& run) {
        try {
            run();
            ADD_FAILURE() << refusal.of;
        } catch (KVOSimException const& failure) {
            EXPECT_THAT(failure.AsString().c_str(), HasSubstr(refusal.why));
            KVOSimDebugOutString words;
            failure.Write(words << "Words: ");
            EXPECT_TRUE(failure.Path() == refusal.of && words.Path() == refusal.of) << refusal.of;
            EXPECT_TRUE(failure.FailureKind() == refusal.kind && words.FailureKind() == refusal.kind) << refusal.of;
        }
    };
    for (bool const readOnly : {true, false})
        for (Refusal const& refusal : {Refusal{NotFound, missing, "missing/a.sim: No such file or directory."},
                                       {NotFound, "", "No such file or directory"},
                                       {Foreign, text, "text: it is no database."},
                                       {Foreign, pipe, "pipe: it is no regular file."},
                                       {Foreign, folder / "", readOnly ? ": it is a folder." : ": Is a directory."},
                                       {Damaged, cut, "it was cut short: 1000 of "},
                                       {InUse, path, ": it is open for writing elsewhere."}})
            expect(refusal, [&] { File::Open(refusal.of, readOnly); });
    for (Refusal const& refusal :
         {Refusal{NotFound, missing, ": its folder does not exist."}, {Exists, path, ": a file of that name exists."}})
        expect(refusal, [&] { File::Create(refusal.of, File::Kind::Persistent); });

    EXPECT_EQ(CommitsIn(other), 1) << "a reader leaves the journal of another file alone";
    expect({Damaged, other, "other.sim.journal is the journal of another database"}, [&] { File::Open(other, false); });
    EXPECT_TRUE(ReadFile(other) == before && ReadFile(others) == left);
    WriteFile(others, left.substr(0, left.size() - 1)); // a torn one says nothing
    EXPECT_EQ(CommitsIn(other, false), 1);

    SetCallFault({SystemCall::Change, 0, ENOSPC});
    expect({NoSpace, path, "No space left"}, [&] { workload::Commit(file, 2, 3); });
    SetCallFault({});
    file->Close();
    expect({Misuse, path, ": it is closed."}, [&] { file->Commit(); });
    std::filesystem::create_symlink("a.sim.journal", journal);
    expect({System, journal, ""}, [&] { File::Open(path, true); });
}

TEST_F(SimFile, RefusesEveryTruncatedLength)
{
    constexpr std::size_t kSuperblock = 48;
    NewDatabase(path, 1).reset();
    std::string const whole = ReadFile(path);
    for (std::size_t length = 0; length < whole.size(); length += length < 300 ? 1 : 997) {
        WriteFile(path, whole.substr(0, length));
        std::string const why = length < kSuperblock ? "" : "it was cut short: " + std::to_string(length) + " of ";
        for (bool const readOnly : {true, false})
            EXPECT_THAT(FailureOfOpening(path, readOnly),
                        HasSubstr("Cannot open the database " + path + ": " + (length == 0 ? "it is empty" : why)));
    }
}

TEST_F(SimFile, FindsItsJournalWhateverNameItIsOpenedBy)
{
    std::string const link = folder / "elsewhere/link.sim";
    std::filesystem::create_directory(folder / "elsewhere");
    std::filesystem::create_symlink(path, link);
    NewDatabase(path, 1).reset();
    auto const previous = std::filesystem::current_path();
    for (int commits = 1; commits <= 2; ++commits) {
        std::filesystem::current_path(folder / "");
        auto const file = File::Open(commits == 1 ? "a.sim" : link, false);
        std::filesystem::current_path(previous);
        workload::Commit(file, commits + 1, commits + 1);
        EXPECT_TRUE(std::filesystem::exists(journal));
        file->Close();
        EXPECT_FALSE(std::filesystem::exists(journal));
    }
    EXPECT_EQ(CommitsIn(link), 3);
}

TEST_F(SimFile, NoPermission)
{
    NewDatabase(path, 1).reset();
    chmod((folder / "").c_str(), 0555);
    chmod(path.c_str(), 0444);
    ChildProcess child([&] {
        if (geteuid() == 0 && setuid(65534) != 0) // root may do anything
            return 2;
        EXPECT_THAT(FailureOfOpening(path, false), EndsWith("Permission denied."));
        EXPECT_THAT(FailureOf([&] { File::Create(folder / "b.sim", File::Kind::Persistent); }), EndsWith("Permission denied."));
        EXPECT_EQ(CommitsIn(path), 1);
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.Wait(), 0);
    chmod((folder / "").c_str(), 0755);
}

TEST_F(SimFile, RefusesToWriteWhatHdf5Manages)
{
    Hid const access(H5Pcreate(H5P_FILE_ACCESS));
    for (auto const& [oldest, why] :
         {std::pair{H5F_LIBVER_V18, "its space is managed by HDF5"}, {H5F_LIBVER_LATEST, "it is in a newer format"}}) {
        H5Pset_libver_bounds(access, oldest, H5F_LIBVER_LATEST);
        Hid(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, access)).Reset();
        EXPECT_THAT(FailureOfOpening(path, false), HasSubstr(why));
        EXPECT_EQ(CommitsIn(path), 0);
    }
}

// Whoever cleans up after killed processes may remove the file in the moment between its making and its lock.
TEST_F(SimFile, CreationAndCleaningOfTheSameNameGetAlong)
{
    auto const isNamed = [&](int descriptor) {
        struct stat opened, named;
        return fstat(descriptor, &opened) == 0 && stat(path.c_str(), &named) == 0 && opened.st_ino == named.st_ino;
    };
    ChildProcess cleaner([&]() -> int {
        for (;;) {
            int const descriptor = open(path.c_str(), O_RDWR);
            if (descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) == 0 && isNamed(descriptor))
                unlink(path.c_str());
            close(descriptor);
        }
    });
    for (int round = 0; round < 1000; ++round) {
        auto const file = File::Create(path, File::Kind::Scratch);
        ASSERT_TRUE(isNamed(file->Descriptor())) << round;
        unlink(path.c_str());
    }
}

} // namespace
