#include "KVOSrvScratchDenseMatrix.h"

#include "ChildProcess.h"
#include "DatabaseSupport.h"
#include "KVOSrvMatrixContainer.h"
#include "ScratchFiles.h"
#include "WorkingFolder.h"

#include <fcntl.h>
#include <sys/file.h>

using testing::ElementsAre, testing::EndsWith, testing::IsEmpty, testing::SizeIs, testing::StartsWith;

namespace
{

/// A fresh folder for scratch files while it lives.
class ScratchFolder : public WorkingFolder
{
public:
    ScratchFolder() : m_before(KVOSrvUtilities::GetTempDirectory()) { Use(Path()); }
    ~ScratchFolder() { KVOSrvUtilities::SetTempDirectory(m_before); }

    static void Use(std::string const& path) { KVOSrvUtilities::SetTempDirectory(cow_String(path.c_str())); }

private:
    cow_String m_before;
};

/// A child process that has called run() when this is there, and calls idle() again and again until it is killed.
class Child
{
public:
    template<class Run, class Idle = int (*)()>
    explicit Child(Run const& run, Idle const& idle = pause)
        : m_process([&]() -> int {
              run();
              m_ready.Send(1);
              for (;;)
                  idle();
          })
    {
        EXPECT_EQ(m_ready.Next(), 1);
    }
    void Kill() { m_process.Kill(); }

private:
    Reports m_ready;
    ChildProcess m_process;
};

} // namespace

TEST(KVOSrvScratchDenseMatrix, HasAFileOfItsOwnWhileItOrAViewLives)
{
    ScratchFolder const folder;
    auto first = std::make_unique<KVOSrvScratchDenseMatrix>(9, 7, 4, 3);
    auto second = std::make_unique<KVOSrvScratchDenseMatrix>(5, 5, 100, -1);
    EXPECT_TRUE(KVOSrvScratchDenseMatrix().IsNull());
    Dense const firstValues = Randomize(*first), secondValues = Randomize(*second);
    std::unique_ptr<KVOSrvDenseMatrix> view(static_cast<KVOSrvDenseMatrix&>(*first).Submatrix(2, 8, 1, 5));
    std::unique_ptr<KVOSrvDenseMatrix> inner(view->ConstSubmatrix(1, 3, 0, 1));

    EXPECT_THAT(folder.Files(), SizeIs(2));
    for (std::string const& name : folder.Files())
        EXPECT_THAT(name, testing::AllOf(StartsWith("KVOSrvScratchDenseMatrix"), EndsWith("-" + std::to_string(getpid()) + ".sim")));
    using std::filesystem::perms;
    EXPECT_EQ(std::filesystem::status(folder / folder.Files()[0]).permissions(), perms::owner_read | perms::owner_write);
    EXPECT_EQ(first->NumberOfRowsInBlock(0), 4);
    EXPECT_EQ(second->NumberOfRowsInBlock(0), 5);
    EXPECT_EQ(second->NumberOfColumnBlocks(), 1);
    EXPECT_THAT(NumbersOf(second->RowCSetID()), ElementsAre(0, 1, 2, 3, 4));
    ExpectSame(*second, secondValues);
    second.reset();
    EXPECT_THAT(folder.Files(), SizeIs(1));
    first.reset();
    ExpectSame(*view, [&](int i, int j) { return firstValues.At(i + 2, j + 1); });
    view.reset();
    ExpectSame(*inner, [&](int i, int j) { return firstValues.At(i + 3, j + 1); });
    EXPECT_THAT(NumbersOf(inner->RowCSetID()), ElementsAre(3, 4, 5));
    EXPECT_THAT(folder.Files(), SizeIs(1));
    inner.reset();
    EXPECT_THAT(folder.Files(), IsEmpty());
}

