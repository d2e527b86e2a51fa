#include "ChildProcess.h"
#include "KVOSimException.h"
#include "SimFile.h"
#include "SimJournal.h"
#include "SimWorkload.h"
#include "TemporaryFolder.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <vector>

namespace
{

using simdb::File;
using simdb::Hid;
using testing::EndsWith;
using testing::HasSubstr;

template<class Run>
std::string TextOf(Run const& run)
{
    try {
        run();
    } catch (KVOSimException const& exception) {
        return exception.AsString().c_str();
    }
    return "no exception";
}

std::string TextOfOpening(std::string const& path, bool readOnly)
{
    return TextOf([&] { File::Open(path, readOnly); });
}

/// A database of `commits` commits.
void MakeDatabase(std::string const& path, int commits)
{
    auto const file = File::Create(path, File::Kind::Persistent);
    for (int number = 1; number <= commits; ++number) {
        workload::Change(*file, number);
        file->Commit();
    }
    file->Close();
}

int CommitsIn(std::string const& path, bool readOnly = true)
{
    return workload::CheckedCommits(*File::Open(path, readOnly));
}

TEST(SimFile, KeepsWhatWasCommittedAndNothingElse)
{
    TemporaryFolder const folder;
    std::string const path = folder / "a.sim";
    {
        auto const file = File::Create(path, File::Kind::Persistent);
        workload::Change(*file, 1);
        file->Commit();
        workload::Change(*file, 2);
        EXPECT_EQ(workload::CheckedCommits(*file), 2) << "what is not committed yet can be read";
    }
    EXPECT_EQ(CommitsIn(path), 1) << "closing without Close() does not commit";
    {
        auto const file = File::Open(path, false);
        workload::Change(*file, 2);
        file->Close();
        EXPECT_FALSE(file->IsOpen());
        file->Close();
        EXPECT_THAT(TextOf([&] { file->Commit(); }), EndsWith(": it is closed."));
    }
    EXPECT_EQ(CommitsIn(path), 2);
    EXPECT_FALSE(std::filesystem::exists(path + ".journal"));
}

TEST(SimFile, OpeningAndClosingChangesNothing)
{
    TemporaryFolder const folder;
    std::string const path = folder / "a.sim";
    MakeDatabase(path, 2);
    std::string const before = ReadFile(path);

    for (bool const readOnly : {true, false})
        File::Open(path, readOnly)->Close();

    EXPECT_TRUE(ReadFile(path) == before);
}

// Each kind of piece that HDF5 writes: attributes that outgrow their header, groups that outgrow their heap, contiguous and compact
// datasets, B-trees of several levels; seen afterwards through HDF5's own driver.
TEST(SimFile, HoldsAllThatHdf5Writes)
{
    constexpr int kMany = 700;
    TemporaryFolder const folder;
    std::string const path = folder / "a.sim";
    std::vector<int> const values(1000, 42);
    hsize_t const size = values.size(), chunk = 2, sizeInChunks = 2 * kMany;
    {
        auto const file = File::Create(path, File::Kind::Persistent);
        Hid const space(H5Screate_simple(1, &size, nullptr));
        Hid const group(H5Gcreate2(file->Hdf5(), "g", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
        for (int i = 0; i < kMany; ++i) {
            std::string const name = "name" + std::to_string(i);
            Hid const member(H5Gcreate2(group, name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
            Hid const scalar(H5Screate(H5S_SCALAR));
            Hid const attribute(H5Acreate2(group, name.c_str(), H5T_NATIVE_INT, scalar, H5P_DEFAULT, H5P_DEFAULT));
            ASSERT_GE(H5Awrite(attribute, H5T_NATIVE_INT, &i), 0);
            if (i % 100 == 0)
                file->Commit(); // later ones change what is in the file already
        }
        Hid const contiguous(H5Dcreate2(group, "contiguous", H5T_NATIVE_INT, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
        ASSERT_GE(H5Dwrite(contiguous, H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), 0);
        Hid const properties(H5Pcreate(H5P_DATASET_CREATE));
        H5Pset_layout(properties, H5D_COMPACT);
        Hid const compact(H5Dcreate2(group, "compact", H5T_NATIVE_INT, space, H5P_DEFAULT, properties, H5P_DEFAULT));
        ASSERT_GE(H5Dwrite(compact, H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, values.data()), 0);
        Hid const chunkedSpace(H5Screate_simple(1, &sizeInChunks, nullptr)), chunkedProperties(H5Pcreate(H5P_DATASET_CREATE));
        H5Pset_chunk(chunkedProperties, 1, &chunk);
        Hid const chunked(H5Dcreate2(group, "chunked", H5T_NATIVE_INT, chunkedSpace, H5P_DEFAULT, chunkedProperties, H5P_DEFAULT));
        for (hsize_t offset = 0; offset < sizeInChunks; offset += chunk)
            ASSERT_GE(H5Dwrite_chunk(chunked, H5P_DEFAULT, 0, &offset, 2 * sizeof(int), values.data()), 0);
        file->Close();
    }

    Hid const file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT));
    Hid const group(H5Gopen2(file, "g", H5P_DEFAULT));
    H5O_info_t info;
    ASSERT_GE(H5Oget_info2(group, &info, H5O_INFO_NUM_ATTRS), 0);
    EXPECT_EQ(info.num_attrs, static_cast<hsize_t>(kMany));
    for (int i = 0; i < kMany; ++i) {
        std::string const name = "name" + std::to_string(i);
        int value = -1;
        Hid const attribute(H5Aopen(group, name.c_str(), H5P_DEFAULT));
        EXPECT_GE(H5Aread(attribute, H5T_NATIVE_INT, &value), 0);
        EXPECT_EQ(value, i);
        EXPECT_GT(H5Lexists(group, name.c_str(), H5P_DEFAULT), 0);
    }
    for (char const* const name : {"contiguous", "compact", "chunked"}) {
        Hid const dataset(H5Dopen2(group, name, H5P_DEFAULT)), space(H5Dget_space(dataset));
        std::vector<int> read(static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
        EXPECT_GE(H5Dread(dataset, H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, read.data()), 0);
        EXPECT_EQ(std::count(read.begin(), read.end(), 42), static_cast<std::ptrdiff_t>(read.size())) << name;
    }
}

TEST(SimFile, OneWriterOrSeveralReaders)
{
    TemporaryFolder const folder;
    std::string const path = folder / "a.sim";
    MakeDatabase(path, 1);
    auto const expectRefused = [&](char const* reason, bool readOnly) {
        std::string const text = "Cannot open the database " + path + ": it is open for " + reason + " elsewhere.";
        EXPECT_EQ(TextOfOpening(path, readOnly), text);
        ChildProcess other([&] { return TextOfOpening(path, readOnly) == text ? 0 : 1; });
        EXPECT_EQ(other.Wait(), 0);
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
        EXPECT_EQ(workload::CheckedCommits(*another), 1);
        EXPECT_THAT(TextOf([&] { reader->Commit(); }), EndsWith(": it is open for reading only."));
        expectRefused("reading", false);
    }
    unsetenv("HDF5_USE_FILE_LOCKING");
}

TEST(SimFile, ForkedChildKeepsTheParentsFileAsItIs)
{
    TemporaryFolder const folder;
    std::string const path = folder / "a.sim";
    auto file = File::Create(path, File::Kind::Persistent);
    workload::Change(*file, 1);
    ChildProcess child([&] {
        file->Close();
        file.reset();
        return TextOfOpening(path, false).find("open for writing elsewhere") != std::string::npos ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
    file->Close();
    EXPECT_EQ(CommitsIn(path), 1);
}

TEST(SimFile, RefusesWhatIsNoDatabase)
{
    TemporaryFolder const folder;
    std::string const path = folder / "a.sim", text = folder / "text", pipe = folder / "pipe", empty = folder / "empty";
    MakeDatabase(path, 2);
    WriteFile(text, "This is no database, and it is long enough to have been one, had somebody cared to write it as that.\n");
    WriteFile(empty, "");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

    for (bool const readOnly : {true, false}) {
        EXPECT_THAT(TextOfOpening(folder / "missing", readOnly), EndsWith("missing: No such file or directory."));
        EXPECT_THAT(TextOfOpening(folder / "missing/a.sim", readOnly), EndsWith(": No such file or directory."));
        EXPECT_THAT(TextOfOpening(text, readOnly), EndsWith("text: it is no database."));
        EXPECT_THAT(TextOfOpening(empty, readOnly), HasSubstr("empty: it is empty"));
        EXPECT_THAT(TextOfOpening(pipe, readOnly), EndsWith("pipe: it is no regular file."));
        EXPECT_THAT(TextOfOpening("", readOnly), HasSubstr("No such file or directory"));
    }
    EXPECT_THAT(TextOfOpening(folder / "", true), EndsWith(": it is a folder."));
    EXPECT_THAT(TextOfOpening(folder / "", false), EndsWith(": Is a directory."));
    EXPECT_THAT(TextOf([&] { File::Create(path, File::Kind::Persistent); }), EndsWith(": a file of that name exists."));
    EXPECT_THAT(TextOf([&] { File::Create(folder / "missing/a.sim", File::Kind::Scratch); }), EndsWith(": its folder does not exist."));
    EXPECT_EQ(CommitsIn(path), 2);
}

TEST(SimFile, RefusesEveryTruncatedLength)
{
    TemporaryFolder const folder(workload::FolderWithoutDisk());
    std::string const path = folder / "a.sim", cut = folder / "cut.sim";
    MakeDatabase(path, 1);
    std::string const whole = ReadFile(path);

    for (std::size_t length = 0; length < whole.size(); length += length < 300 ? 1 : 997) {
        WriteFile(cut, whole.substr(0, length));
        std::string const expected = length == 0  ? "it is empty"
                                     : length < 8 ? "it is no database"
                                                  : "it was cut short: " + std::to_string(length) + " of ";
        for (bool const readOnly : {true, false})
            EXPECT_THAT(TextOfOpening(cut, readOnly), length < 48 ? HasSubstr("Cannot open the database") : HasSubstr(expected)) << length;
    }
}

// Of the superblock; of a damaged object header HDF5 1.10 itself leaks memory.
TEST(SimFile, NoticesEveryDamagedByteOfTheSuperblock)
{
    constexpr std::size_t kSuperblock = 48;
    TemporaryFolder const folder(workload::FolderWithoutDisk());
    std::string const path = folder / "a.sim", damaged = folder / "damaged.sim";
    MakeDatabase(path, 1);
    std::string const whole = ReadFile(path);
    for (std::size_t at = 0; at < kSuperblock; ++at) {
        std::string bytes = whole;
        bytes[at] = static_cast<char>(~bytes[at]);
        WriteFile(damaged, bytes);
        for (bool const readOnly : {true, false})
            EXPECT_THAT(TextOfOpening(damaged, readOnly), HasSubstr("Cannot open the database " + damaged)) << at;
    }
}

TEST(SimFile, SaysThatNothingWasEverCommitted)
{
    TemporaryFolder const folder;
    std::string const path = folder / "a.sim";
    {
        auto const file = File::Create(path, File::Kind::Persistent);
        workload::Change(*file, 1);
    }
    for (bool const readOnly : {true, false})
        EXPECT_THAT(TextOfOpening(path, readOnly), EndsWith(": nothing was ever committed to it, it holds nothing and can be removed."));
}

TEST(SimFile, FindsItsJournalWhateverNameItIsOpenedBy)
{
    TemporaryFolder const folder;
    std::string const path = folder / "a.sim", elsewhere = folder / "elsewhere", link = elsewhere + "/link.sim";
    std::filesystem::create_directory(elsewhere);
    std::filesystem::create_symlink(path, link);
    MakeDatabase(path, 1);
    auto const previous = std::filesystem::current_path();
    std::filesystem::current_path(folder / "");
    auto const file = File::Open("a.sim", false);
    std::filesystem::current_path(previous);
    workload::Change(*file, 2);
    file->Commit();
    EXPECT_TRUE(std::filesystem::exists(path + ".journal"));
    file->Close();
    EXPECT_FALSE(std::filesystem::exists(path + ".journal"));

    auto const linked = File::Open(link, false);
    workload::Change(*linked, 3);
    linked->Commit();
    EXPECT_TRUE(std::filesystem::exists(path + ".journal"));
    linked->Close();
    EXPECT_EQ(CommitsIn(link), 3);
}

/// A database beside which a complete journal lies that was not applied: what a kill between both leaves.
std::string MakeUnapplied(TemporaryFolder const& folder)
{
    std::string const path = folder / "a.sim", later = folder / "later.sim";
    MakeDatabase(path, 1);
    std::string const before = ReadFile(path);
    {
        auto const file = File::Open(path, false);
        workload::Change(*file, 2);
        file->Close();
    }
    // The new end of the file is there before the journal is; what the journal changes is all before the old end.
    std::string after = ReadFile(path);
    std::vector<std::byte> changed(before.size());
    std::memcpy(changed.data(), after.data(), before.size());
    simdb::FileMark mark;
    std::memcpy(mark.bytes.data(), after.data() + mark.offset, mark.bytes.size());
    simdb::Journal const journal(mark, {{0, changed}});
    std::memcpy(after.data(), before.data(), before.size());
    WriteFile(path, after);
    WriteFile(path + ".journal", {reinterpret_cast<char const*>(journal.Image().data()), journal.Image().size()});
    return path;
}

TEST(SimFile, ReaderSeesAnUnappliedJournalAndWritesNothing)
{
    TemporaryFolder const folder;
    std::string const path = MakeUnapplied(folder), before = ReadFile(path);
    std::filesystem::permissions(folder / "", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    std::filesystem::permissions(path, std::filesystem::perms::owner_read);

    EXPECT_EQ(CommitsIn(path), 2);

    EXPECT_TRUE(ReadFile(path) == before);
    EXPECT_TRUE(std::filesystem::exists(path + ".journal"));
    std::filesystem::permissions(folder / "", std::filesystem::perms::owner_all);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    EXPECT_EQ(CommitsIn(path, false), 2);
    std::filesystem::remove(path + ".journal");
    EXPECT_EQ(CommitsIn(path), 2) << "a writer has applied it";
}

TEST(SimFile, LeavesTheJournalOfAnotherFileAlone)
{
    TemporaryFolder const folder;
    std::string const path = MakeUnapplied(folder), other = folder / "other.sim";
    MakeDatabase(other, 1);
    std::string const journal = ReadFile(path + ".journal"), before = ReadFile(other);
    WriteFile(other + ".journal", journal);

    EXPECT_EQ(CommitsIn(other), 1);
    EXPECT_THAT(TextOfOpening(other, false), HasSubstr("other.sim.journal is the journal of another database"));
    EXPECT_TRUE(ReadFile(other) == before);
    EXPECT_TRUE(ReadFile(other + ".journal") == journal);
    WriteFile(other + ".journal", journal.substr(0, journal.size() - 1)); // a torn one says nothing
    EXPECT_EQ(CommitsIn(other, false), 1);
}

TEST(SimFile, NoPermission)
{
    TemporaryFolder const folder;
    std::string const path = folder / "a.sim";
    MakeDatabase(path, 1);
    chmod((folder / "").c_str(), 0555);
    chmod(path.c_str(), 0444);
    constexpr unsigned kNobody = 65534;
    ChildProcess child([&] {
        if (geteuid() == 0 && setuid(kNobody) != 0) // root may do anything
            return 2;
        std::string const denied = "Permission denied.";
        return TextOfOpening(path, false).ends_with(denied) &&
                       TextOf([&] { File::Create(folder / "b.sim", File::Kind::Persistent); }).ends_with(denied) && CommitsIn(path) == 1
                   ? 0
                   : 1;
    });
    EXPECT_EQ(child.Wait(), 0);
    chmod((folder / "").c_str(), 0755);
}

// h5repack is how users get space back. What it makes has no mark of ours.
TEST(SimFile, WritesWhatHdf5MadeWhenItsSpaceIsNotUsedAgain)
{
    TemporaryFolder const folder;
    std::string const path = folder / "a.sim", managed = folder / "managed.sim", newer = folder / "newer.sim";
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
        workload::Change(*file, number);
        file->Close();
    }
    EXPECT_EQ(CommitsIn(path), 3);
    EXPECT_EQ(CommitsIn(managed), 0);
    EXPECT_THAT(TextOfOpening(managed, false), HasSubstr("its space is managed by HDF5"));
    EXPECT_THAT(TextOfOpening(newer, false), HasSubstr("it is in a newer format"));
}

TEST(SimFile, ScratchIsReadWhileItIsOpenAndNeverSynced)
{
    TemporaryFolder const folder;
    std::string const path = folder / "s.sim";
    auto const file = File::Create(path, File::Kind::Scratch);
    for (int number = 1; number <= 3; ++number) {
        workload::Change(*file, number);
        file->Commit();
    }
    EXPECT_EQ(workload::CheckedCommits(*file), 3);
    EXPECT_THAT(TextOfOpening(path, true), HasSubstr("open for writing elsewhere"));
    file->Close();
    EXPECT_THAT(TextOfOpening(path, true), HasSubstr("it holds nothing"));
    EXPECT_FALSE(std::filesystem::exists(path + ".journal"));
}

// Whoever cleans up after killed processes may remove the file in the moment between its making and its lock.
TEST(SimFile, CreationAndCleaningOfTheSameNameGetAlong)
{
    TemporaryFolder const folder;
    std::string const path = folder / "s.sim";
    ChildProcess cleaner([&] {
        for (;;) {
            int const descriptor = open(path.c_str(), O_RDWR);
            struct stat opened, named;
            if (descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) == 0 && fstat(descriptor, &opened) == 0 &&
                stat(path.c_str(), &named) == 0 && opened.st_ino == named.st_ino)
                unlink(path.c_str());
            close(descriptor);
        }
        return 0;
    });
    for (int round = 0; round < 200; ++round) {
        auto const file = File::Create(path, File::Kind::Scratch);
        struct stat opened, named;
        ASSERT_EQ(fstat(file->Descriptor(), &opened), 0);
        ASSERT_EQ(stat(path.c_str(), &named), 0);
        ASSERT_EQ(opened.st_ino, named.st_ino);
        unlink(path.c_str());
    }
}

int s_reports = 0;

herr_t CountReport(hid_t, void*)
{
    ++s_reports;
    return 0;
}

TEST(SimFile, Hdf5ReportsNothingAndTheHostsReportStays)
{
    TemporaryFolder const folder;
    H5E_auto2_t previous;
    void* data;
    H5Eget_auto2(H5E_DEFAULT, &previous, &data);
    s_reports = 0;
    H5Eset_auto2(H5E_DEFAULT, CountReport, nullptr);
    std::string const path = folder / "a.sim", damaged = folder / "damaged.sim";
    File::Create(path, File::Kind::Persistent)->Close();
    std::string bytes = ReadFile(path);
    bytes[45] = static_cast<char>(~bytes[45]);
    WriteFile(damaged, bytes);

    EXPECT_THAT(TextOfOpening(damaged, true), HasSubstr("checksum"));
    EXPECT_EQ(s_reports, 0);
    H5Fopen((folder / "missing").c_str(), H5F_ACC_RDONLY, H5P_DEFAULT); // the host's own
    EXPECT_EQ(s_reports, 1);
    H5Eset_auto2(H5E_DEFAULT, previous, data);
}

} // namespace
