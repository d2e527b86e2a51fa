#include "ChildProcess.h"
#include "KVOFortran.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMatrixContainer.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"
#include "SimClient.h"
#include "WorkingFolder.h"
#include "cow_List.h"

#include <barrier>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <numeric>
#include <thread>
#include <unistd.h>

// Objects of one thread each, side by side: what they share unseen must not mix them up. The values are whole numbers, so that every
// result is exact. A thread that finds something wrong throws; the checks of GoogleTest stay in the main thread.

namespace
{

constexpr int kThreads = 8;

void Require(bool held, char const* what)
{
    if (!held)
        throw std::runtime_error(what);
}

struct Task {
    int thread;
    int round;
    std::string folder; // of the thread

    int Number() const noexcept { return 100 * thread + round; }
    // Entry (i, j) of this task's matrices.
    double Entry(int i, int j) const noexcept { return Number() % 97 + 3 * i - 2 * j; }
    std::vector<double> Entries(int rows, int columns) const
    {
        std::vector<double> entries;
        for (int j = 0; j < columns; ++j)
            for (int i = 0; i < rows; ++i)
                entries.push_back(Entry(i, j));
        return entries;
    }
};

// Of the packed rows x columns entries a, times a column of ones.
std::vector<double> RowSums(std::vector<double> const& a, int rows)
{
    std::vector<double> sums(static_cast<std::size_t>(rows));
    for (std::size_t k = 0; k < a.size(); ++k)
        sums[k % sums.size()] += a[k];
    return sums;
}

// A database matrix: whole, by a view, and in a product.
void CheckMatrix(Task const& task, KVOSrvDenseMatrix& matrix)
{
    int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    std::vector<double> entries = task.Entries(rows, columns);
    matrix.SetRows(0, rows - 1, KVOSrvMatrix(rows, columns, entries.data(), false, false));
    std::vector<double> found(entries.size());
    matrix.GetAllValues(found.data());
    Require(found == entries, "a database matrix has other values");

    std::unique_ptr<KVOSrvDenseMatrix> const view(matrix.Submatrix(1, rows - 2, 2, columns - 1));
    KVOSrvMatrix part(rows - 2, 1, nullptr, false, false);
    view->GetColumns(3, 3, part);
    Require(part.Values()[4] == task.Entry(5, 5), "a view has other values");

    std::vector<double> const ones(static_cast<std::size_t>(columns), 1.0);
    std::vector<double> product(static_cast<std::size_t>(rows)); // added to
    matrix.Multiply(ones.data(), 1, product.data());
    Require(product == RowSums(entries, rows), "a product with a database matrix is wrong");
}

void UseScratchMatrix(Task const& task)
{
    KVOSrvScratchDenseMatrix matrix(40 + task.thread, 30, 16, 9);
    CheckMatrix(task, matrix);
}

// Two commits, an opening, an extension that is dropped.
void UseDatabase(Task const& task)
{
    using namespace SimClient;
    std::string const path = task.folder + "/database.sim";
    std::filesystem::remove(path);
    std::vector<double> const values = Ramp(12, task.Number());
    KVOSimDistributionID first;
    {
        KVOSimDatabase database;
        database.CreateFile(path.c_str(), 0);
        KVOSimContext context(database.CreateContext());
        KVOSimTransaction transaction(context);
        KVOSimCollectionID const collection = context.CreateCollection(100);
        first = MakeMatrix(context.ID(), {MakeSet(collection, std::vector<int>{3, 1, 4, 15, 9, 2, 6, 5, 35, 8, 97, 93})}, {5});
        WriteAll(first, values);
        transaction.Commit();
        MakeMatrix(context.ID(), {Biggest(collection)}, {50}, task.Number());
        database.Close();
    }
    KVOSimDatabase database;
    database.OpenFile(path.c_str(), task.round % 2 == 0);
    KVOSimContext context(database.ContextID());
    auto const stored = context.QueryDistributions();
    Require(stored.Size() == 2 && ReadAll(stored[0]) == values, "a database has other values than were committed");
    Require(ReadAll(stored[1]) == std::vector<double>(100, task.Number()), "a database has other initial values");
}

void UseContainer(Task const& task)
{
    KVOSrvMatrixContainer container;
    int const id = task.thread;
    CheckMatrix(task, container.Create(id, 20, 17, 8, -1));
    std::vector<double> values(20 * 17);
    KVOSRVMATRIXCONTAINERGETVALUES(reinterpret_cast<std::int64_t>(&container), &id, values.data());
    Require(values == task.Entries(20, 17), "a container gives other values");
}

void UseSparseMatrix(Task const& task)
{
    constexpr int kRows = 200, kColumns = 150;
    KVOSrvSparseMatrix matrix(kRows, kColumns);
    std::vector<double> sums(kRows);
    for (unsigned k = 0; k < 3000; ++k) {
        unsigned const row = k * 7 % kRows, column = (k + static_cast<unsigned>(task.thread)) * 11 % kColumns;
        matrix.AddData(row, column, task.Entry(1, static_cast<int>(k % 5)));
        sums[row] += task.Entry(1, static_cast<int>(k % 5));
    }
    matrix.EndAssembly();
    std::vector<double> const ones(kColumns, 1.0);
    std::vector<double> product(kRows);
    auto const check = [&](KVOSrvSparseMatrix const& m) {
        m.Multiply(ones.data(), 1, product.data(), false);
        Require(product == sums, "a product with a sparse matrix is wrong");
    };
    check(matrix);

    std::string const path = task.folder + "/matrix.txt";
    int const format = task.round % 2 == 0 ? 3 : 7;
    matrix.Export(path.c_str(), format);
    KVOSrvSparseMatrix imported(0, 0);
    imported.Import(path.c_str(), format);
    check(imported);

    KVOSimDatabase database;
    database.SetScratch();
    std::filesystem::remove(task.folder + "/sparse.sim");
    database.CreateFile((task.folder + "/sparse.sim").c_str(), 0);
    KVOSimContext context(database.CreateContext());
    KVOSimCSetID const rows = SimClient::Biggest(context.CreateCollection(kRows));
    KVOSimCSetID const columns = SimClient::Biggest(context.CreateCollection(kColumns));
    KVOSimDistributionID const stored = KVOSrvUtilities::CreateSparseDistribution(rows, columns);
    matrix.Export(rows, columns, stored);
    check(KVOSrvSparseMatrix(stored));
}

void Multiply(Task const& task)
{
    constexpr int kSize = 90;
    std::vector<double> const a = task.Entries(kSize, kSize), ones(kSize, 1.0);
    std::vector<double> c(kSize);
    double const zero = 0.0, one = 1.0;
    int const size = kSize, columns = 1;
    BLAC_DGEMM2("N", "N", &size, &columns, &size, &one, a.data(), &size, ones.data(), &size, &zero, c.data(), &size);
    Require(c == RowSums(a, kSize), "the built-in product is wrong");
    KVOSrvMatrix x(kSize, 1, const_cast<double*>(ones.data()), false, false), y(kSize, 1, c.data(), false, false);
    y.Multiply(KVOSrvMatrix(kSize, kSize, const_cast<double*>(a.data()), false, false), x);
    Require(c == RowSums(a, kSize), "a product in memory is wrong");
}

void Fail(Task const& task)
{
    std::string const path = task.folder + "/missing.sim";
    try {
        KVOSimDatabase().OpenFile(path.c_str(), true);
        Require(false, "a database that is not there was opened");
    } catch (KVOSimException const& exception) {
        KVOSimException const copy = exception;
        Require(copy.AsString().View().find(path) != std::string_view::npos, "another thread's failure was reported");
    }
    try {
        int rowChunk = 1, columnChunk = 1;
        KVOSrvUtilities::LimitChunkSize2GB(rowChunk, columnChunk, 0, 1);
        Require(false, "illegal input was taken");
    } catch (KVOSrvMtxIllegalInput const& exception) {
        Require(exception.AsString().View().find("LimitChunkSize2GB") != std::string_view::npos, "the wrong failure was reported");
    }
}

void UseAllocator(Task const& task)
{
    std::vector<std::unique_ptr<unsigned char, mem_Deleter>> kept;
    for (std::size_t bytes : {1, 100, 5000, 70'000, 300'000, 2'000'000, 9'000'000}) {
        kept.emplace_back(static_cast<unsigned char*>(mem_OperatorNewThrow(bytes)));
        std::fill_n(kept.back().get(), bytes, static_cast<unsigned char>(task.Number()));
        Require(kept.size() < 2 || *kept[kept.size() - 2] == static_cast<unsigned char>(task.Number()), "memory was given twice");
    }
}

/// Shared by every thread's copies.
struct Common {
    cow_List<int> list;
    cow_String text{"shared"};
};
Common const& CommonOfAll()
{
    static Common const s_common = [] {
        Common common;
        for (int i = 0; i < 1000; ++i)
            common.list.Append(i);
        return common;
    }();
    return s_common;
}

void ShareContent(Task const& task)
{
    Common mine = CommonOfAll();
    for (int i = 0; i < 100; ++i) {
        Common const copy = mine;
        mine.list.Append(task.Number());
        mine.text = copy.text;
        Require(copy.list.Size() == 1000 + i && mine.list[1000 + i] == task.Number(), "a list has other elements");
    }
    Require(CommonOfAll().list.Size() == 1000 && mine.text == "shared", "what is shared was changed");
}

using Work = void (*)(Task const&);
constexpr Work kWorks[] = {UseScratchMatrix, UseDatabase, UseContainer, UseSparseMatrix, Multiply, Fail, UseAllocator, ShareContent};

int Rounds()
{
    char const* const rounds = std::getenv("KVO_THREAD_ROUNDS");
    return rounds != nullptr ? std::atoi(rounds) : 40;
}

// Two threads at a time do the same, on objects of their own.
TEST(Threads, WorkSideBySide)
{
    WorkingFolder const folder(FolderWithoutDisk()); // containers and scratch matrices lie there
    std::vector<std::string> failures(kThreads);
    std::barrier start(kThreads);
    auto const run = [&](int thread) {
        Task task{thread, 0, folder / std::to_string(thread)};
        try {
            std::filesystem::create_directory(task.folder);
            start.arrive_and_wait();
            for (; task.round < Rounds(); ++task.round)
                kWorks[static_cast<std::size_t>(thread / 2 + task.round) % std::size(kWorks)](task);
        } catch (KVOBasException const& exception) {
            failures[static_cast<std::size_t>(thread)] = exception.DeveloperReport().c_str();
        } catch (std::exception const& exception) {
            failures[static_cast<std::size_t>(thread)] = exception.what();
        }
    };

    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread)
        threads.emplace_back(run, thread);
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_THAT(failures, testing::Each(testing::IsEmpty()));
}

// A child has one thread; what another held when it was made would stay held for ever.
TEST(Threads, AChildOfForkFindsNothingHeld)
{
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizer does not follow a child of several threads";
#endif
    TemporaryFolder const folder(FolderWithoutDisk());
    std::jthread const busy([&](std::stop_token const& stop) {
        for (Task task{0, 0, folder / "."}; !stop.stop_requested(); ++task.round)
            UseDatabase(task);
    });
    for (int number = 1; number <= 40; ++number) {
        Task const task{number, 0, folder / std::to_string(number)};
        std::filesystem::create_directory(task.folder);
        ChildProcess child([&] {
            alarm(30); // or it would wait for ever
            UseDatabase(task);
            return 0;
        });
        ASSERT_EQ(child.Wait(), 0) << "child " << number;
    }
}

} // namespace
