#include "SimWorkload.h"

#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
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

class SimFile : public testing::Test
{
protected:
    TemporaryFolder const folder{FolderWithoutDisk()};
    std::string const path = folder / "a.sim";
};

TEST_F(SimFile, KeepsWhatWasCommittedAndNothingElse)
{
    auto file = File::Create(path, File::Kind::Persistent);
    workload::Change(file, 1);
    file.reset();
    for (bool const readOnly : {true, false})
        EXPECT_THAT(FailureOfOpening(path, readOnly), EndsWith(": nothing was ever committed to it, it holds nothing and can be removed."));

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
    EXPECT_FALSE(std::filesystem::exists(path + ".journal"));

    std::string const before = ReadFile(path);
    for (bool const readOnly : {true, false}) {
        EXPECT_EQ(CommitsIn(path, readOnly), 2);
        File::Open(path, readOnly)->Close();
    }
    EXPECT_TRUE(ReadFile(path) == before) << "opening and closing changes nothing";
}

// Attributes that outgrow their header, groups that outgrow their heap, B-trees of several levels; seen through HDF5's own driver.
TEST_F(SimFile, HoldsAllThatHdf5Writes)
{
    constexpr int kMany = 700;
    auto const database = File::Create(path, File::Kind::Persistent);
    {
        Hid const group(H5Gcreate2(database->Hdf5(), "g", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)), scalar(H5Screate(H5S_SCALAR));
        for (int i = 0; i < kMany; ++i) {
            std::string const name = "name" + std::to_string(i);
            Hid const member(H5Dcreate2(group, name.c_str(), H5T_NATIVE_INT, scalar, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
            Hid const attribute(H5Acreate2(group, name.c_str(), H5T_NATIVE_INT, scalar, H5P_DEFAULT, H5P_DEFAULT));
            ASSERT_GE(H5Awrite(attribute, H5T_NATIVE_INT, &i), 0);
            ASSERT_GE(H5Dwrite(member, H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, &i), 0);
            if (i % 100 == 0)
                database->Commit(); // later ones change what is in the file already
        }
    }
    database->Close();

    Hid const file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT)), group(H5Gopen2(file, "g", H5P_DEFAULT));
    for (int i = 0; i < kMany; ++i) {
        std::string const name = "name" + std::to_string(i);
        int inAttribute = -1, inDataset = -1;
        Hid const attribute(H5Aopen(group, name.c_str(), H5P_DEFAULT)), member(H5Dopen2(group, name.c_str(), H5P_DEFAULT));
        EXPECT_GE(H5Aread(attribute, H5T_NATIVE_INT, &inAttribute), 0);
        EXPECT_GE(H5Dread(member, H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, &inDataset), 0);
        EXPECT_TRUE(inAttribute == i && inDataset == i) << name;
    }
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

TEST_F(SimFile, ForkedChildKeepsTheParentsFileAsItIs)
{
    auto file = File::Create(path, File::Kind::Persistent);
    workload::Change(file, 1);
    ChildProcess child([&] {
        EXPECT_THAT(FailureOf([&] { file->Commit(); }), HasSubstr("of which this one is a child"));
        EXPECT_EQ(workload::CheckedCommits(file), 1);
        file->Close();
        file.reset();
        if (HasFailure())
            return 1;
        return FailureOfOpening(path, false).find("open for writing elsewhere") != std::string::npos ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
    file->Close();
    EXPECT_EQ(CommitsIn(path), 1);
}

TEST_F(SimFile, RefusesWhatIsNoDatabase)
{
    std::string const text = folder / "text", pipe = folder / "pipe";
    NewDatabase(path, 2).reset();
    WriteFile(text, "This is no database, and it is long enough to have been one, had somebody cared to write it as that.\n");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

    for (bool const readOnly : {true, false}) {
        EXPECT_THAT(FailureOfOpening(folder / "missing", readOnly), EndsWith("missing: No such file or directory."));
        EXPECT_THAT(FailureOfOpening(text, readOnly), EndsWith("text: it is no database."));
        EXPECT_THAT(FailureOfOpening(pipe, readOnly), EndsWith("pipe: it is no regular file."));
        EXPECT_THAT(FailureOfOpening("", readOnly), HasSubstr("No such file or directory"));
    }
    EXPECT_THAT(FailureOfOpening(folder / "", true), EndsWith(": it is a folder."));
    EXPECT_THAT(FailureOfOpening(folder / "", false), EndsWith(": Is a directory."));
    EXPECT_THAT(FailureOf([&] { File::Create(path, File::Kind::Persistent); }), EndsWith(": a file of that name exists."));
    EXPECT_THAT(FailureOf([&] { File::Create(folder / "missing/a.sim", File::Kind::Scratch); }), EndsWith(": its folder does not exist."));
    EXPECT_EQ(CommitsIn(path), 2);
}

// What programs act on; the journal is a file of its own.
TEST_F(SimFile, FailuresSayTheirFileAndKind)
{
    using enum KVOSimException::Kind;
    std::string const text = folder / "text", cut = folder / "cut.sim", other = folder / "other.sim", missing = folder / "missing/a.sim";
    WriteFile(text, "no database");
    workload::MakeUnapplied(path, 2);
    NewDatabase(other, 1).reset();
    std::filesystem::rename(path + ".journal", other + ".journal");
    NewDatabase(cut, 1).reset();
    WriteFile(cut, ReadFile(cut).substr(0, 1000));
    auto file = NewDatabase(path, 1);
    auto const expect = [](KVOSimException::Kind kind, std::string const& of, auto const& run) {
        try {
            run();
            ADD_FAILURE() << of;
        } catch (KVOSimException const& failure) {
            EXPECT_EQ(failure.Path(), of);
            EXPECT_EQ(failure.FailureKind(), kind) << of;
            KVOSimDebugOutString words;
            failure.Write(words << "Words: ");
            EXPECT_EQ(words.Path(), of);
            EXPECT_EQ(words.FailureKind(), kind) << of;
        }
    };
    for (auto const& [kind, of] :
         {std::pair{NotFound, missing}, {Foreign, text}, {Foreign, folder / ""}, {Damaged, cut}, {Damaged, other}, {InUse, path}})
        expect(kind, of, [&, name = of] { File::Open(name, false); });
    for (auto const& [kind, of] : {std::pair{NotFound, missing}, {Exists, path}})
        expect(kind, of, [&, name = of] { File::Create(name, File::Kind::Persistent); });
    SetCallFault({SystemCall::Change, 0, ENOSPC});
    expect(NoSpace, path, [&] { workload::Commit(file, 2, 3); });
    SetCallFault({});
    file->Close();
    expect(Misuse, path, [&] { file->Commit(); });
    std::filesystem::create_symlink("a.sim.journal", path + ".journal");
    expect(System, path + ".journal", [&] { File::Open(path, true); });
}

// Bytes are damaged in the superblock only: of a damaged object header HDF5 1.10 itself leaks memory.
TEST_F(SimFile, RefusesEveryTruncatedLengthAndEveryDamagedByte)
{
    constexpr std::size_t kSuperblock = 48;
    NewDatabase(path, 1).reset();
    std::string const whole = ReadFile(path), refused = "Cannot open the database " + path + ": ";
    auto const expectRefused = [&](std::string const& bytes, std::string const& reason) {
        WriteFile(path, bytes);
        for (bool const readOnly : {true, false})
            EXPECT_THAT(FailureOfOpening(path, readOnly), HasSubstr(refused + reason));
    };

    for (std::size_t length = 0; length < whole.size(); length += length < 300 ? 1 : 997)
        expectRefused(whole.substr(0, length), length == 0            ? "it is empty"
                                               : length < kSuperblock ? ""
                                                                      : "it was cut short: " + std::to_string(length) + " of ");
    for (std::size_t at = 0; at < kSuperblock; ++at) {
        SCOPED_TRACE(at);
        std::string bytes = whole;
        bytes[at] = static_cast<char>(~bytes[at]);
        expectRefused(bytes, "");
    }
}

TEST_F(SimFile, FindsItsJournalWhateverNameItIsOpenedBy)
{
    std::string const elsewhere = folder / "elsewhere", link = elsewhere + "/link.sim";
    std::filesystem::create_directory(elsewhere);
    std::filesystem::create_symlink(path, link);
    NewDatabase(path, 1).reset();
    auto const previous = std::filesystem::current_path();
    for (std::string const& name : {std::string("a.sim"), link}) {
        std::filesystem::current_path(folder / "");
        auto const file = File::Open(name, false);
        std::filesystem::current_path(previous);
        int const commits = workload::CheckedCommits(file);
        workload::Commit(file, commits + 1, commits + 1);
        EXPECT_TRUE(std::filesystem::exists(path + ".journal"));
        file->Close();
        EXPECT_FALSE(std::filesystem::exists(path + ".journal"));
    }
    EXPECT_EQ(CommitsIn(link), 3);
}

TEST_F(SimFile, ReaderSeesAnUnappliedJournalAndWritesNothing)
{
    workload::MakeUnapplied(path, 2);
    std::string const before = ReadFile(path);
    chmod((folder / "").c_str(), 0555);
    chmod(path.c_str(), 0444);

    EXPECT_EQ(CommitsIn(path), 2);

    EXPECT_TRUE(ReadFile(path) == before);
    EXPECT_TRUE(std::filesystem::exists(path + ".journal"));
    chmod((folder / "").c_str(), 0755);
    chmod(path.c_str(), 0644);
    EXPECT_EQ(CommitsIn(path, false), 2);
    std::filesystem::remove(path + ".journal");
    EXPECT_EQ(CommitsIn(path), 2) << "a writer has applied it";
}

TEST_F(SimFile, LeavesTheJournalOfAnotherFileAlone)
{
    std::string const other = folder / "other.sim";
    workload::MakeUnapplied(path, 2);
    NewDatabase(other, 1).reset();
    std::string const journal = ReadFile(path + ".journal"), before = ReadFile(other);
    WriteFile(other + ".journal", journal);

    EXPECT_EQ(CommitsIn(other), 1);
    EXPECT_THAT(FailureOfOpening(other, false), HasSubstr("other.sim.journal is the journal of another database"));
    EXPECT_TRUE(ReadFile(other) == before);
    EXPECT_TRUE(ReadFile(other + ".journal") == journal);
    WriteFile(other + ".journal", journal.substr(0, journal.size() - 1)); // a torn one says nothing
    EXPECT_EQ(CommitsIn(other, false), 1);
}

TEST_F(SimFile, NoPermission)
{
    NewDatabase(path, 1).reset();
    chmod((folder / "").c_str(), 0555);
    chmod(path.c_str(), 0444);
    constexpr unsigned kNobody = 65534;
    ChildProcess child([&] {
        if (geteuid() == 0 && setuid(kNobody) != 0) // root may do anything
            return 2;
        EXPECT_THAT(FailureOfOpening(path, false), EndsWith("Permission denied."));
        EXPECT_THAT(FailureOf([&] { File::Create(folder / "b.sim", File::Kind::Persistent); }), EndsWith("Permission denied."));
        EXPECT_EQ(CommitsIn(path), 1);
        return HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(child.Wait(), 0);
    chmod((folder / "").c_str(), 0755);
}

// h5repack is how users get space back. What it makes has no mark of ours.
TEST_F(SimFile, WritesWhatHdf5MadeWhenItsSpaceIsNotUsedAgain)
{
    std::string const managed = folder / "managed.sim", newer = folder / "newer.sim";
    {
        Hid const creation(H5Pcreate(H5P_FILE_CREATE)), access(H5Pcreate(H5P_FILE_ACCESS));
        H5Pset_libver_bounds(access, H5F_LIBVER_V18, H5F_LIBVER_V110);
        Hid const other(H5Fcreate(managed.c_str(), H5F_ACC_TRUNC, creation, access));
        H5Pset_file_space_strategy(creation, H5F_FSPACE_STRATEGY_NONE, false, 1);
        Hid const file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, creation, access));
        H5Pset_libver_bounds(access, H5F_LIBVER_LATEST, H5F_LIBVER_LATEST);
        Hid const latest(H5Fcreate(newer.c_str(), H5F_ACC_TRUNC, creation, access));
    }
    for (int number = 1; number <= 3; ++number) {
        auto const file = File::Open(path, false);
        workload::Change(file, number);
        file->Close();
    }
    EXPECT_EQ(CommitsIn(path), 3);
    EXPECT_EQ(CommitsIn(managed), 0);
    EXPECT_THAT(FailureOfOpening(managed, false), HasSubstr("its space is managed by HDF5"));
    EXPECT_THAT(FailureOfOpening(newer, false), HasSubstr("it is in a newer format"));
}

TEST_F(SimFile, ScratchIsReadWhileItIsOpenAndNeverSynced)
{
    auto const file = File::Create(path, File::Kind::Scratch);
    workload::Commit(file, 1, 3);
    EXPECT_EQ(workload::CheckedCommits(file), 3);
    EXPECT_THAT(FailureOfOpening(path, true), HasSubstr("open for writing elsewhere"));
    file->Close();
    EXPECT_THAT(FailureOfOpening(path, true), HasSubstr("it holds nothing"));
    EXPECT_FALSE(std::filesystem::exists(path + ".journal"));
}

bool IsNamed(int descriptor, std::string const& path)
{
    struct stat opened, named;
    return fstat(descriptor, &opened) == 0 && stat(path.c_str(), &named) == 0 && opened.st_ino == named.st_ino;
}

// Whoever cleans up after killed processes may remove the file in the moment between its making and its lock.
TEST_F(SimFile, CreationAndCleaningOfTheSameNameGetAlong)
{
    ChildProcess cleaner([&]() -> int {
        for (;;) {
            int const descriptor = open(path.c_str(), O_RDWR);
            if (descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) == 0 && IsNamed(descriptor, path))
                unlink(path.c_str());
            close(descriptor);
        }
    });
    for (int round = 0; round < 1000; ++round) {
        auto const file = File::Create(path, File::Kind::Scratch);
        ASSERT_TRUE(IsNamed(file->Descriptor(), path)) << round;
        unlink(path.c_str());
    }
}

int s_reports = 0;

TEST_F(SimFile, Hdf5ReportsNothingAndTheHostsReportStays)
{
    H5E_auto2_t previous;
    void* data;
    H5Eget_auto2(H5E_DEFAULT, &previous, &data);
    s_reports = 0;
    H5Eset_auto2(
        H5E_DEFAULT, [](hid_t, void*) { return static_cast<herr_t>(++s_reports); }, nullptr);
    NewDatabase(path, 1).reset();
    std::string bytes = ReadFile(path);
    bytes[45] = static_cast<char>(~bytes[45]);
    WriteFile(path, bytes);

    EXPECT_THAT(FailureOfOpening(path, true), HasSubstr("checksum"));
    EXPECT_EQ(s_reports, 0);
    H5Fopen((folder / "missing").c_str(), H5F_ACC_RDONLY, H5P_DEFAULT); // the host's own
    EXPECT_EQ(s_reports, 1);
    H5Eset_auto2(H5E_DEFAULT, previous, data);
}

} // namespace