TEST(KVOSrvScratchDenseMatrix, CarriesMemberNumbersAndTheCallersSets)
{
    ScratchFolder const folder;
    TestDatabase const database;
    int const rowNumbers[] = {8, 3, 5};
    KVOSrvScratchDenseMatrix const numbered(3, 2, rowNumbers, nullptr, 2, 2);
    KVOSimCSetID const rows = database.Members({30, 10, 20}), columns = database.Members({7, 9});
    KVOSrvScratchDenseMatrix const fromSets(rows, columns, 2, 2);
    std::unique_ptr<KVOSrvDenseMatrix> const view(fromSets.ConstSubmatrix(1, 2, 0, 1));

    EXPECT_THAT(NumbersOf(numbered.RowCSetID()), ElementsAre(8, 3, 5));
    EXPECT_THAT(NumbersOf(numbered.ColumnCSetID()), ElementsAre(0, 1));
    EXPECT_EQ(fromSets.RowCSetID(), rows);
    EXPECT_EQ(fromSets.ColumnCSetID(), columns);
    EXPECT_THAT(NumbersOf(view->RowCSetID()), ElementsAre(10, 20));
    EXPECT_NE(view->ColumnCSetID().Database(), columns.Database());
}

TEST(KVOSrvScratchDenseMatrix, WithoutADirectoryInTheWorkingOne)
{
    ScratchFolder const folder;
    folder.EnterBelow();
    auto const make = [](char const* directory) {
        ScratchFolder::Use(directory);
        return std::make_unique<KVOSrvScratchDenseMatrix>(2, 2, 2, 2);
    };
    auto matrix = make(""), beside = make("..");
    std::filesystem::path const below = folder / "below";
    EXPECT_FALSE(std::filesystem::is_empty(below));
    EXPECT_THAT(folder.Files(), SizeIs(2));
    std::filesystem::current_path("/"); // the files are found nevertheless
    matrix.reset();
    beside.reset();
    EXPECT_TRUE(std::filesystem::is_empty(below));
    EXPECT_THAT(folder.Files(), ElementsAre("below"));
    folder.EnterBelow(true);
    EXPECT_THROW(make(""), KVOSimException);
}

TEST(KVOSrvScratchDenseMatrix, FailuresLeaveNoFile)
{
    ScratchFolder const folder;
    KVOSimCSetID const null;
    ExpectEachThrows<KVOSrvMtxIllegalInput>({[] { KVOSrvScratchDenseMatrix(0, 2, 2, 2); }, [] { KVOSrvScratchDenseMatrix(2, -1, 2, 2); }});
    EXPECT_THAT(ReportOf<KVOSrvMtxRefusedInput>([] { KVOSrvScratchDenseMatrix(300000000, 1, 1000, 1); }), // a chunk of no columns
                testing::HasSubstr("2 GiB, 268435456 entries"));
    ExpectEachThrows<KVOSimException>({[] { KVOSrvScratchDenseMatrix(2, 2, 0, 2); }, [] { KVOSrvScratchDenseMatrix(2, 2, 2, -2); },
                                       [&] { KVOSrvScratchDenseMatrix(null, null, 2, 2); }});
    EXPECT_THAT(folder.Files(), IsEmpty());

    auto const make = [] { KVOSrvScratchDenseMatrix const matrix(20, 20, 4, 4); };
    EXPECT_GT(FailEach(Allocations(), make, [&](bool) { EXPECT_THAT(folder.Files(), IsEmpty()); }), 3);

    ScratchFolder::Use(folder / "missing");
    EXPECT_THROW(KVOSrvScratchDenseMatrix(2, 2, 2, 2), KVOSimException);
}

