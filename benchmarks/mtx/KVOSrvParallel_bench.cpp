// Operations with the threads that a host lends, beside the same operations without, in turns. Counters, medians over the pairs:
//
//   speedup   time without over time with
//   bound     the same of what limits operations on large arrays: one resp. all threads read an array of 256 MiB
//   cores     the same of computing in registers: less than the threads where something else takes the processors' time
//
// KVO_BENCH_THREADS says how many threads, 2 by default. For products of dense matrices the provider is to run serially.

#include "BenchmarkFolder.h"
#include "BrickModel.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvParallel.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvSparseMatrix.h"
#include "ParallelThreads.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace
{

ParallelThreads& Threads()
{
    static char const* const s_asked = std::getenv("KVO_BENCH_THREADS");
    static ParallelThreads s_threads(s_asked != nullptr ? std::atoi(s_asked) : 2);
    return s_threads;
}

double Seconds(std::function<void()> const& run)
{
    auto const start = std::chrono::steady_clock::now();
    run();
    benchmark::ClobberMemory();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double SecondsInParallel(std::function<void()> const& run)
{
    KVOSrvParallel const parallel(ParallelThreads::Run, &Threads(), Threads().Count());
    return Seconds(run);
}

double Median(std::vector<double> values)
{
    auto const middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Reads an array, in as many parts as there are threads.
void ReadArray(int parts)
{
    static std::vector<std::uint64_t> const s_array(std::size_t{1} << 25, 1);
    struct Read {
        int parts;
        static void Part(void* data, int part)
        {
            std::size_t const length = s_array.size() / static_cast<std::size_t>(static_cast<Read*>(data)->parts);
            std::uint64_t const* const first = s_array.data() + length * static_cast<std::size_t>(part);
            std::uint64_t sums[8] = {};
            for (std::size_t k = 0; k + 8 <= length; k += 8)
                for (std::size_t lane = 0; lane < 8; ++lane)
                    sums[lane] += first[k + lane];
            benchmark::DoNotOptimize(sums);
        }
    } read{parts};
    if (parts == 1)
        Read::Part(&read, 0);
    else
        ParallelThreads::Run(&Threads(), parts, Read::Part, &read);
}

// Computes in registers, as many parts as told, one after the other or on as many threads. It keeps all units of a processor busy, so that
// two processors that share them, as those of a virtual machine may, gain nothing.
void Compute(int parts, bool together)
{
    auto const part = [](void*, int) {
        std::uint64_t lanes[16] = {1};
        for (std::uint64_t k = 0; k < 4'000'000; ++k)
            for (std::uint64_t& lane : lanes)
                lane = (lane ^ k) + 1;
        benchmark::DoNotOptimize(lanes);
    };
    if (together)
        return ParallelThreads::Run(&Threads(), parts, part, nullptr);
    for (int number = 0; number < parts; ++number)
        part(nullptr, number);
}

// `prepare` comes before each run and is not timed. result() is to be the same to the bit.
void Compare(
    benchmark::State& state, std::function<void()> const& run, std::function<std::vector<double>()> const& result,
    std::function<void()> const& prepare = [] {})
{
    std::vector<double> speedups, bounds, cores, serials;
    prepare();
    run();
    std::vector<double> const expected = result();
    prepare();
    SecondsInParallel(run);
    std::vector<double> const found = result();
    ThrowUnless(found.size() == expected.size() && std::memcmp(found.data(), expected.data(), found.size() * sizeof(double)) == 0,
                "another result than without threads");
    // Either follows one of its kind: memory that the same threads have just released is cleared several times faster than such as a
    // virtual machine's host may have taken back since.
    auto const again = [&](auto const& seconds) {
        prepare();
        seconds(run);
        prepare();
        return seconds(run);
    };
    for (auto _ : state) {
        serials.push_back(again(Seconds));
        double const parallel = again(SecondsInParallel);
        state.SetIterationTime(parallel);
        speedups.push_back(serials.back() / parallel);
        double const read = Seconds([] { ReadArray(1); });
        bounds.push_back(read / Seconds([] { ReadArray(Threads().Count()); }));
        double const computed = Seconds([] { Compute(Threads().Count(), false); });
        cores.push_back(computed / Seconds([] { Compute(Threads().Count(), true); }));
    }
    state.counters["speedup"] = Median(speedups);
    state.counters["bound"] = Median(bounds);
    state.counters["cores"] = Median(cores);
    state.counters["serial_ms"] = 1e3 * Median(serials);
}

std::vector<double> RandomNumbers(std::size_t count)
{
    std::mt19937_64 random(1);
    std::vector<double> numbers(count);
    std::generate(numbers.begin(), numbers.end(), [&] { return std::uniform_real_distribution<>(-1.0, 1.0)(random); });
    return numbers;
}

// All entries of a matrix take part.
std::vector<double> Checked(KVOSrvSparseMatrix const& matrix)
{
    std::vector<double> const x = RandomNumbers(static_cast<std::size_t>(matrix.NumberOfColumns()));
    std::vector<double> y(static_cast<std::size_t>(matrix.NumberOfRows()));
    matrix.Multiply(x.data(), 1, y.data(), false);
    return y;
}

// A block of bricks of 192 000 rows, 14.6 million entries.
KVOSrvSparseMatrix const& Brick()
{
    static std::unique_ptr<KVOSrvSparseMatrix> const s_matrix = [] {
        BrickRows const rows = BrickModel(39, 39, 39).Assembled();
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(rows.rows, rows.rows);
        for (int i = 0; i < rows.rows; ++i)
            for (int k = rows.start[static_cast<std::size_t>(i)]; k < rows.start[static_cast<std::size_t>(i) + 1]; ++k)
                matrix->AddData(static_cast<unsigned>(i), static_cast<unsigned>(rows.columns[static_cast<std::size_t>(k)]),
                                rows.values[static_cast<std::size_t>(k)] / 3);
        matrix->EndAssembly();
        return matrix;
    }();
    return *s_matrix;
}

void SparseProduct(benchmark::State& state, bool transposed)
{
    KVOSrvSparseMatrix const& matrix = Brick();
    int const vectors = static_cast<int>(state.range(0));
    std::vector<double> const x = RandomNumbers(static_cast<std::size_t>(matrix.NumberOfRows()) * static_cast<std::size_t>(vectors));
    std::vector<double> y(x.size());
    Compare(
        state, [&] { matrix.Multiply(x.data(), vectors, y.data(), transposed); }, [&] { return y; });
}

void Product(benchmark::State& state)
{
    SparseProduct(state, false);
}
void TransposedProduct(benchmark::State& state)
{
    SparseProduct(state, true);
}
BENCHMARK(Product)->Arg(1)->Arg(8)->Arg(32)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(TransposedProduct)->Arg(1)->Arg(8)->Arg(32)->UseManualTime()->Unit(benchmark::kMillisecond);

// 12.6 million entries of 21 952 elements, 5.6 million places.
void Assembly(benchmark::State& state, bool shuffled)
{
    BrickModel const brick(28, 28, 28);
    std::vector<BrickTriplet> entries = brick.Triplets();
    if (shuffled)
        std::shuffle(entries.begin(), entries.end(), std::mt19937(1));
    std::unique_ptr<KVOSrvSparseMatrix> matrix;
    Compare(
        state, [&] { matrix->EndAssembly(); }, [&] { return Checked(*matrix); },
        [&] {
            matrix = std::make_unique<KVOSrvSparseMatrix>(brick.NumberOfRows(), brick.NumberOfRows());
            for (BrickTriplet const& entry : entries)
                matrix->AddData(static_cast<unsigned>(entry.row), static_cast<unsigned>(entry.column), entry.value);
        });
}
BENCHMARK_CAPTURE(Assembly, ElementOrder, false)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Assembly, Shuffled, true)->UseManualTime()->Unit(benchmark::kMillisecond);

// A block of bricks of 65 856 rows, 5.0 million entries with full mantissas.
struct TextModel {
    TextModel()
    {
        BrickRows const rows = BrickModel(27, 27, 27).Assembled();
        std::vector<double> const factors = RandomNumbers(rows.values.size());
        matrix = std::make_unique<KVOSrvSparseMatrix>(rows.rows, rows.rows);
        for (int i = 0; i < rows.rows; ++i)
            for (auto k = static_cast<std::size_t>(rows.start[static_cast<std::size_t>(i)]);
                 k < static_cast<std::size_t>(rows.start[static_cast<std::size_t>(i) + 1]); ++k)
                matrix->AddData(static_cast<unsigned>(i), static_cast<unsigned>(rows.columns[k]), (rows.values[k] + 1e-4) * factors[k]);
        matrix->EndAssembly();
        matrix->Export(path.c_str(), 3);
    }
    BenchmarkFolder const folder;
    std::string const path = folder / "matrix";
    std::unique_ptr<KVOSrvSparseMatrix> matrix;
};

TextModel const& Text()
{
    static TextModel const s_model;
    return s_model;
}

void TextImport(benchmark::State& state)
{
    TextModel const& model = Text();
    std::unique_ptr<KVOSrvSparseMatrix> matrix;
    Compare(
        state, [&] { matrix->Import(model.path.c_str(), 3); }, [&] { return Checked(*matrix); },
        [&] { matrix = std::make_unique<KVOSrvSparseMatrix>(0, 0); });
}
BENCHMARK(TextImport)->UseManualTime()->Unit(benchmark::kMillisecond);

void TextExport(benchmark::State& state)
{
    TextModel const& model = Text();
    std::string const path = model.folder / "copy";
    Compare(
        state, [&] { model.matrix->Export(path.c_str(), 3); },
        [&] {
            KVOSrvSparseMatrix matrix(0, 0);
            matrix.Import(path.c_str(), 3);
            return Checked(matrix);
        });
}
BENCHMARK(TextExport)->UseManualTime()->Unit(benchmark::kMillisecond);

void Transpose(benchmark::State& state)
{
    KVOSrvSparseMatrix const& matrix = Brick();
    std::unique_ptr<KVOSrvSparseMatrix> transposed;
    Compare(
        state, [&] { transposed.reset(matrix.Transpose()); }, [&] { return Checked(*transposed); }, [&] { transposed.reset(); });
}
BENCHMARK(Transpose)->UseManualTime()->Unit(benchmark::kMillisecond);

// 8192 x 4096, in chunks of 512 x 512, in the page cache.
KVOSrvDenseMatrix& Stored()
{
    static std::unique_ptr<KVOSrvScratchDenseMatrix> const s_matrix = [] {
        constexpr int kRows = 8192, kColumns = 4096, kChunk = 512;
        auto matrix = std::make_unique<KVOSrvScratchDenseMatrix>(kRows, kColumns, kChunk, kChunk);
        std::vector<double> values = RandomNumbers(std::size_t{kRows} * kColumns);
        matrix->SetRows(0, kRows - 1, KVOSrvMatrix(kRows, kColumns, values.data(), false, false));
        return matrix;
    }();
    return *s_matrix;
}

void StoredProduct(benchmark::State& state)
{
    KVOSrvDenseMatrix& matrix = Stored();
    int const vectors = static_cast<int>(state.range(0));
    std::vector<double> const x = RandomNumbers(static_cast<std::size_t>(matrix.NumberOfColumns()) * static_cast<std::size_t>(vectors));
    std::vector<double> y(static_cast<std::size_t>(matrix.NumberOfRows()) * static_cast<std::size_t>(vectors));
    Compare(
        state, [&] { matrix.Multiply(x.data(), vectors, y.data()); }, [&] { return y; }, [&] { std::fill(y.begin(), y.end(), 0.0); });
}
BENCHMARK(StoredProduct)->Arg(64)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);

void StoredTransposedProduct(benchmark::State& state)
{
    KVOSrvDenseMatrix& matrix = Stored();
    int const vectors = static_cast<int>(state.range(0)), rows = matrix.NumberOfRows();
    std::vector<double> const x = RandomNumbers(static_cast<std::size_t>(rows) * static_cast<std::size_t>(vectors));
    std::vector<double> y(static_cast<std::size_t>(matrix.NumberOfColumns()) * static_cast<std::size_t>(vectors));
    Compare(
        state, [&] { matrix.TransposeMultiply(x.data(), vectors, y.data(), rows); }, [&] { return y; },
        [&] { std::fill(y.begin(), y.end(), 0.0); });
}
BENCHMARK(StoredTransposedProduct)->Arg(64)->Arg(1024)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
