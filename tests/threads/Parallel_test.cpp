#include "KVOFortran.h"
#include "KVOFsmSystemDofDefinition.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvParallel.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "ShuffledThreads.h"
#include "SparseOracle.h"
#include "tasks.h"

#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <memory>

// Operations with threads that a host lends: to the bit what they give without.

namespace
{

std::vector<double> RandomNumbers(std::int64_t count)
{
    std::mt19937_64 random(5);
    std::vector<double> numbers(static_cast<std::size_t>(count));
    std::ranges::generate(numbers, [&] { return std::uniform_real_distribution<>(-1.0, 1.0)(random); });
    return numbers;
}

struct Pattern {
    int rows, columns, perRow;
    int reach; // how far columns lie from the diagonal, at most
};
constexpr Pattern kBand{6000, 6000, 30, 200}, kScattered{5000, 7000, 40, 7000}, kTall{9000, 3000, 20, 40}, kSmall{10, 10, 1, 2};
constexpr Pattern kWide{200, 2'000'000'000, 600, 1000};

// Entries row by row, columns in no order and some of them repeated, every 37th row without.
std::vector<KVOSrvSparseMatrixEntry> Entries(Pattern const& pattern)
{
    std::mt19937_64 random(3);
    std::vector<KVOSrvSparseMatrixEntry> entries;
    for (int i = 0; i < pattern.rows; ++i)
        for (int k = 0; k < (i % 37 == 5 ? 0 : pattern.perRow); ++k) {
            auto const middle = static_cast<int>(std::int64_t{i} * pattern.columns / pattern.rows);
            int const column = middle + std::uniform_int_distribution<>(-pattern.reach, pattern.reach)(random);
            entries.push_back({static_cast<unsigned>(i), static_cast<unsigned>(std::clamp(column, 0, pattern.columns - 1)),
                               std::uniform_real_distribution<>(-1.0, 1.0)(random)});
        }
    return entries;
}

std::unique_ptr<KVOSrvSparseMatrix> Assembled(Pattern const& pattern)
{
    auto matrix = std::make_unique<KVOSrvSparseMatrix>(pattern.rows, pattern.columns);
    for (KVOSrvSparseMatrixEntry const& entry : Entries(pattern))
        matrix->AddData(entry.row, entry.column, entry.value);
    matrix->EndAssembly();
    return matrix;
}

Half LowerTriangle(Pattern const& pattern)
{
    Half half(pattern.rows);
    half.diagonal = RandomNumbers(pattern.rows);
    for (KVOSrvSparseMatrixEntry const& entry : Entries(pattern))
        if (entry.column < entry.row)
            half.rows[entry.row].emplace_back(static_cast<int>(entry.column), entry.value);
    return half;
}

std::vector<double> Product(KVOSrvSparseMatrix const& matrix, int nvec, bool transpose)
{
    int const in = transpose ? matrix.NumberOfRows() : matrix.NumberOfColumns();
    int const out = transpose ? matrix.NumberOfColumns() : matrix.NumberOfRows();
    std::vector<double> const x = RandomNumbers(std::int64_t{in} * nvec);
    std::vector<double> y(static_cast<std::size_t>(out) * static_cast<std::size_t>(nvec), -7.0);
    matrix.Multiply(x.data(), nvec, y.data(), transpose);
    return y;
}

// All that a matrix shows, as numbers.
std::vector<double> Numbers(KVOSrvSparseMatrix const& matrix)
{
    int count = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const entries(matrix.GetEntries(count));
    std::vector<double> numbers{static_cast<double>(matrix.NumberOfRows()), static_cast<double>(matrix.NumberOfColumns())};
    for (int k = 0; k < count; ++k)
        for (double const number : {static_cast<double>(entries[k].row), static_cast<double>(entries[k].column), entries[k].value})
            numbers.push_back(number);
    return numbers;
}

std::vector<KVOSrvSparseMatrixEntry> ShuffledEntries(Pattern const& pattern)
{
    std::vector<KVOSrvSparseMatrixEntry> entries = Entries(pattern);
    std::shuffle(entries.begin(), entries.end(), std::mt19937(9));
    return entries;
}

std::vector<double> NewlyAssembled(std::vector<KVOSrvSparseMatrixEntry> const& entries, Pattern const& pattern)
{
    KVOSrvSparseMatrix matrix(pattern.rows, pattern.columns);
    for (KVOSrvSparseMatrixEntry const& entry : entries)
        matrix.AddData(entry.row, entry.column, entry.value);
    matrix.EndAssembly();
    return Numbers(matrix);
}

std::string TextOf(std::vector<KVOSrvSparseMatrixEntry> const& entries, char const* separator = " ")
{
    std::ostringstream text;
    text.precision(17);
    for (KVOSrvSparseMatrixEntry const& entry : entries)
        text << entry.row + 1 << ' ' << entry.column + 1 << separator << entry.value << '\n';
    return text.str();
}

// Records that ascend in each of the parts that two threads and more are given, whose parts come in reverse.
std::string TextOfReversedParts()
{
    constexpr int kParts = 8, kLines = 15000; // of 18 bytes: a part is of 256 KiB and more
    std::string text;
    for (int line = 0; line < kParts * kLines; ++line) {
        int const part = std::max(line - 1, 0) / kLines; // one begins behind the line in which its place lies
        char record[32];
        std::snprintf(record, sizeof record, "%06d %06d 1.5\n", (kParts - part) * (kLines + 2) + line - part * kLines, 7);
        text += record;
    }
    return text;
}

class TextFile
{
public:
    explicit TextFile(std::string const& text) { WriteFile(m_path, text); }
    void ImportInto(KVOSrvSparseMatrix& matrix) const { matrix.Import(m_path.c_str(), 3); }
    std::vector<double> Imported() const
    {
        KVOSrvSparseMatrix matrix(0, 0);
        ImportInto(matrix);
        return Numbers(matrix);
    }

private:
    TemporaryFolder const m_folder{FolderWithoutDisk()};
    std::string const m_path = m_folder / "matrix";
};

auto ImportOf(std::string const& text)
{
    return [file = std::make_shared<TextFile const>(text)] { return file->Imported(); };
}

// What tells the bytes of a file from others.
std::vector<double> Exported(KVOSrvSparseMatrix const& matrix, int format)
{
    TemporaryFolder const folder(FolderWithoutDisk());
    KVOFsmSystemDofDefinition const dofs = [&] {
        std::vector<int> nodes(static_cast<std::size_t>(matrix.NumberOfRows())), numbers(nodes.size());
        for (std::size_t k = 0; k < nodes.size(); ++k) {
            nodes[k] = static_cast<int>(k / 3 + 1);
            numbers[k] = static_cast<int>(k % 3 + 1);
        }
        return KVOFsmSystemDofDefinition(matrix.NumberOfRows(), nodes.data(), numbers.data());
    }();
    matrix.Export((folder / "matrix").c_str(), format, &dofs);
    std::string const bytes = ReadFile(folder / "matrix");
    return {static_cast<double>(bytes.size()), static_cast<double>(std::hash<std::string>()(bytes))};
}

struct StoredShape {
    int rows, columns, rowChunk, columnChunk;
};

std::shared_ptr<KVOSrvDenseMatrix> Stored(StoredShape const& shape)
{
    auto matrix = std::make_shared<KVOSrvScratchDenseMatrix>(shape.rows, shape.columns, shape.rowChunk, shape.columnChunk);
    std::vector<double> values = RandomNumbers(std::int64_t{shape.rows} * shape.columns);
    matrix->SetRows(0, shape.rows - 1, KVOSrvMatrix(shape.rows, shape.columns, values.data(), false, false));
    return matrix;
}

// Every product of a stored matrix with p vectors.
std::vector<double> StoredProducts(KVOSrvDenseMatrix& A, int p)
{
    int const rows = A.NumberOfRows(), columns = A.NumberOfColumns();
    std::vector<double> all, y(static_cast<std::size_t>(std::max(rows, columns)) * static_cast<std::size_t>(p), 0.5);
    std::vector<double> x = RandomNumbers(std::int64_t{std::max(rows, columns)} * p);
    auto const keep = [&](std::size_t count) { all.insert(all.end(), y.begin(), y.begin() + static_cast<std::ptrdiff_t>(count)); };
    auto const keepMatrix = [&](KVOSrvDenseMatrix& matrix) {
        std::vector<double> values(static_cast<std::size_t>(matrix.NumberOfRows()) * static_cast<std::size_t>(matrix.NumberOfColumns()));
        matrix.GetAllValues(values.data());
        all.insert(all.end(), values.begin(), values.end());
    };
    std::size_t const rowEntries = static_cast<std::size_t>(rows) * static_cast<std::size_t>(p);
    std::size_t const columnEntries = static_cast<std::size_t>(columns) * static_cast<std::size_t>(p);
    A.Multiply(x.data(), p, y.data());
    keep(rowEntries);
    A.TransposeMultiply(x.data(), p, y.data(), rows - 3);
    keep(columnEntries);
    KVOSrvMatrix const tall(rows, p, x.data(), false, false), wide(columns, p, x.data(), false, false);
    KVOSrvMatrix ofTall(columns, p, y.data(), false, false);
    std::vector<int> reversed(static_cast<std::size_t>(rows));
    std::iota(reversed.rbegin(), reversed.rend(), 0);
    A.TransposeMultiply(reversed.data(), tall, ofTall, 2.0, 0.5);
    keep(columnEntries);
    A.TransposeMultiply(tall, ofTall, 0);
    keep(columnEntries);

    auto const Y = Stored({rows, p, 130, 20}), B = Stored({columns, p, 70, 50});
    A.Multiply(-1.5, wide, 2.0, *Y);
    keepMatrix(*Y);
    A.Multiply(B.get(), y.data());
    keep(rowEntries);
    A.Multiply(*B, *Y);
    keepMatrix(*Y);
    return all;
}

struct Case {
    char const* name;
    std::function<std::function<std::vector<double>()>()> prepare; // what it returns is run with and without threads
};

std::vector<Case> const& Cases()
{
    auto const products = [](Pattern const& pattern, bool transpose, std::initializer_list<int> counts) {
        return [=, vectors = std::vector<int>(counts)] {
            return [=, matrix = std::shared_ptr<KVOSrvSparseMatrix>(Assembled(pattern))] {
                std::vector<double> all;
                for (int const nvec : vectors)
                    std::ranges::copy(Product(*matrix, nvec, transpose), std::back_inserter(all));
                return all;
            };
        };
    };
    static std::vector<Case> const s_cases{
        {"SparseProducts", products(kBand, false, {1, 8, 19})},
        {"SparseProductsOfScatteredColumns", products(kScattered, false, {3, 16})},
        {"TransposedProducts", products(kBand, true, {4, 8, 19})},
        {"TransposedProductsOfScatteredColumns", products(kScattered, true, {5, 16})},
        {"TransposedProductsOfTallMatrices", products(kTall, true, {4, 9})},
        {"TransposedProductsOfNarrowMatrices", products({20000, 300, 20, 2}, true, {4})}, // blocks of rows that end where a part begins
        {"HalfStoredProducts",
         [] {
             return [half = std::shared_ptr<KVOSrvSparseMatrix>(HalfStored(LowerTriangle(kBand))),
                     scattered = std::shared_ptr<KVOSrvSparseMatrix>(HalfStored(LowerTriangle({5000, 5000, 40, 5000})))] {
                 std::vector<double> all = Product(*half, 11, false);
                 std::ranges::copy(Product(*half, 2, false), std::back_inserter(all));
                 std::ranges::copy(Product(*scattered, 8, true), std::back_inserter(all));
                 return all;
             };
         }},
        {"Assembly", [] { return [entries = ShuffledEntries(kBand)] { return NewlyAssembled(entries, kBand); }; }},
        {"AssemblyOfMoreColumnsThanEntries", [] { return [entries = ShuffledEntries(kWide)] { return NewlyAssembled(entries, kWide); }; }},
        {"TextImport",
         [] {
             return ImportOf(TextOf(Entries({6000, 50'000'000, 30, 0})));
         }},
        {"TextImportOfShuffledEntries", [] { return ImportOf(TextOf(ShuffledEntries(kTall))); }},
        {"TextImportOfReversedParts", [] { return ImportOf(TextOfReversedParts()); }},
        {"TextImportOfRecordsOnTwoLines", [] { return ImportOf(TextOf(ShuffledEntries(kTall), "\n")); }},
        {"TextExport",
         [] {
             return [full = std::shared_ptr<KVOSrvSparseMatrix>(Assembled({1500, 1500, 20, 40})),
                     half = std::shared_ptr<KVOSrvSparseMatrix>(HalfStored(LowerTriangle({2500, 2500, 20, 40})))] {
                 std::vector<double> all;
                 for (int const format : {3, 4, 5})
                     for (KVOSrvSparseMatrix const* const matrix : {full.get(), half.get()})
                         std::ranges::copy(Exported(*matrix, format), std::back_inserter(all));
                 return all;
             };
         }},
        {"Transpose",
         [] {
             return [matrix = std::shared_ptr<KVOSrvSparseMatrix>(Assembled(kTall))] {
                 return Numbers(*std::unique_ptr<KVOSrvSparseMatrix>(matrix->Transpose()));
             };
         }},
        {"StoredProductsByBlocks",
         [] {
             return [matrix = Stored({1300, 1300, 640, 640})] { return StoredProducts(*matrix, 140); };
         }},
        {"StoredProductsByCopies",
         [] {
             return [matrix = Stored({1500, 700, 64, 100})] { return StoredProducts(*matrix, 16); };
         }},
        {"StoredProductsWithManyVectors",
         [] {
             return [matrix = Stored({1500, 700, 64, 100})] { return StoredProducts(*matrix, 150); };
         }},
        {"ProductsOfPickedRows", // those that are not empty
         [] {
             return [matrix = std::shared_ptr<KVOSrvSparseMatrix>(Assembled(kBand)), x = Stored({kBand.rows, 18, 1000, 20})] {
                 std::vector<double> y(static_cast<std::size_t>(kBand.columns) * 18, -7.0);
                 matrix->MultiplyDense(*x, y.data(), true);
                 return y;
             };
         }},
    };
    return s_cases;
}

class ParallelOperations : public testing::TestWithParam<Case>
{
};

TEST_P(ParallelOperations, GiveTheBitsOfOneThread)
{
    auto const run = GetParam().prepare();
    std::vector<double> const expected = run();
    for (int const threads : {2, 3, 8}) {
        SCOPED_TRACE(std::to_string(threads) + " threads");
        ShuffledThreads host(threads);
        KVOSrvParallel const parallel(ShuffledThreads::Run, &host, threads);
        std::vector<double> const found = run();
        ASSERT_EQ(found.size(), expected.size());
        EXPECT_EQ(std::memcmp(found.data(), expected.data(), found.size() * sizeof(double)), 0);
        EXPECT_GT(host.Calls(), 0) << "no tasks";
    }
}

INSTANTIATE_TEST_SUITE_P(Of, ParallelOperations, testing::ValuesIn(Cases()), [](auto const& one) { return std::string(one.param.name); });

class Parallel : public testing::Test
{
protected:
    std::vector<double> Multiply() const { return Product(*m_matrix, 8, false); }

    std::unique_ptr<KVOSrvSparseMatrix> const m_matrix = Assembled(kBand);
    std::vector<double> const m_expected = Multiply();
};

TEST_F(Parallel, IsInForceForItsThreadWhileItLives)
{
    ShuffledThreads outer(2), inner(3);
    auto const callsOf = [&](ShuffledThreads const& host) {
        int const before = host.Calls();
        Multiply();
        return host.Calls() - before;
    };
    KVOSrvParallel const first(ShuffledThreads::Run, &outer);
    {
        KVOSrvParallel const second(ShuffledThreads::Run, &inner, 3);
        EXPECT_EQ(callsOf(outer), 0);
        EXPECT_GT(callsOf(inner), 0);
        KVOSrvParallel const none(nullptr, nullptr);
        EXPECT_EQ(callsOf(inner), 0);
    }
    EXPECT_GT(callsOf(outer), 0);
    int const before = outer.Calls();
    std::jthread([&] { Multiply(); }).join();
    EXPECT_EQ(outer.Calls(), before) << "another thread's";
}

// The operation is done all the same, then the host's error is told.
TEST_F(Parallel, RefusesHostsThatDoNotRunEachTaskOnce)
{
    static std::vector<std::jthread> s_late;
    KVOSrvParallel::Run const leavesOneOut = [](void*, int tasks, KVOSrvParallel::Task task, void* data) {
        for (int index = 0; index + 1 < tasks; ++index)
            task(data, index);
    };
    KVOSrvParallel::Run const runsOneTwice = [](void*, int tasks, KVOSrvParallel::Task task, void* data) {
        for (int index = 0; index <= tasks; ++index)
            task(data, index % tasks);
    };
    KVOSrvParallel::Run const inventsOne = [](void*, int tasks, KVOSrvParallel::Task task, void* data) {
        for (int index = -1; index < tasks; ++index)
            task(data, index);
    };
    KVOSrvParallel::Run const returnsEarly = [](void*, int tasks, KVOSrvParallel::Task task, void* data) {
        for (int index = 0; index < tasks; ++index)
            s_late.emplace_back([=] { task(data, index); });
    };
    std::vector<double> y(m_expected.size());
    std::vector<double> const x = RandomNumbers(std::int64_t{m_matrix->NumberOfColumns()} * 8);
    for (KVOSrvParallel::Run const run : {leavesOneOut, runsOneTwice, inventsOne}) {
        KVOSrvParallel const parallel(run, nullptr, 2);
        std::ranges::fill(y, -7.0);
        ExpectThrows<KVOSrvMtxRefusedInput>("KVOSrvParallel::run - Illegal input: it returned before every task had ended, or called one "
                                            "twice or not at all.",
                                            [&] { m_matrix->Multiply(x.data(), 8, y.data(), false); });
        EXPECT_EQ(y, m_expected);
    }
    KVOSrvParallel const parallel(returnsEarly, nullptr, 2);
    std::ranges::fill(y, -7.0);
    try { // how early it was is up to the threads
        m_matrix->Multiply(x.data(), 8, y.data(), false);
    } catch (KVOSrvMtxRefusedInput const&) {
    }
    EXPECT_EQ(y, m_expected);
    s_late.clear();
}

// The operation's own exception, and its matrix as it was.
TEST_F(Parallel, OperationsThatFailInTasksLeaveWhatTheyFound)
{
    std::string text = TextOf(Entries(kBand));
    TextFile const sound(text);
    text[text.size() / 3] = 'x';
    TextFile const malformed(text), cutOff(text.substr(0, text.size() / 4) + " 17");
    std::vector<double> const before = Numbers(*m_matrix);

    ShuffledThreads host(3);
    KVOSrvParallel const parallel(ShuffledThreads::Run, &host, 3);
    for (TextFile const* const file : {&malformed, &cutOff})
        EXPECT_THROW(file->ImportInto(*m_matrix), KVOSrvMtxUnsupportedImpFmt);
    std::vector<double> const small = Numbers(*Assembled(kSmall));
    int const failures = FailEach(
        Allocations(), [] { return Assembled(kSmall); }, [&](auto const& matrix) { sound.ImportInto(*matrix); },
        [&](auto const& matrix, bool threw) { EXPECT_EQ(Numbers(*matrix) == small, threw); });
    EXPECT_GT(failures, 20) << "few of them in tasks";
    EXPECT_EQ(Numbers(*m_matrix), before);
}

TEST(Tasks, ThrowWhatTheFirstOfThemThrew)
{
    ShuffledThreads host(3);
    blac::HostThreads const former = blac::ExchangeHostThreads({ShuffledThreads::Run, &host, 3});
    auto const fail = [](int index) {
        if (index >= 4)
            throw index;
    };
    for (int round = 0; round < 20; ++round)
        try {
            blac::InTasks(12, fail);
            ADD_FAILURE() << "nothing was thrown";
        } catch (int const index) {
            EXPECT_EQ(index, 4);
        }
    blac::ExchangeHostThreads(former);
}

TEST_F(Parallel, ThrowsOnWhatTheHostThrows)
{
    KVOSrvParallel const parallel([](void*, int, KVOSrvParallel::Task, void*) { throw std::system_error(EAGAIN, std::generic_category()); },
                                  nullptr, 2);
    EXPECT_THROW(Multiply(), std::system_error);
}

} // namespace
