#include "KVOSrvMatrixContainer.h"

#include "ChildProcess.h"
#include "DatabaseSupport.h"
#include "KVOFortran.h"
#include "WorkingFolder.h"

#include <list>

using testing::ElementsAre, testing::IsEmpty, testing::UnorderedElementsAre;

namespace
{

std::string FileOf(void const* container, std::string const& suffix = "")
{
    char name[64];
    std::snprintf(name, sizeof name, "KVOSrvMatrixContainer%016lX%s.sim", reinterpret_cast<unsigned long>(container), suffix.c_str());
    return name;
}

/// Memory for a container whose address is known before it is made.
class Place
{
public:
    void const* Address() const { return m_memory; }
    void Make() { m_container = ::new (m_memory) KVOSrvMatrixContainer; }
    void Destroy() { std::exchange(m_container, nullptr)->~KVOSrvMatrixContainer(); }
    KVOSrvMatrixContainer& operator*() const { return *m_container; }

private:
    alignas(KVOSrvMatrixContainer) std::byte m_memory[sizeof(KVOSrvMatrixContainer)];
    KVOSrvMatrixContainer* m_container = nullptr;
};

/// Whether this process has a database file open that has no name any more.
bool HasLostAFile()
{
    for (auto const& link : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code closed;
        std::string const target = std::filesystem::read_symlink(link, closed);
        if (target.find("KVOSrvMatrixContainer") != std::string::npos && target.ends_with(" (deleted)"))
            return true;
    }
    return false;
}

} // namespace

TEST(KVOSrvMatrixContainer, MatricesHaveTheirSizesBlocksAndNumbers)
{
    WorkingFolder const folder;
    KVOSrvMatrixContainer container;
    int const rowIds[] = {8, 3, 500}, colIds[] = {9, 0};
    KVOSrvDenseMatrix& plain = container.Create(5, 10, 4, 3, 100);
    KVOSrvDenseMatrix const &numbered = container.Create(0, 3, 2, rowIds, colIds, -1, 1),
                            &halfNumbered = container.Create(6, 2, 3, nullptr, rowIds, 2, 2);

    EXPECT_EQ(&plain, &container.Get(5));
    ExpectSame(plain, Dense(10, 4));
    EXPECT_THAT(ToVector(SimClient::Describe(plain.DistributionID()).chunkSizes), ElementsAre(4, 3));
    EXPECT_THAT(NumbersOf(plain.RowCSetID()), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9));
    EXPECT_THAT(NumbersOf(plain.ColumnCSetID()), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(NumbersOf(numbered.RowCSetID()), ElementsAre(8, 3, 500));
    EXPECT_THAT(NumbersOf(numbered.ColumnCSetID()), ElementsAre(9, 0));
    EXPECT_TRUE(numbered.NumberOfRowBlocks() == 1 && numbered.NumberOfColumnBlocks() == 2);
    EXPECT_THAT(NumbersOf(halfNumbered.RowCSetID()), ElementsAre(0, 1));
    EXPECT_THAT(NumbersOf(halfNumbered.ColumnCSetID()), ElementsAre(8, 3, 500));
    EXPECT_EQ(container.Create(2, 40000, 40001, -1, 40000).NumberOfColumnsInBlock(0), (1 << 28) / 40000);
    EXPECT_EQ(container.Create(1, 40000, 40001, 40000, 1).NumberOfRowsInBlock(0), (1 << 28) / 40001);
    EXPECT_EQ(container.Size(), 5);
}

TEST(KVOSrvMatrixContainer, ATakenIdKeepsItsMatrixAndTheNewOneIsNobodys)
{
    WorkingFolder const folder;
    auto container = std::make_unique<KVOSrvMatrixContainer>();
    KVOSrvDenseMatrix& first = container->Create(4, 6, 5, 2, 2);
    Dense const values = Randomize(first);

    std::unique_ptr<KVOSrvDenseMatrix> const second(&container->Create(4, 3, 7, 2, 2));

    EXPECT_EQ(container->Size(), 1);
    EXPECT_EQ(&container->Get(4), &first);
    Dense const others = Randomize(*second);
    ExpectSame(*second, others);
    ExpectSame(first, values);
    std::unique_ptr<KVOSrvDenseMatrix> const view(first.Submatrix(1, 4, 2, 4));
    KVOSrvMatrix block(4, 3, nullptr, false, false);
    container.reset(); // deletes neither the second one nor the view, but what is behind them
    EXPECT_EQ(second->NumberOfColumns(), 7);
    ExpectEachThrows<KVOSimException>(
        {[&] { ValuesOf(*second); }, [&] { view->GetRows(0, 3, block); }, [&] { view->SetRows(0, 3, block); }});
    EXPECT_THAT(folder.Files(), IsEmpty());
}