TEST(KVOSrvScratchDenseMatrix, LeftoversGoButNothingThatIsInUseOrNotMarkedAsScratch)
{
    ScratchFolder const folder;
    // Another process leaves files behind when it is killed, and a second one keeps one in use.
    Child killed([] { new KVOSrvScratchDenseMatrix(50, 50, 10, 10), new KVOSrvMatrixContainer; });
    std::vector<std::string> const leftovers = folder.Files();
    Child const alive([] { new KVOSrvScratchDenseMatrix(50, 50, 10, 10); });
    killed.Kill();
    ASSERT_THAT(leftovers, SizeIs(2));
    std::string const scratch = ReadFile(folder / leftovers[0]);
    constexpr std::size_t kHost = 72, kProcess = 80;
    auto const marked = [&](std::size_t at, std::string const& number) { return std::string(scratch).replace(at, number.size(), number); };
    std::string const kind = "KVOSrvScratchDenseMatrix", address = "00000FFFFFFFFFF8", name = kind + address;
    std::vector<std::pair<std::string, std::string>> stay;
    for (std::string const& other : {kind + ".sim", name + ".txt", name + "-.sim", name + "-7-8-9.sim", name + "-07.sim",
                                     name + "-7 of May.sim", kind + "00000ffffffffff8-7.sim", kind + "F" + address + "-7.sim"})
        stay.emplace_back(other, scratch);
    for (std::string const& bytes : {std::string(), "results of mine" + std::string(200, '.'), marked(kProcess, Bytes(getppid())),
                                     marked(kProcess, Bytes(-1)), marked(kHost, Bytes(std::uint64_t{1})), marked(0, "\211HDF\r\n\032\n")})
        stay.emplace_back(name + '-' + std::to_string(stay.size()) + ".sim", bytes);
    for (auto const& [file, bytes] : stay)
        WriteFile(folder / file, bytes);
    WriteFile(folder / (name + "-7-1.sim"), marked(kProcess, Bytes(getpid()))); // not locked: an earlier process's
    std::filesystem::create_symlink(folder / stay[0].first, folder / (name + "-1.sim"));
    std::filesystem::create_directory(folder / (name + "-2.sim"));
    std::string const locked = folder / (name + "-7-2.sim");
    WriteFile(locked, scratch);
    int const descriptor = open(locked.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(descriptor, LOCK_EX), 0);
    ASSERT_THAT(folder.Files(), SizeIs(stay.size() + 7));

    auto matrix = std::make_unique<KVOSrvScratchDenseMatrix>(2, 2, 2, 2);

    EXPECT_THAT(folder.Files(), SizeIs(stay.size() + 5)); // with the link, the folder, the files in use and the new one
    EXPECT_TRUE(std::filesystem::exists(locked));
    close(descriptor);
    for (auto const& [file, bytes] : stay)
        EXPECT_TRUE(std::filesystem::exists(folder / file)) << file;
    Randomize(*matrix);
    // Only the first matrix in a directory looks for leftovers.
    WriteFile(folder / leftovers[0], scratch);
    KVOSrvScratchDenseMatrix const another(2, 2, 2, 2);
    EXPECT_TRUE(std::filesystem::exists(folder / leftovers[0]));
}

// One process makes matrices, all under one name, the other looks for leftovers as new processes do. No matrix may lose its file.
TEST(KVOSrvScratchDenseMatrix, CleaningDoesNotDisturbProcessesThatMakeFiles)
{
    ScratchFolder const folder;
    cow_String const path(folder.Path().c_str());
    Child const cleaner([] {}, [&] { ScratchFiles::RemoveLeftovers(path); });

    for (int round = 0; round < 500; ++round) {
        KVOSrvScratchDenseMatrix const matrix(2, 2, 2, 2);
        ASSERT_THAT(folder.Files(), SizeIs(1)) << round;
    }
}

TEST(KVOSrvScratchDenseMatrix, AChildProcessRemovesNoFile)
{
    ScratchFolder const folder;
    auto matrix = std::make_unique<KVOSrvScratchDenseMatrix>(20, 20, 4, 4);
    auto container = std::make_unique<KVOSrvMatrixContainer>();
    Dense const values = Randomize(*matrix), others = Randomize(container->Create(1, 20, 20, 4, 4));
    Child const child([&] { matrix.reset(), container.reset(); });

    EXPECT_THAT(folder.Files(), SizeIs(2));
    ExpectSame(*matrix, values);
    ExpectSame(container->Get(1), others);
}
