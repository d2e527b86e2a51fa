// Operations with threads that a host lends: to the bit what they give without.

#include "DatabaseSupport.h"
#include "KVOFsmSystemDofDefinition.h"
#include "KVOSrvHermitianScrDenseMatrix.h"
#include "KVOSrvParallel.h"
#include "KVOSrvSparsePlaces.h"
#include "ShuffledThreads.h"
#include "SparseOracle.h"
#include "tasks.h"

#include <cerrno>
#include <system_error>

namespace
{

Vector RandomNumbers(int count)
{
    Vector numbers = Seeded(count, 1, 5).values;
    numbers.resize(static_cast<std::size_t>(count));
    return numbers;
}

std::string BytesOf(Vector const& numbers)
{
    return {reinterpret_cast<char const*>(numbers.data()), numbers.size() * sizeof(double)};
}

struct Pattern {
    int rows, columns, perRow;
    int reach; // how far columns lie from the diagonal, at most
};
constexpr Pattern kBand{6000, 6000, 30, 200}, kScattered{5000, 7000, 40, 7000}, kTall{9000, 3000, 20, 40}, kSmall{1500, 1500, 20, 40};

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

std::vector<KVOSrvSparseMatrixEntry> Shuffled(std::vector<KVOSrvSparseMatrixEntry> entries)
{
    std::ranges::shuffle(entries, std::mt19937(9));
    return entries;
}

std::unique_ptr<KVOSrvSparseMatrix> MatrixOf(std::vector<KVOSrvSparseMatrixEntry> const& entries, Pattern const& pattern)
{
    auto matrix = std::make_unique<KVOSrvSparseMatrix>(pattern.rows, pattern.columns);
    for (auto const& [row, column, value] : entries)
        matrix->AddData(row, column, value);
    matrix->EndAssembly();
    return matrix;
}

std::unique_ptr<KVOSrvSparseMatrix> LowerTriangle(Pattern const& pattern)
{
    Half half(pattern.rows);
    half.diagonal = RandomNumbers(pattern.rows);
    for (auto const& [row, column, value] : Entries(pattern))
        if (column < row)
            half.rows[row].emplace_back(static_cast<int>(column), value);
    return HalfStored(half);
}

std::string Product(KVOSrvSparseMatrix const& matrix, int nvec, bool transpose)
{
    int const in = transpose ? matrix.NumberOfRows() : matrix.NumberOfColumns();
    int const out = transpose ? matrix.NumberOfColumns() : matrix.NumberOfRows();
    Vector y(std::size_t{1} * out * nvec, -7.0);
    matrix.Multiply(RandomNumbers(in * nvec).data(), nvec, y.data(), transpose);
    return BytesOf(y);
}

std::string TextOf(std::vector<KVOSrvSparseMatrixEntry> const& entries, char const* separator = " ")
{
    std::ostringstream text;
    text.precision(17);
    for (auto const& [row, column, value] : entries)
        text << row + 1 << ' ' << column + 1 << separator << value << '\n';
    return text.str();
}

// Records that ascend in each of the parts that two threads and more are given; each part begins in the middle of the one before.
std::string TextOfOverlappingParts()
{
    constexpr int kParts = 8, kLines = 15000; // of 18 bytes: a part is of 256 KiB and more
    std::string text;
    for (int line = 0; line < kParts * kLines; ++line) {
        int const part = std::max(line - 1, 0) / kLines; // one begins behind the line in which its place lies
        char record[32];
        std::snprintf(record, sizeof record, "%06d %06d 1.5\n", line + 1 - part * kLines / 2, 7);
        text += record;
    }
    return text;
}

std::unique_ptr<KVOSrvScratchDenseMatrix> Stored(int rows, int columns, int rowChunk, int columnChunk)
{
    auto matrix = std::make_unique<KVOSrvScratchDenseMatrix>(rows, columns, rowChunk, columnChunk);
    Vector values = RandomNumbers(rows * columns);
    matrix->SetRows(0, rows - 1, KVOSrvMatrix(rows, columns, values.data(), false, false));
    return matrix;
}

// Every product of a stored matrix with p vectors.
std::string StoredProducts(KVOSrvDenseMatrix& A, int p)
{
    int const rows = A.NumberOfRows(), columns = A.NumberOfColumns(), most = std::max(rows, columns);
    Vector x = RandomNumbers(most * p), y(x.size(), 0.5);
    std::string all;
    auto const keep = [&](int length) { all += BytesOf({y.begin(), y.begin() + std::ptrdiff_t{1} * length * p}); };
    A.Multiply(x.data(), p, y.data());
    keep(rows);
    A.TransposeMultiply(x.data(), p, y.data(), rows - 3);
    keep(columns);
    KVOSrvMatrix const tall(rows, p, x.data(), false, false), wide(columns, p, x.data(), false, false);
    KVOSrvMatrix ofTall(columns, p, y.data(), false, false);
    std::vector<int> reversed(static_cast<std::size_t>(rows));
    std::iota(reversed.rbegin(), reversed.rend(), 0);
    A.TransposeMultiply(reversed.data(), tall, ofTall, 2.0, 0.5);
    keep(columns);
    A.TransposeMultiply(tall, ofTall, 0);
    keep(columns);

    auto const Y = Stored(rows, p, 130, 20), B = Stored(columns, p, 70, 50);
    A.Multiply(-1.5, wide, 2.0, *Y);
    all += BytesOf(ValuesOf(*Y).values);
    A.Multiply(B.get(), y.data());
    keep(rows);
    A.Multiply(*B, *Y);
    return all + BytesOf(ValuesOf(*Y).values);
}

struct LentThreads {
    explicit LentThreads(int threads) : host(threads), parallel(ShuffledThreads::Run, &host, threads) {}
    ShuffledThreads host;
    KVOSrvParallel parallel;
};

template<class Run>
void ExpectTheBitsOfOneThread(Run const& run)
{
    auto const expected = run();
    for (int const threads : {2, 3, 8}) {
        SCOPED_TRACE(testing::Message() << threads << " threads");
        LentThreads const lent(threads);
        EXPECT_TRUE(run() == expected);
        EXPECT_GT(lent.host.Calls(), 0) << "no tasks";
    }
}

using Parallel = SparseFilesTest;

TEST_F(Parallel, SparseProducts)
{
    struct {
        Pattern pattern;
        bool transpose;
        std::vector<int> vectors;
    } const cases[] = {{kBand, false, {1, 8, 19}}, {kScattered, false, {3, 16}},    {kBand, true, {4, 8, 19}}, {kScattered, true, {5, 16}},
                       {kTall, true, {4, 9}},      {{20000, 300, 20, 2}, true, {4}}}; // strips of rows that end where a part begins
    auto const products = [](KVOSrvSparseMatrix const& matrix, std::vector<int> const& vectors, bool transpose) {
        std::string all;
        for (int const nvec : vectors)
            all += Product(matrix, nvec, transpose);
        return all;
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.pattern.rows << " rows, transposed " << c.transpose);
        auto const matrix = MatrixOf(Entries(c.pattern), c.pattern);
        ExpectTheBitsOfOneThread([&] { return products(*matrix, c.vectors, c.transpose); });
    }
    auto const half = LowerTriangle(kBand), scattered = LowerTriangle({5000, 5000, 40, 5000});
    ExpectTheBitsOfOneThread([&] { return products(*half, {2, 11}, false); });
    ExpectTheBitsOfOneThread([&] { return Product(*scattered, 8, true); });
}

