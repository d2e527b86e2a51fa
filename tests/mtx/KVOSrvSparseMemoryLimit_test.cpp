// Assembly within a stated memory.

#include "FailSystemCall.h"
#include "KVOSimException.h"
#include "KVOSrvProductMemory.h"
#include "KVOSrvUtilities.h"
#include "ResidentMemory.h"
#include "SparseOracle.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sys/resource.h>

namespace
{

constexpr std::int64_t kLeast = 192 << 10;
constexpr SparseShape kShapes[] = {{300, 200, 60000}, {1, 1, 30000}, {2, 9000, 40000}, {40000, 3, 40000}, {7, 7, 0}};

void AddAll(KVOSrvSparseMatrix& matrix, std::span<KVOSrvSparseMatrixEntry const> entries)
{
    for (auto const& [row, column, value] : entries)
        matrix.AddData(row, column, value);
}

} // namespace

TEST(KVOSrvSparseMemoryLimit, GivesTheBitsOfAnAssemblyInMemory)
{
    for (SparseShape const& shape : kShapes) {
        std::vector<KVOSrvSparseMatrixEntry> const entries = RandomEntries(shape, 11);
        Content const expected = RandomOracle(shape, 11).ExpectedContent();
        std::span const all(entries);
        for (std::int64_t const bytes : {kLeast, 3 * kLeast + 5, std::int64_t{1} << 30})
            for (std::size_t const begin : {std::size_t{0}, all.size() / 2, all.size()}) // entries without the limit, then under it
                for (bool const toTheEnd : {true, false}) {
                    KVOSrvSparseMatrix matrix(0, 0);
                    std::optional<KVOSrvProductMemory> limit;
                    for (int cycle = 0; cycle < 2; ++cycle) { // the second time there is nothing left of the first
                        matrix.BeginAssembly();
                        AddAll(matrix, all.first(begin));
                        limit.emplace(bytes);
                        AddAll(matrix, all.subspan(begin));
                        if (!toTheEnd)
                            limit.reset();
                        matrix.EndAssembly();
                        limit.reset();
                    }
                    matrix.BeginAssembly();
                    matrix.AddData(static_cast<unsigned>(shape.rows - 1), static_cast<unsigned>(shape.columns - 1), 0.0);
                    matrix.EndAssembly();
                    EXPECT_EQ(matrix.NumberOfNonzeros(), 1);
                    matrix.BeginAssembly();
                    AddAll(matrix, all);
                    limit.emplace(bytes);
                    matrix.EndAssembly();
                    EXPECT_TRUE(ContentOf(matrix) == expected) << shape.rows << ' ' << bytes << ' ' << begin << ' ' << toTheEnd;
                }
    }
}

TEST(KVOSrvSparseMemoryLimit, LosesNothingWhenTheDiskOrTheMemoryFails)
{
    SparseShape const shape{300, 200, 40000};
    std::vector<KVOSrvSparseMatrixEntry> const entries = RandomEntries(shape, 12);
    Content const expected = RandomOracle(shape, 12).ExpectedContent();
    for (FailingCalls const& calls : {SystemCalls(SystemCall::Write), SystemCalls(SystemCall::Read), Allocations()}) {
        struct Assembly {
            KVOSrvSparseMatrix matrix{0, 0};
            std::size_t added = 0;
        };
        auto const goOn = [&](std::unique_ptr<Assembly> const& assembly) {
            for (std::size_t& k = assembly->added; k < entries.size(); ++k) {
                std::optional<KVOSrvProductMemory> limit;
                if (k < entries.size() / 4 || k >= entries.size() / 2) // what comes between is written at once later, in several runs
                    limit.emplace(kLeast);
                assembly->matrix.AddData(entries[k].row, entries[k].column, entries[k].value);
            }
            KVOSrvProductMemory const limit(kLeast);
            assembly->matrix.EndAssembly();
        };
        int const failures = FailEach(
            calls, [] { return std::make_unique<Assembly>(); }, goOn,
            [&](std::unique_ptr<Assembly> const& assembly, bool threw) {
                if (threw) {
                    if (assembly->added > 0) {
                        EXPECT_THROW(assembly->matrix.Scale(1), KVOSrvMtxNotAssembled);
                    }
                    goOn(assembly);
                }
                EXPECT_TRUE(ContentOf(assembly->matrix) == expected);
            });
        EXPECT_GT(failures, 5);
    }
    // A limit on the size of files would end the process by a signal
    rlimit before, small{1 << 20, RLIM_INFINITY};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    small.rlim_max = before.rlim_max;
    KVOSrvProductMemory const limit(kLeast);
    KVOSrvSparseMatrix matrix(0, 0);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    auto const addTwice = [&] {
        AddAll(matrix, entries);
        AddAll(matrix, entries);
    };
    EXPECT_THROW(addTwice(), KVOSimException);
    setrlimit(RLIMIT_FSIZE, &before);
}

