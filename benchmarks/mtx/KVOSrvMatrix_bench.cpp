// The in-core matrix against memcpy that moves as many bytes, and its symmetric products against the full product.

#include "AgainstPeer.h"
#include "KVOFortran.h"
#include "KVOSrvMatrix.h"

#include <cmath>
#include <random>
#include <stdexcept>

namespace
{

constexpr int kOrder = 4096;
constexpr int kProductOrder = 2048;
constexpr double kArrayBytes = 8.0 * kOrder * kOrder;

KVOSrvMatrix Random(int rows, int columns, unsigned seed = 1)
{
    std::minstd_rand random(seed); // the quick one: a benchmark needs no more
    KVOSrvMatrix matrix(rows, columns, nullptr, false, false);
    for (std::ptrdiff_t k = 0; k < std::ptrdiff_t{rows} * columns; ++k)
        matrix.Values()[k] = 1e-9 * static_cast<double>(random()) - 1.0;
    return matrix;
}

double At(KVOSrvMatrix const& matrix, int i, int j)
{
    return matrix.Values()[i + std::ptrdiff_t{j} * matrix.NumberOfRows()];
}

// Compares expected(i, j) on a coarse grid and along the last row and column, which no full tile or block covers.
template<class Expected>
void Check(KVOSrvMatrix const& matrix, Expected const& expected)
{
    for (int j = 0; j < matrix.NumberOfColumns(); ++j)
        for (int i = 0; i < matrix.NumberOfRows(); i += j + 1 == matrix.NumberOfColumns() ? 1 : 61)
            if (!(At(matrix, i, j) == expected(i, j)))
                throw std::runtime_error("wrong result");
}

void Transpose(benchmark::State& state)
{
    auto const rows = static_cast<int>(state.range(0)), columns = static_cast<int>(state.range(1));
    KVOSrvMatrix const original = Random(rows, columns);
    KVOSrvMatrix matrix(original);
    matrix.Transpose();
    Check(matrix, [&](int i, int j) { return At(original, j, i); });
    AgainstMemcpy(state, 16.0 * rows * columns, 1, [&] { matrix.Transpose(); });
}
BENCHMARK(Transpose)
    ->Args({kOrder, kOrder})
    ->Args({4099, 4099})
    ->Args({3000, 5000})
    ->Args({kOrder, 2 * kOrder})
    ->Iterations(15)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// A rectangular matrix takes a new array, whose pages the system clears first: against the copy into one, which pays for that too.
void TransposeAgainstNewCopy(benchmark::State& state)
{
    KVOSrvMatrix matrix = Random(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
    AgainstPeer(
        state, [&] { matrix.Transpose(); }, [&] { benchmark::DoNotOptimize(KVOSrvMatrix(matrix).Values()); });
}
BENCHMARK(TransposeAgainstNewCopy)
    ->Args({3000, 5000})
    ->Args({kOrder, 2 * kOrder})
    ->Iterations(15)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

template<bool skew>
void SetSymmetricResults(benchmark::State& state)
{
    auto const rows = static_cast<int>(state.range(0)), columns = static_cast<int>(state.range(1));
    KVOSrvMatrix const original = Random(rows, columns);
    KVOSrvMatrix matrix(original);
    auto const mirror = [&] { skew ? matrix.SetSkewSymmetricResults() : matrix.SetSymmetricResults(); };
    mirror();
    int const order = std::min(rows, columns);
    bool const fromUpper = rows < columns;
    Check(matrix, [&](int i, int j) {
        bool const mirrored = fromUpper ? j < i : i < j && j < order;
        return mirrored ? (skew ? -1.0 : 1.0) * At(original, j, i) : At(original, i, j);
    });
    AgainstMemcpy(state, 8.0 * order * (order - 1.0), 1, mirror); // reads one triangle, writes the other
}
BENCHMARK(SetSymmetricResults<false>)->Args({kOrder, kOrder})->Args({kOrder, kOrder + 1})->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(SetSymmetricResults<true>)->Args({kOrder, kOrder})->UseManualTime()->Unit(benchmark::kMillisecond);

void IsSymmetricNumerically(benchmark::State& state)
{
    KVOSrvMatrix matrix = Random(kOrder, kOrder);
    bool const before = matrix.IsSymmetricNumerically();
    matrix.SetSymmetricResults();
    if (before || !matrix.IsSymmetricNumerically())
        throw std::runtime_error("wrong result");
    // Against the copy of the array: memcpy reads it once too, but writes it as well.
    AgainstMemcpy(state, 2.0 * kArrayBytes, 1, [&] { benchmark::DoNotOptimize(matrix.IsSymmetricNumerically()); });
}
BENCHMARK(IsSymmetricNumerically)->UseManualTime()->Unit(benchmark::kMillisecond);

// A block of range(1) x range(2) out of, and into, a matrix of order range(0).
template<bool set>
void Block(benchmark::State& state)
{
    auto const order = static_cast<int>(state.range(0)), rows = static_cast<int>(state.range(1)),
               columns = static_cast<int>(state.range(2));
    int const startRow = (order - rows) / 2, startCol = (order - columns) / 2;
    KVOSrvMatrix matrix = Random(order, order);
    KVOSrvMatrix block = Random(rows, columns, 2);
    auto const copy = [&] {
        set ? matrix.SetValues(startRow, startRow + rows - 1, startCol, startCol + columns - 1, block)
            : matrix.GetValues(startRow, startRow + rows - 1, startCol, startCol + columns - 1, block);
    };
    copy();
    Check(block, [&](int i, int j) { return At(matrix, startRow + i, startCol + j); });
    auto const times = static_cast<std::size_t>(std::max(1, 1000000 / (rows * columns)));
    std::size_t const count = static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns),
                      runBytes = sizeof(double) * static_cast<std::size_t>(rows);
    LargePages<double> const whole(static_cast<std::size_t>(order) * static_cast<std::size_t>(order), 1.0), packed(count, 2.0);
    auto const repeated = [times](auto const& run) {
        return [times, run] {
            for (std::size_t i = 0; i < times; ++i) {
                run();
                benchmark::ClobberMemory();
            }
        };
    };
    // The bytes at one go, and the columns where they lie: narrow ones have gaps that no copy can do without.
    std::vector<Peer> peers{{"contiguous", repeated([&] { std::memcpy(packed.Data(), whole.Data(), sizeof(double) * count); })},
                            {"columns", repeated([&] {
                                 double* inWhole = whole.Data() + startRow + std::ptrdiff_t{startCol} * order;
                                 double* inPacked = packed.Data();
                                 for (int j = 0; j < columns; ++j, inWhole += order, inPacked += rows)
                                     set ? std::memcpy(inWhole, inPacked, runBytes) : std::memcpy(inPacked, inWhole, runBytes);
                             })}};
    TakeTurns(state, repeated(copy), peers);
    state.counters["ratio"] = peers[0].ratio;
    state.counters["columns_ratio"] = peers[1].ratio;
}
BENCHMARK(Block<true>)
    ->Name("SetValues")
    ->Args({kOrder, kOrder, kOrder})
    ->Args({kOrder, 4000, 4000})
    ->Args({kOrder, 256, 4000})
    ->Args({512, 64, 64})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);
