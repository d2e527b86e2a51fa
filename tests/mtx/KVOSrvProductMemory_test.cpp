// What products under a limit of memory take and read, beside what they say.

#include "KVOSrvProductMemory.h"

#include "DatabaseSupport.h"
#include "KVOSrvDenseMatrixSet.h"
#include "KVOSrvSparseMatrix.h"
#include "ResidentMemory.h"
#include "mem_Allocator.h"

#include <cmath>
#include <fstream>
#include <malloc.h>

namespace
{

// Bytes that this process has read by calls, which are all where nothing is mapped.
double ReadBytes()
{
    std::ifstream counts("/proc/self/io");
    for (std::string key; counts >> key;)
        if (key == "rchar:")
            return counts >> key ? std::stod(key) : NAN;
    return NAN;
}

struct Taken {
    double bytes; ///< of memory at the most
    double readBytes;
};

template<class Run>
Taken Measure(Run const& run)
{
    mem_ReleaseMemory();
    malloc_trim(0);
    ForgetResidentPeak();
    double const before = Resident("VmRSS"), readBefore = ReadBytes();
    run();
    return {(1 << 20) * (Resident("VmHWM") - before), ReadBytes() - readBefore};
}

KVOSrvDenseMatrix Random(TestDatabase const& database, int rows, int columns)
{
    auto const chunk = [](int size) { return Between(0, 3) == 0 ? -1 : Between(40, std::max(40, size)); };
    return KVOSrvDenseMatrix(database.Matrix(rows, columns, chunk(rows), chunk(columns)));
}

KVOSrvMatrix Zeros(int rows, int columns)
{
    KVOSrvMatrix matrix(rows, columns, nullptr, false, false);
    matrix = 0.0;
    return matrix;
}

// A product of m x n and n x p values, of which in the memory of the caller are B, C or both.
struct Case {
    char const* name;
    std::function<void()> run;
    double m, n, p;
    bool storedB = false, storedC = false;
    double readOfC = 0; // parts of C
};

// What tiles of equal order read of A and of B, and of what is added to C.
double ModelBytes(Case const& c, double limit)
{
    double const order = std::sqrt(limit / 24);
    return 8 * c.m * c.n * std::max(1.0, c.storedC || c.storedB ? c.p / order : 1.0) +
           (c.storedB ? 8 * c.n * c.p * std::max(1.0, c.m / order) : 0) + 8 * c.m * c.p * c.readOfC;
}

constexpr double kPages = 256 << 10; // lists, and ends of pages

// The limit and two blocks of what is read at a time, a third of the limit each.
void ExpectLittle([[maybe_unused]] Taken const& taken, [[maybe_unused]] double limit)
{
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // they have memory of their own for ours
    EXPECT_LE(taken.bytes, limit + 2 * limit / 3 + kPages);
#endif
}

void ExpectWithin(Case const& c, double limit)
{
    SCOPED_TRACE(c.name);
    Taken const taken = Measure(c.run);
    double const model = ModelBytes(c, limit);
    EXPECT_LE(taken.readBytes, 1.1 * model + kPages);
    ExpectLittle(taken, limit);
}

TEST(KVOSrvProductMemory, BoundsWhatEveryProductTakesAndReads)
{
    TestDatabase const database;
    {
        KVOSrvMatrix const warm = RandomMatrix(1000, 1000);
        KVOSrvMatrix result = Zeros(1000, 1000);
        warm.TransposeMultiply(warm, result, 0, 0); // the provider takes its memory at its first product
    }
    for (int round = 0; round < 3; ++round) {
        int const m = Between(300, 1000), n = Between(300, 1000), p = Between(300, 1000);
        double const limit = 1.0e6 * Between(1, 3);
        SCOPED_TRACE(round);
        KVOSrvDenseMatrix a = Random(database, m, n), b = Random(database, n, p), c = Random(database, m, p), z = Random(database, m, p),
                          w = Random(database, n, p), square = Random(database, n, n);
        for (KVOSrvDenseMatrix* const stored : {&a, &b, &z, &square})
            Randomize(*stored);
        KVOSrvMatrix const x = RandomMatrix(n, p), tall = RandomMatrix(m, p), order = RandomMatrix(n, n);
        KVOSrvMatrix y = Zeros(m, p), v = Zeros(n, p);
        std::vector<int> rows(static_cast<std::size_t>(m)), ranges{0, m / 2, m};
        std::iota(rows.begin(), rows.end(), 0);
        KVOSrvDenseMatrix const* members[] = {&a, &z};
        KVOSrvDenseMatrixSet const set(members, 2);
        KVOSrvMatrix ofSet = Zeros(n + p, p);
        KVOSrvDenseMatrix storedOfSet = Random(database, n + p, p);
        KVOSrvProductMemory const inForce(static_cast<std::int64_t>(limit));
        double const dm = m, dn = n, dp = p;
        Case const cases[] = {
            {"A X", [&] { a.Multiply(x, y); }, dm, dn, dp},
            {"y + A x", [&] { a.Multiply(x.Values(), p, y.Values()); }, dm, dn, dp},
            {"stored into memory", [&] { a.Multiply(&b, y.Values()); }, dm, dn, dp, true},
            {"stored into stored", [&] { a.Multiply(b, c); }, dm, dn, dp, true, true},
            {"2 A X + 3 Y", [&] { a.Multiply(2.0, x, 3.0, c); }, dm, dn, dp, false, true, 1},
            {"A X in place", [&] { square.MultiplyAssign(order); }, dn, dn, dn, false, true},
            {"y + A(rows)^T x", [&] { a.TransposeMultiply(tall.Values(), p, v.Values(), m); }, dn, dm, dp},
            {"permuted", [&] { a.TransposeMultiply(rows.data(), tall, v, 1.0, 0.0); }, dn, dm, dp},
            {"A^T X", [&] { a.TransposeMultiply(tall, v, 0); }, dn, dm, dp},
            {"A^T B stored", [&] { a.TransposeMultiply(&z, &w, 0); }, dn, dm, dp, true, true},
            {"A^T B mirrored", [&] { a.TransposeMultiply(&z, &w, 1); }, dn, dm, dp, true, true, 1},
            {"A^T B into memory", [&] { a.TransposeMultiply(&z, v, 1); }, dn, dm, dp, true},
            {"rows of A", [&] { a.IndexedMultiply(x, c, rows.data(), ranges.data(), 2); }, dm, dn, dp, false, true},
            {"set", [&] { set.TransposeMultiply(&z, ofSet, 0); }, dn + dp, dm, dp, true},
            {"set into stored", [&] { set.TransposeMultiply(&z, &storedOfSet, 0); }, dn + dp, dm, dp, true, true},
        };
        for (Case const& one : cases)
            ExpectWithin(one, limit);
    }
}

// Each on a copy of the operand, with and without a limit.
TEST(KVOSrvProductMemory, BoundsOperationsOnWholeMatrices)
{
    TestDatabase const database;
    constexpr int kOrder = 700;
    constexpr double kLimit = 200'000;
    std::vector<double> list(kOrder * kOrder);
    std::vector<int> map(kOrder);
    std::iota(map.rbegin(), map.rend(), 0);
    KVOSrvMatrix inMemory = Zeros(kOrder, kOrder);
    KVOSrvSparseMatrix sparse(kOrder, kOrder);
    for (unsigned i = 0; i < kOrder; i += 2)
        for (unsigned j = 1; j < kOrder; j += 50)
            sparse.AddData(i, (i + j) % kOrder, 0.5 * i - j);
    sparse.EndAssembly();
    for (int const chunk : {-1, 90, 128}) {
        SCOPED_TRACE(chunk);
        KVOSrvDenseMatrix other(database.Matrix(kOrder, kOrder, chunk, 64));
        Randomize(other);
        using Operation = std::function<void(KVOSrvDenseMatrix&)>;
        std::pair<char const*, Operation> const operations[] = {
            {"GetUpperValues", [&](auto& matrix) { matrix.GetUpperValues(list.data()); }},
            {"GetLowerValues", [&](auto& matrix) { matrix.GetLowerValues(list.data()); }},
            {"GetSymmetricValues", [&](auto& matrix) { matrix.GetSymmetricValues(list.data()); }},
            {"GetSubmatrix", [&](auto& matrix) { other.GetSubmatrix(matrix, 3, kOrder - 1, 0, kOrder - 5); }},
            {"CopyRowsToMemory", [&](auto& matrix) { matrix.CopyRowsToMemory(map.data(), kOrder, inMemory); }},
            {"CopyValues", [&](auto& matrix) { matrix.CopyValues(&other); }},
            {"CopyMappedRows", [&](auto& matrix) { matrix.CopyMappedRows(&other, true); }},
            {"AddAssign", [&](auto& matrix) { matrix.AddAssign(other); }},
            {"Scale", [&](auto& matrix) { matrix.Scale(-2.0); }},
            {"IsSymmetric", [&](auto& matrix) { list[0] = matrix.IsSymmetric(); }},
            {"Add", [&](auto& matrix) { inMemory.Add(3.0, matrix); }},
            {"sparse into stored", [&](auto& matrix) { sparse.MultiplyDense(other, matrix, false); }},
            {"sparse into memory", [&](auto& matrix) { sparse.MultiplyDense(matrix, inMemory.Values(), true); }},
        };
        for (auto const& [name, operation] : operations) {
            SCOPED_TRACE(name);
            KVOSrvDenseMatrix matrix(database.Matrix(kOrder, kOrder, chunk, 100)), again(database.Matrix(kOrder, kOrder, chunk, 100));
            Randomize(matrix);
            again.CopyValues(&matrix);
            auto const results = [&](KVOSrvDenseMatrix const& stored) {
                return std::tuple(ValuesOf(stored).values, list, Dense(inMemory).values);
            };
            std::ranges::fill(list, 0.0);
            inMemory = 1.0;
            operation(matrix);
            auto const expected = results(matrix);
            std::ranges::fill(list, 0.0);
            inMemory = 1.0;
            Operation const& run = operation;
            Taken const taken = Measure([&] {
                KVOSrvProductMemory const limit(static_cast<std::int64_t>(kLimit));
                run(again);
            });
            EXPECT_TRUE(results(again) == expected);
            ExpectLittle(taken, kLimit);
        }
    }
    KVOSrvProductMemory const tooLittle(2000);
    KVOSrvDenseMatrix tall(database.Matrix(kOrder, 3, -1, -1)), same(database.Matrix(kOrder, 3, -1, -1));
    ExpectRefused("KVOSrvDenseMatrix::CopyMappedRows", inMemory, [&] { tall.CopyMappedRows(&same, true); });
    ExpectRefused("KVOSrvSparseMatrix::MultiplyDense", inMemory, [&] { sparse.MultiplyDense(tall, same, false); });
}

// What is stored or fetched goes straight from and to the arrays of the matrix.
TEST(KVOSrvProductMemory, BoundsWhatSparseMatricesTakeOnTheirWayToADatabase)
{
    constexpr int kOrder = 20'000, kPerRow = 50;
    constexpr double kLimit = 200'000, kResult = 12.0 * kOrder * kPerRow + 4.0 * kOrder;
    TestDatabase const database;
    KVOSrvSparseMatrix sparse(kOrder, kOrder);
    for (unsigned i = 0; i < kOrder; ++i)
        for (unsigned j = 0; j < kPerRow; ++j)
            sparse.AddData(i, j * 400, 0.25 * i - j);
    sparse.EndAssembly();
    KVOSimCSetID const rows = database.Members(kOrder), columns = database.Members(kOrder);
    KVOSimDistributionID const stored = KVOSrvUtilities::CreateSparseDistribution(rows, columns);
    KVOSrvProductMemory const limit(static_cast<std::int64_t>(kLimit));
    ExpectLittle(Measure([&] { sparse.Export(rows, columns, stored); }), kLimit);
    KVOSrvSparseMatrix back(0, 0);
    Taken import = Measure([&] { back.Import(stored); });
    import.bytes -= kResult;
    ExpectLittle(import, kLimit);
    EXPECT_TRUE(std::equal(back.Rows().values, back.Rows().values + back.Rows().entries, sparse.Rows().values));
    EXPECT_EQ(back.Rows().entries, kOrder * kPerRow);
}

TEST(KVOSrvProductMemory, IsOfItsThreadAndScopeAndGivesEqualBitsAgain)
{
    TestDatabase const database;
    KVOSrvDenseMatrix a(database.Matrix(200, 150, 64, -1)), b(database.Matrix(150, 170, 50, 60)), c(database.Matrix(200, 170, 64, 64));
    Dense const product = Product(Randomize(a), false, Randomize(b));
    auto const multiply = [&](std::int64_t bytes) {
        KVOSrvProductMemory const limit(bytes);
        a.Multiply(b, c);
        return ValuesOf(c);
    };
    KVOSrvProductMemory const outer(1 << 20);
    Dense const first = multiply(60'000);
    EXPECT_EQ(KVOSrvProductMemory::Bytes(), 1 << 20);
    EXPECT_EQ(first.values, multiply(60'000).values);
    ExpectSame(c, product, 1e-12);
    multiply(6144); // three tiles of the least order
    ExpectSame(c, product, 1e-12);
    std::thread([] { EXPECT_FALSE(KVOSrvProductMemory::IsSet()); }).join();
}

TEST(KVOSrvProductMemory, SaysHowMuchWouldDo)
{
    TestDatabase const database;
    KVOSrvDenseMatrix a(database.Matrix(200, 150, 64, -1)), b(database.Matrix(150, 170, 50, 60)), c(database.Matrix(200, 170, 64, 64));
    KVOSrvMatrix const square = RandomMatrix(150, 150);
    Dense const before = Randomize(a);
    auto const report = [](auto const& run) {
        try {
            run();
        } catch (KVOSrvMtxIllegalInput const& refusal) {
            return std::string(refusal.AsString().c_str());
        }
        return std::string("done");
    };
    EXPECT_NE(report([] { KVOSrvProductMemory const none(0); }), "done");
    auto const refused = [&](std::int64_t bytes, std::string const& operation, auto const& run) {
        KVOSrvProductMemory const limit(bytes);
        std::string const text = report(run), expected = "KVOSrvDenseMatrix::" + operation + " - Illegal input: the memory limit of " +
                                                         std::to_string(bytes) + " bytes is too small, ";
        EXPECT_TRUE(text.starts_with(expected)) << text;
        std::int64_t const least = std::stoll(text.substr(std::min(text.size(), expected.size())));
        KVOSrvProductMemory const enough(least);
        EXPECT_EQ(report(run), "done");
        KVOSrvProductMemory const tooLittle(least - 1);
        EXPECT_NE(report(run), "done");
    };
    refused(1000, "Multiply", [&] { a.Multiply(b, c); });
    refused(3, "TransposeMultiply", [&] { a.TransposeMultiply(&a, &b, 0); });
    ExpectSame(a, before);
    refused(10'000, "MultiplyAssign", [&] { a.MultiplyAssign(square); });
}

} // namespace
