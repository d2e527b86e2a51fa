#include "ChildProcess.h"
#include "DatabaseSupport.h"
#include "KVOFortran.h"
#include "KVOSrvMatrixContainer.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "SparseOracle.h"
#include "WorkingFolder.h"
#include "cow_List.h"

#include <barrier>
#include <thread>

// Objects of one thread each, side by side: what they share unseen must not mix them up. The values are whole numbers, so that every
// result is exact. A thread that finds something wrong throws; the checks of GoogleTest stay in the main thread.

namespace
{

constexpr int kThreads = 8;

void ThrowUnless(bool held, char const* what)
{
    if (!held)
        throw std::runtime_error(what);
}

struct Task {
    int thread, round;
    std::string folder; // of the thread

    int Number() const noexcept { return 100 * thread + round; }
    // This task's matrices.
    Dense Entries(int rows, int columns) const
    {
        return Filled(rows, columns, [this](int i, int j) { return Number() % 97 + 3 * i - 2 * j; });
    }
};

// A database matrix: whole, by a view, and in a product.
void CheckMatrix(Task const& task, KVOSrvDenseMatrix& matrix)
{
    int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    Dense entries = task.Entries(rows, columns), part(rows - 2, 1), product(rows, 1);
    matrix.SetRows(0, rows - 1, Wrapping(entries));
    ThrowUnless(ValuesOf(matrix).values == entries.values, "a database matrix has other values");

    KVOSrvMatrix column = Wrapping(part);
    std::unique_ptr<KVOSrvDenseMatrix>(matrix.Submatrix(1, rows - 2, 2, columns - 1))->GetColumns(3, 3, column);
    ThrowUnless(part.At(4, 0) == entries.At(5, 5), "a view has other values");

    Dense const ones(columns, 1, 1.0);
    matrix.Multiply(ones.data(), 1, product.data());
    ThrowUnless(product.values == (entries * ones).values, "a product with a database matrix is wrong");
}

// A commit, a second one at the end, and an opening.
void UseDatabase(Task const& task)
{
    using namespace SimClient;
    std::string const path = task.folder + "/database.sim";
    std::filesystem::remove(path);
    std::vector<double> const values = Ramp(12, task.Number());
    {
        KVOSimDatabase database;
        database.CreateFile(path.c_str(), 0);
        KVOSimContext context(database.CreateContext());
        KVOSimTransaction transaction(context);
        KVOSimCollectionID const collection = context.CreateCollection(100);
        WriteAll(MakeMatrix(context.ID(), {MakeSet(collection, {3, 1, 4, 15, 9, 2, 6, 5, 35, 8, 97, 93})}, {5}), values);
        transaction.Commit();
        MakeMatrix(context.ID(), {Biggest(collection)}, {50}, task.Number());
        database.Close();
    }
    KVOSimDatabase database;
    database.OpenFile(path.c_str(), task.round % 2 == 0);
    auto const stored = KVOSimContext(database.ContextID()).QueryDistributions();
    ThrowUnless(stored.Size() == 2 && ReadAll(stored[0]) == values, "a database has other values than were committed");
    ThrowUnless(ReadAll(stored[1]) == std::vector<double>(100, task.Number()), "a database has other initial values");
}

void UseScratchMatrices(Task const& task)
{
    KVOSrvScratchDenseMatrix matrix(40 + task.thread, 30, 16, 9);
    CheckMatrix(task, matrix);
    KVOSrvMatrixContainer container;
    int const id = task.thread;
    CheckMatrix(task, container.Create(id, 20, 17, 8, -1));
    Dense values(20, 17);
    KVOSRVMATRIXCONTAINERGETVALUES(reinterpret_cast<std::int64_t>(&container), &id, values.data());
    ThrowUnless(values.values == task.Entries(20, 17).values, "a container gives other values");
}

void UseSparseMatrix(Task const& task)
{
    SparseOracle const oracle = WholeNumbers({200, 150, 3000}, static_cast<unsigned>(task.Number()));
    Dense const ones(oracle.columns, 1, 1.0), sums = ProductOf(oracle, ones, false);
    auto const check = [&](KVOSrvSparseMatrix const& matrix) {
        Dense product(oracle.rows, 1);
        matrix.Multiply(ones.data(), 1, product.data(), false);
        ThrowUnless(product.values == sums.values, "a product with a sparse matrix is wrong");
    };
    auto const matrix = oracle.Matrix();
    check(*matrix);

    std::string const path = task.folder + "/matrix.txt";
    int const format = task.round % 2 == 0 ? 3 : 7;
    matrix->Export(path.c_str(), format);
    KVOSrvSparseMatrix imported(0, 0);
    imported.Import(path.c_str(), format);
    check(imported);

    TestDatabase const database;
    KVOSimCSetID const rows = database.Members(oracle.rows), columns = database.Members(oracle.columns);
    KVOSimDistributionID const stored = KVOSrvUtilities::CreateSparseDistribution(rows, columns);
    matrix->Export(rows, columns, stored);
    check(KVOSrvSparseMatrix(stored));
}

void Multiply(Task const& task)
{
    Dense a = task.Entries(90, 90), ones(90, 1, 1.0), product(90, 1);
    Dense const sums = a * ones;
    double const zero = 0.0, one = 1.0;
    BLAC_DGEMM2("N", "N", &a.rows, &ones.columns, &a.columns, &one, a.data(), &a.ld, ones.data(), &ones.ld, &zero, product.data(),
                &product.ld);
    ThrowUnless(product.values == sums.values, "the built-in product is wrong");
    product = Dense(90, 1);
    Wrapping(product).Multiply(Wrapping(a), Wrapping(ones));
    ThrowUnless(product.values == sums.values, "a product in memory is wrong");
}

void Fail(Task const& task)
{
    std::string const path = task.folder + "/missing.sim";
    ThrowUnless(FailureOf([&] { KVOSimDatabase().OpenFile(path.c_str(), true); }).find(path) != std::string::npos,
                "another thread's failure was reported");
    auto const refused = [](int rowChunk, int columnChunk) { KVOSrvUtilities::LimitChunkSize2GB(rowChunk, columnChunk, 0, 1); };
    ThrowUnless(ReportOf<KVOSrvMtxIllegalInput>([&] { refused(1, 1); }).find("LimitChunkSize2GB") != std::string::npos,
                "the wrong failure was reported");
}

void UseAllocator(Task const& task)
{
    std::vector<std::unique_ptr<unsigned char, mem_Deleter>> kept;
    for (std::size_t bytes : {1, 100, 5000, 70'000, 300'000, 2'000'000, 9'000'000}) {
        kept.emplace_back(static_cast<unsigned char*>(mem_OperatorNewThrow(bytes)));
        std::fill_n(kept.back().get(), bytes, static_cast<unsigned char>(task.Number()));
        ThrowUnless(kept.size() < 2 || *kept[kept.size() - 2] == static_cast<unsigned char>(task.Number()), "memory was given twice");
    }
}

// What every thread copies.
struct Common {
    Common()
    {
        for (int i = 0; i < 1000; ++i)
            list.Append(i);
    }
    cow_List<int> list;
    cow_String text{"shared"};
};

void ShareContent(Task const& task)
{
    static Common const s_common;
    Common mine = s_common;
    for (int i = 0; i < 100; ++i) {
        Common const copy = mine;
        mine.list.Append(task.Number());
        mine.text = copy.text;
        ThrowUnless(copy.list.Size() == 1000 + i && mine.list[1000 + i] == task.Number(), "a list has other elements");
    }
    ThrowUnless(s_common.list.Size() == 1000 && mine.text == "shared", "what is shared was changed");
}

using Work = void (*)(Task const&);
constexpr Work kWorks[] = {UseScratchMatrices, UseDatabase, UseSparseMatrix, Multiply, Fail, UseAllocator, ShareContent};

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
    auto const work = [&](int thread) {
        Task task{thread, 0, folder / std::to_string(thread)};
        std::filesystem::create_directory(task.folder);
        start.arrive_and_wait();
        for (; task.round < Rounds(); ++task.round)
            kWorks[static_cast<std::size_t>(thread / 2 + task.round) % std::size(kWorks)](task);
    };
    {
        std::vector<std::jthread> threads;
        for (int thread = 0; thread < kThreads; ++thread)
            threads.emplace_back([&, thread] {
                try {
                    work(thread);
                } catch (KVOBasException const& exception) {
                    failures[static_cast<std::size_t>(thread)] = exception.DeveloperReport().c_str();
                } catch (std::exception const& exception) {
                    failures[static_cast<std::size_t>(thread)] = exception.what();
                }
            });
    }
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