BENCHMARK(Block<false>)
    ->Name("GetValues")
    ->Args({kOrder, kOrder, kOrder})
    ->Args({kOrder, 4000, 4000})
    ->Args({kOrder, 256, 4000})
    ->Args({512, 64, 64})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void Scale(benchmark::State& state)
{
    KVOSrvMatrix const original = Random(kOrder, kOrder);
    KVOSrvMatrix matrix(original);
    matrix.Multiply(-1.5);
    Check(matrix, [&](int i, int j) { return -1.5 * At(original, i, j); });
    AgainstMemcpy(state, 2.0 * kArrayBytes, 1, [&] { matrix.Multiply(-1.0); });
}
BENCHMARK(Scale)->UseManualTime()->Unit(benchmark::kMillisecond);

void Add(benchmark::State& state)
{
    double const factor = 0.5 * static_cast<double>(state.range(0));
    KVOSrvMatrix const original = Random(kOrder, kOrder), b = Random(kOrder, kOrder, 2);
    KVOSrvMatrix matrix(original);
    matrix.Add(factor, b);
    Check(matrix, [&](int i, int j) { return At(original, i, j) + factor * At(b, i, j); });
    AgainstMemcpy(state, 3.0 * kArrayBytes, 1, [&] { matrix.Add(factor, b); });
}
BENCHMARK(Add)->ArgName("twice_f")->Arg(1)->Arg(2)->Arg(-2)->UseManualTime()->Unit(benchmark::kMillisecond);