TEST(KVOSrvMatrixContainer, RemovingKeepsTheId)
{
    WorkingFolder const folder;
    KVOSrvMatrixContainer container;
    Dense const values = Randomize(container.Create(1, 4, 4, 2, 2));
    for (int id = 2; id < 30; ++id)
        container.Create(id, 2, 2, 2, 2);
    std::unique_ptr<KVOSrvDenseMatrix> const view(container.Get(1).Submatrix(1, 2, 0, 3));

    for (int id : {7, 1, 20, 1, 99})
        container.Remove(id);

    EXPECT_EQ(container.Size(), 29);
    EXPECT_TRUE(container.IsMember(1) && !container.IsMember(99));
    EXPECT_TRUE(container.Find(1) == nullptr && container.Find(99) == nullptr && container.Find(8) == &container.Get(8));
    ExpectSame(*view, [&](int i, int j) { return values.At(i + 1, j); });
    std::unique_ptr<KVOSrvDenseMatrix> const nobodys(&container.Create(1, 2, 2, 2, 2));
    EXPECT_EQ(container.Find(1), nullptr);
}

TEST(KVOSrvMatrixContainer, RefusalsRegisterNothing)
{
    WorkingFolder const folder;
    KVOSrvMatrixContainer container;
    Dense const values = Randomize(container.Create(1, 4, 4, 2, 2));

    ExpectEachThrows<KVOSrvMtxRefusedInput>({[&] { container.Create(2, 0, 3, 2, 2); }, [&] { container.Create(2, 3, -5, 2, 2); },
                                             [&] { container.Create(2, 1, 300000000, 1, 1000); }}); // 2 GiB hold no whole row
    ExpectEachThrows<KVOSimException>({[&] { container.Create(2, 3, 3, 0, 2); }, [&] { container.Create(2, 3, 3, 2, -2); }});

    EXPECT_FALSE(container.IsMember(2));
    ExpectSame(container.Get(1), values);
    EXPECT_EQ(container.Create(2, 3, 3, 2, 2).NumberOfRows(), 3);
    container.Close();
    EXPECT_THROW(container.Create(3, 3, 3, 2, 2), KVOSimException);
}

TEST(KVOSrvMatrixContainer, ReplacesLeftoversButNothingThatIsInUse)
{
    WorkingFolder const folder;
    Place place;
    std::string const process = "-" + std::to_string(getpid()), plain = FileOf(place.Address()),
                      withProcess = FileOf(place.Address(), process), withNumber = FileOf(place.Address(), process + "-2");
    ChildProcess([&] {
        place.Make();
        return 0;
    }).Wait();
    ASSERT_THAT(folder.Files(), ElementsAre(plain));

    place.Make();
    Dense const values = Randomize((*place).Create(1, 3, 3, 2, 2));
    EXPECT_THAT(folder.Files(), ElementsAre(plain));
    ExpectSame((*place).Get(1), values);
    place.Destroy();
    EXPECT_THAT(folder.Files(), IsEmpty());

    WriteFile(folder / plain, "not ours");
    place.Make();
    EXPECT_THAT(folder.Files(), UnorderedElementsAre(plain, withProcess));
    place.Destroy();
    EXPECT_THAT(folder.Files(), ElementsAre(plain));

    std::filesystem::create_directory(folder / withProcess); // cannot be had, either
    place.Make();
    EXPECT_THAT(folder.Files(), UnorderedElementsAre(plain, withProcess, withNumber));
    folder.EnterBelow();
    place.Destroy();
    EXPECT_THAT(folder.Files(), UnorderedElementsAre(plain, withProcess, "below"));
    EXPECT_EQ(ReadFile(folder / plain), "not ours");
}