TEST_F(Parallel, AssemblyAndTransposition)
{
    for (Pattern const& pattern : {kBand, Pattern{200, 2'000'000'000, 600, 1000}}) // fewer columns than entries, and more
        ExpectTheBitsOfOneThread([&, entries = Shuffled(Entries(pattern))] { return ContentOf(*MatrixOf(entries, pattern)); });
    auto const matrix = MatrixOf(Entries(kTall), kTall);
    ExpectTheBitsOfOneThread([&] { return ContentOf(*matrix->Transposed()); });

    std::vector<unsigned> rows, columns;
    for (auto const& [row, column, value] : Shuffled(Entries(kTall))) {
        rows.push_back(row);
        columns.push_back(column);
    }
    auto const count = static_cast<std::int64_t>(rows.size());
    Vector const values = RandomNumbers(static_cast<int>(count));
    ExpectTheBitsOfOneThread([&] {
        matrix->ClearValues();
        matrix->AddValues(KVOSrvSparsePlaces(*matrix, rows.data(), columns.data(), count), values.data());
        return ContentOf(*matrix);
    });
    rows[rows.size() / 2] = columns.back() = 1U << 31; // of which the first one is named
    ExpectTheBitsOfOneThread(
        [&] { return ReportOf<KVOSrvMtxIllegalInput>([&] { KVOSrvSparsePlaces(*matrix, rows.data(), columns.data(), count); }); });
}

TEST_F(Parallel, TextFiles)
{
    for (std::string const& text : {TextOf(Entries({6000, 50'000'000, 30, 0})), TextOf(Shuffled(Entries(kTall))), TextOfOverlappingParts(),
                                    TextOf(Shuffled(Entries(kTall)), "\n")}) // the last with records on two lines
        ExpectTheBitsOfOneThread([&] {
            KVOSrvSparseMatrix matrix(0, 0);
            Import(matrix, text, 3);
            return ContentOf(matrix);
        });
    auto const full = MatrixOf(Entries(kSmall), kSmall), half = LowerTriangle({2500, 2500, 20, 40});
    std::vector<int> numbers(2500);
    std::iota(numbers.begin(), numbers.end(), 1);
    KVOFsmSystemDofDefinition const dofs(2500, numbers.data(), numbers.data());
    for (int const format : {3, 4, 5})
        for (KVOSrvSparseMatrix const* const matrix : {full.get(), half.get()})
            ExpectTheBitsOfOneThread([&] { return Export(*matrix, format, &dofs); });
}

TEST_F(Parallel, StoredProducts)
{
    auto const square = Stored(1300, 1300, 640, 640), tall = Stored(1500, 700, 64, 100), x = Stored(kBand.rows, 18, 1000, 20);
    ExpectTheBitsOfOneThread([&] { return StoredProducts(*square, 140); });
    ExpectTheBitsOfOneThread([&] { return StoredProducts(*tall, 16); });
    ExpectTheBitsOfOneThread([&] { return StoredProducts(*tall, 150); });
    KVOSrvHermitianScrDenseMatrix hermitian(1300, 100);
    hermitian.SetValues(700, 1299, 0, 699, RandomNumbers(2 * 600 * 700).data());
    ExpectTheBitsOfOneThread([&] {
        Vector y(std::size_t{2} * 1300 * 80);
        hermitian.Multiply(RandomNumbers(2 * 1300 * 80).data(), 80, y.data());
        return BytesOf(y);
    });
    auto const sparse = MatrixOf(Entries(kBand), kBand); // multiplies those of its rows that are not empty
    ExpectTheBitsOfOneThread([&] {
        Vector y(std::size_t{18} * kBand.columns, -7.0);
        sparse->MultiplyDense(*x, y.data(), true);
        return BytesOf(y);
    });
}

class ParallelHost : public SparseFilesTest
{
protected:
    std::string Multiply() const { return Product(*m_matrix, 8, false); }

    std::unique_ptr<KVOSrvSparseMatrix> const m_matrix = MatrixOf(Entries(kBand), kBand);
    std::string const m_expected = Multiply();
};

TEST_F(ParallelHost, IsInForceForItsThreadWhileItLives)
{
    auto const callsOf = [&](LentThreads const& lent) {
        int const before = lent.host.Calls();
        Multiply();
        return lent.host.Calls() - before;
    };
    LentThreads const outer(2);
    {
        LentThreads const inner(3);
        EXPECT_EQ(callsOf(outer), 0);
        EXPECT_GT(callsOf(inner), 0);
        KVOSrvParallel const none(nullptr, nullptr);
        EXPECT_EQ(callsOf(inner), 0);
    }
    EXPECT_GT(callsOf(outer), 0);
    std::jthread([&] { EXPECT_EQ(callsOf(outer), 0) << "another thread's"; }).join();
}

// The operation is done all the same, then the host's error is told.
TEST_F(ParallelHost, IsRefusedUnlessItRunsEachTaskOnce)
{
    static std::vector<std::jthread> s_late;
    Vector y(m_expected.size() / sizeof(double));
    Vector const x = RandomNumbers(m_matrix->NumberOfColumns() * 8);
    auto const multiply = [&](KVOSrvParallel::Run run, void* context) {
        KVOSrvParallel const parallel(run, context, 2);
        std::ranges::fill(y, -7.0);
        m_matrix->Multiply(x.data(), 8, y.data(), false);
    };
    struct Wrong {
        int first, more;
    } cases[] = {{0, -1}, {0, 1}, {-1, 0}}; // leaves one task out, runs one twice, invents one
    for (Wrong& wrong : cases) {
        auto const run = [](void* context, int tasks, KVOSrvParallel::Task task, void* data) {
            for (int index = static_cast<Wrong*>(context)->first; index < tasks + static_cast<Wrong*>(context)->more; ++index)
                task(data, index == tasks ? 0 : index);
        };
        ExpectThrows<KVOSrvMtxRefusedInput>("KVOSrvParallel::run - Illegal input: it returned before every task had ended, or called one "
                                            "twice or not at all.",
                                            [&] { multiply(run, &wrong); });
        EXPECT_EQ(BytesOf(y), m_expected);
    }
    try { // returns early; how early it was is up to the threads
        multiply(
            [](void*, int tasks, KVOSrvParallel::Task task, void* data) {
                for (int index = 0; index < tasks; ++index)
                    s_late.emplace_back([=] { task(data, index); });
            },
            nullptr);
    } catch (KVOSrvMtxRefusedInput const&) {
    }
    EXPECT_EQ(BytesOf(y), m_expected);
    s_late.clear();
    EXPECT_THROW(
        multiply([](void*, int, KVOSrvParallel::Task, void*) { throw std::system_error(EAGAIN, std::generic_category()); }, nullptr),
        std::system_error);
}

// The operation's own exception, and its matrix as it was.
TEST_F(ParallelHost, SeesOperationsThatFailLeaveWhatTheyFound)
{
    std::string const text = TextOf(Entries(kBand)), cutOff = text.substr(0, text.size() / 4) + " 17";
    std::string malformed = text;
    malformed[text.size() / 3] = 'x';
    Content const before = ContentOf(*m_matrix);

    LentThreads const lent(3);
    for (std::string const& file : {malformed, cutOff})
        EXPECT_THROW(Import(*m_matrix, file, 3), KVOSrvMtxMalformedFile);
    EXPECT_EQ(ContentOf(*m_matrix), before);
    auto const small = RandomOracle({10, 10, 10}, 1).Matrix();
    WriteFile(m_path, text);
    int const failures = ExpectUnchangedWithoutMemory(*small, [&] { small->Import(m_path.c_str(), 3); });
    EXPECT_GT(failures, 20) << "few of them in tasks";
    EXPECT_GT(small->NumberOfRows(), 10);
}

TEST(Tasks, ThrowWhatTheFirstOfThemThrew)
{
    ShuffledThreads host(3);
    blac::HostThreads const former = blac::ExchangeHostThreads({ShuffledThreads::Run, &host, 3});
    for (int round = 0; round < 20; ++round)
        try {
            blac::InTasks(12, [](int index) {
                if (index >= 4)
                    throw index;
            });
            ADD_FAILURE() << "nothing was thrown";
        } catch (int const index) {
            EXPECT_EQ(index, 4);
        }
    blac::ExchangeHostThreads(former);
}

} // namespace