TEST(KVOSrvSparseMemoryLimit, RefusesALimitThatIsTooSmallWithTheLeastThatWouldDo)
{
    std::vector<KVOSrvSparseMatrixEntry> const entries = RandomEntries({300, 200, 400000}, 13);
    KVOSrvSparseMatrix matrix(0, 0);
    {
        KVOSrvProductMemory const limit(kLeast - 1);
        ExpectThrows<KVOSrvMtxRefusedInput>(
            "KVOSrvSparseMatrix::AddData - Illegal input: the memory limit is too small, at least 196608 bytes are needed.",
            [&] { AddAll(matrix, entries); });
    }
    KVOSrvSparseMatrix many(0, 0);
    KVOSrvProductMemory const limit(kLeast);
    AddAll(many, entries);
    ExpectThrows<KVOSrvMtxRefusedInput>(
        "KVOSrvSparseMatrix::EndAssembly - Illegal input: the memory limit is too small, at least 405504 bytes are needed.",
        [&] { many.EndAssembly(); });
    KVOSrvProductMemory const enough(405504);
    many.EndAssembly();
    EXPECT_TRUE(ContentOf(many) == RandomOracle({300, 200, 400000}, 13).ExpectedContent());
}

// Sanitizers have memory of their own for ours.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST(KVOSrvSparseMemoryLimit, TakesNoMoreMemoryBesideTheResult)
{
    constexpr std::int64_t kEntries = 6 << 20, kLimit = 6 << 20; // 96 MiB of entries, 12 MiB of result
    constexpr unsigned kRows = 1 << 17;
    KVOSrvProductMemory const limit(kLimit);
    double const before = Resident("VmRSS");
    ForgetResidentPeak();
    KVOSrvSparseMatrix matrix(0, 0);
    for (unsigned k = 0; k < kEntries; ++k)
        matrix.AddData(k * 2654435761U % kRows, k % 8, 1.0);
    matrix.EndAssembly();
    double const result = matrix.NumberOfNonzeros() * 12.0 / (1 << 20) + kRows * 4.0 / (1 << 20);
    EXPECT_LT(Resident("VmHWM") - before, result + static_cast<double>(kLimit) / (1 << 20) + 4);
}

namespace
{

constexpr int kMarket = 8; // beside the numbered formats

void ExportTo(KVOSrvSparseMatrix const& matrix, std::string const& path, int format)
{
    std::filesystem::remove(path);
    if (format == kMarket)
        matrix.ExportMatrixMarket(path.c_str());
    else
        matrix.Export(path.c_str(), format);
}

std::unique_ptr<KVOSrvSparseMatrix> ImportFrom(std::string const& path, int format)
{
    if (format == kMarket)
        return KVOSrvSparseMatrix::ReadMatrixMarket(path.c_str());
    auto matrix = std::make_unique<KVOSrvSparseMatrix>(0, 0);
    matrix->Import(path.c_str(), format);
    return matrix;
}

bool HoldTheSame(KVOSrvSparseRows const& a, KVOSrvSparseRows const& b)
{
    auto const same = [](auto const* x, auto const* y, int count) {
        return std::memcmp(x, y, static_cast<std::size_t>(count) * sizeof *x) == 0;
    };
    return a.rows == b.rows && a.columns == b.columns && a.entries == b.entries && same(a.rowStart, b.rowStart, a.rows + 1) &&
           same(a.columnIndices, b.columnIndices, a.entries) && same(a.values, b.values, a.entries) &&
           (a.diagonal == nullptr ? b.diagonal == nullptr : same(a.diagonal, b.diagonal, a.rows));
}

} // namespace

TEST(KVOSrvSparseMemoryLimit, FilesPassThroughIt)
{
    constexpr int kRows = 800;
    constexpr int kLimit = 2;
    TemporaryFolder const folder;
    KVOSrvSparseMatrix full(kRows, kRows);
    std::mt19937 random(14);
    std::normal_distribution<> value;
    for (unsigned row = 0; row < kRows; ++row)
        for (unsigned column = 0; column <= row; ++column) {
            double const both = value(random);
            full.AddData(row, column, both);
            if (row != column)
                full.AddData(column, row, both);
        }
    full.EndAssembly();
    std::unique_ptr<KVOSrvSparseMatrix> const half = full.InHalfStorage();
    auto const grows = [](auto const& run) {
        KVOSrvUtilities::ReleaseMemory();
        double const before = Resident("VmRSS");
        ForgetResidentPeak();
        KVOSrvProductMemory const limit(std::int64_t{kLimit} << 20);
        run();
        return Resident("VmHWM") - before;
    };
    for (KVOSrvSparseMatrix const* const matrix : {&std::as_const(full), &std::as_const(*half)})
        for (int const format : {3, 5, 6, 7, kMarket}) {
            SCOPED_TRACE("format " + std::to_string(format));
            if (format == 6 && matrix == &full)
                continue;
            std::string const path = folder / std::to_string(format), limited = path + "-limited";
            ExportTo(*matrix, path, format);
            EXPECT_LT(grows([&] { ExportTo(*matrix, limited, format); }), kLimit + 2);
            EXPECT_TRUE(ReadFile(limited) == ReadFile(path));
            if (format == 5)
                continue;
            std::unique_ptr<KVOSrvSparseMatrix> read;
            double const grown = grows([&] { read = ImportFrom(path, format); });
            EXPECT_LT(grown - read->NumberOfNonzeros() * 12.0 / (1 << 20), kLimit + 4); // the ends of the result lie in pages of 2 MiB
            EXPECT_TRUE(HoldTheSame(read->Rows(), ImportFrom(path, format)->Rows()));
        }
    half->Scale(NAN); // equals no transpose: in full
    ExportTo(*half, folder / "nan", kMarket);
    KVOSrvProductMemory const limit(kLimit << 20);
    ExportTo(*half, folder / "nan-limited", kMarket);
    EXPECT_TRUE(ReadFile(folder / "nan-limited") == ReadFile(folder / "nan"));
}
#endif