// As forked processes do that start working at the same moment. None may lose its file to another one.
TEST(KVOSrvMatrixContainer, ProcessesMayHaveThemAtOneAddress)
{
    WorkingFolder const folder;
    Place place;
    std::list<ChildProcess> processes;
    for (int process = 0; process < 8; ++process)
        processes.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                place.Make();
                if (HasLostAFile())
                    return 1;
                place.Destroy();
            }
            return 0;
        });
    for (ChildProcess& process : processes)
        EXPECT_EQ(process.Wait(), 0);
    EXPECT_THAT(folder.Files(), IsEmpty());
}

TEST(KVOSrvMatrixContainer, FortranIsToldOfMatricesThatAreNotThere)
{
    WorkingFolder const folder;
    KVOSrvMatrixContainer container;
    container.Create(3, 2, 2, 2, 2);
    container.Remove(3);
    auto const handle = reinterpret_cast<std::int64_t>(&container);
    double untouched = 4711.0;
    using Case = std::tuple<std::int64_t, int, std::string>;
    for (auto const& [given, id, line] : {Case(handle, 3, ": there is no matrix 3.\n"), Case(handle, -8, ": there is no matrix -8.\n"),
                                          Case(0, 3, ": there is no container with a matrix 3.\n")}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(KVOSRVMATRIXCONTAINERNUMROWS(given, &id), 0);
        EXPECT_EQ(KVOSRVMATRIXCONTAINERNUMCOLUMNS(given, &id), 0);
        KVOSRVMATRIXCONTAINERGETVALUES(given, &id, &untouched);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "KVOSRVMATRIXCONTAINERNUMROWS" + line + "KVOSRVMATRIXCONTAINERNUMCOLUMNS" + line +
                                                              "KVOSRVMATRIXCONTAINERGETVALUES" + line);
    }
    EXPECT_EQ(untouched, 4711.0);
    KVOSRVMATRIXCONTAINERDELETE(0);
}

TEST(KVOSrvMatrixContainer, FortranGetsAStatusWhereCxxThrows)
{
    WorkingFolder const folder;
    auto const lastError = [](int length) {
        std::string text(static_cast<std::size_t>(length), '#');
        int const whole = KVOSRVLASTERROR(text.data(), &length);
        EXPECT_EQ(text.find_last_not_of(' ') + 1, static_cast<std::size_t>(std::min(whole, length))) << text;
        return text.substr(0, text.find_last_not_of(' ') + 1);
    };
    std::int64_t handle = 4711;
    ASSERT_EQ(KVOSRVMATRIXCONTAINERTRYCREATE(&handle), 0);
    auto& container = *reinterpret_cast<KVOSrvMatrixContainer*>(handle);
    Dense const values = Randomize(container.Create(3, 2, 2, 2, 2));
    double read[4] = {};
    int const id = 3;
    EXPECT_EQ(KVOSRVMATRIXCONTAINERTRYGETVALUES(handle, &id, read), 0);
    EXPECT_EQ(read[3], values.At(1, 1));
    EXPECT_EQ(KVOSRVMATRIXCONTAINERTRYGETVALUES(0, &id, read), -2);
    EXPECT_EQ(lastError(100), "there is no such container or matrix");
    container.Close();
    EXPECT_EQ(KVOSRVMATRIXCONTAINERTRYGETVALUES(handle, &id, read), 500);
    EXPECT_EQ(lastError(12), "Cannot ask f");
    KVOSRVMATRIXCONTAINERDELETE(handle);
    mem_FailAllocationAfter(0);
    EXPECT_EQ(KVOSRVMATRIXCONTAINERTRYCREATE(&handle), -1);
    mem_FailAllocationAfter(-1);
    EXPECT_EQ(handle, 0);
    EXPECT_EQ(lastError(13), "Out of memory");
    folder.EnterBelow(true);
    EXPECT_EQ(KVOSRVMATRIXCONTAINERTRYCREATE(&handle), 500);
}