void Interpolate(benchmark::State& state)
{
    KVOSrvMatrix const a = Random(kOrder, kOrder), b = Random(kOrder, kOrder, 2);
    KVOSrvMatrix matrix(a);
    matrix.Interpolate(0.25, a, b);
    Check(matrix, [&](int i, int j) { return 0.75 * At(a, i, j) + 0.25 * At(b, i, j); });
    AgainstMemcpy(state, 3.0 * kArrayBytes, 1, [&] { matrix.Interpolate(0.25, a, b); });
}
BENCHMARK(Interpolate)->UseManualTime()->Unit(benchmark::kMillisecond);

void SetSlice(benchmark::State& state)
{
    double const factor = 0.5 * static_cast<double>(state.range(0));
    KVOSrvMatrix const source = Random(4000, 4000);
    KVOSrvMatrix matrix = Random(kOrder, kOrder);
    matrix.SetSlice(factor, source, 96, 96);
    Check(matrix, [&](int i, int j) { return i < 96 || j < 96 ? At(matrix, i, j) : factor * At(source, i - 96, j - 96); });
    AgainstMemcpy(state, 16.0 * 4000 * 4000, 1, [&] { matrix.SetSlice(factor, source, 96, 96); });
}
BENCHMARK(SetSlice)->ArgName("twice_f")->Arg(2)->Arg(3)->UseManualTime()->Unit(benchmark::kMillisecond);

void FullProduct(char const* transposeA, KVOSrvMatrix const& a, KVOSrvMatrix const& b, KVOSrvMatrix& c)
{
    int const n = kProductOrder;
    double const one = 1.0, zero = 0.0;
    BLAC_DGEMM(transposeA, "N", &n, &n, &n, &one, a.Values(), &n, b.Values(), &n, &zero, c.Values(), &n);
}

// Against the full product; in threads of the provider's own, one with OPENBLAS_NUM_THREADS=1.
template<bool transposed>
void SymmetricProduct(benchmark::State& state)
{
    int const n = kProductOrder;
    KVOSrvMatrix const a = Random(n, n), b = Random(n, n, 2);
    KVOSrvMatrix full(n, n, nullptr, false, false), triangle(n, n, nullptr, false, false);
    triangle = 0.0;
    auto const product = [&] { transposed ? a.TransposeMultiply(b, triangle, 1, 0) : triangle.SymmetricMultiply(a, b); };
    auto const peer = [&] { FullProduct(transposed ? "T" : "N", a, b, full); };
    product();
    peer();
    for (int j = 0; j < n; ++j)
        for (int i = j; i < n; ++i)
            if (!(std::abs(At(full, i, j) - At(triangle, i, j)) <= 1e-12 * n))
                throw std::runtime_error("wrong result");
    if (At(triangle, 0, n - 1) != 0.0)
        throw std::runtime_error("the other triangle was computed too");
    AgainstPeer(state, product, peer);
}
BENCHMARK(SymmetricProduct<false>)->Name("SymmetricMultiply")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(SymmetricProduct<true>)->Name("TransposeMultiply_symmetric")->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
