// The BLAS-backed matrix: its product into a symmetric target against that into a general one, the rest against memcpy that moves as many
// bytes.

#include "AgainstPeer.h"
#include "KVOSrvBlaMatrix.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <random>
#include <stdexcept>

namespace
{

using Property = KVOSrvBlaMatrix::KVOSrvMtxProperty;
constexpr Property kGeneral = KVOSrvBlaMatrix::KVOSrvMtxGeneral;
constexpr Property kSymmetric = KVOSrvBlaMatrix::KVOSrvMtxSymmetric;
constexpr Property kSkewSymmetric = KVOSrvBlaMatrix::KVOSrvMtxSkewSymmetric;

using Values = std::vector<double>; // packed, by columns

Values Random(int rows, int columns, unsigned seed = 1)
{
    std::minstd_rand random(seed);
    Values values(static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns));
    std::generate(values.begin(), values.end(), [&] { return 1e-9 * static_cast<double>(random()) - 1.0; });
    return values;
}

KVOSrvBlaMatrix Matrix(int rows, int columns, Values const& values, Property property = kGeneral)
{
    return KVOSrvBlaMatrix(rows, columns, values.data(), property);
}

Values ValuesOf(KVOSrvBlaMatrix const& matrix)
{
    int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    Values values(static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns));
    matrix.GetValues(0, rows - 1, 0, columns - 1, values.data());
    return values;
}

void Check(bool holds)
{
    if (!holds)
        throw std::runtime_error("wrong result");
}

// Into rows x columns, the inner dimension being the larger of both; in threads of the provider's own, one with OPENBLAS_NUM_THREADS=1.
void StructuredProduct(benchmark::State& state)
{
    auto const rows = static_cast<int>(state.range(0)), columns = static_cast<int>(state.range(1)), inner = std::max(rows, columns);
    bool const transA = state.range(2) != 0;
    auto const property = static_cast<Property>(state.range(3));
    KVOSrvBlaMatrix const a = transA ? Matrix(inner, rows, Random(inner, rows)) : Matrix(rows, inner, Random(rows, inner));
    KVOSrvBlaMatrix const b = Matrix(inner, columns, Random(inner, columns, 2));
    KVOSrvBlaMatrix general(rows, columns, nullptr, kGeneral), structured(rows, columns, nullptr, property);
    auto const product = [&] { structured.Multiply(a, b, 1.0, 0.0, transA, false); };
    auto const peer = [&] { general.Multiply(a, b, 1.0, 0.0, transA, false); };
    product();
    peer();
    {
        Values const all = ValuesOf(general), computed = ValuesOf(structured);
        double const sign = structured.IsSkewSymmetric() ? -1.0 : 1.0;
        auto const at = [rows](Values const& values, int i, int j) {
            return values[static_cast<std::size_t>(i) + static_cast<std::size_t>(j) * static_cast<std::size_t>(rows)];
        };
        for (int j = 0; j < columns; ++j)
            for (int i = 0; i < rows; ++i) {
                bool const mirrored = rows >= columns ? i < j : i > j;
                double const expected = mirrored ? sign * at(computed, j, i) : at(all, i, j);
                Check(std::abs(at(computed, i, j) - expected) <= (mirrored ? 0.0 : 1e-12 * inner));
            }
    }
    AgainstPeer(state, product, peer);
}
BENCHMARK(StructuredProduct)
    ->ArgNames({"rows", "columns", "transA", "property"})
    ->Args({2000, 2000, 0, kSymmetric})
    ->Args({4000, 4000, 0, kSymmetric})
    ->Args({2000, 2000, 1, kSymmetric})
    ->Args({2000, 2000, 0, kSkewSymmetric})
    ->Args({2000, 2001, 0, kSymmetric}) // by the upper triangle
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// Long enough that a time slice lost to another process does not fall to the longer of the two alone.
int Times(int order)
{
    return std::max(1, 40000000 / (order * order));
}

// CompleteOtherTriangle() has no caller outside. Of a product with the factors 0 and 1 hardly more is left, since DGEMM returns at once;
// but with a short inner dimension the provider takes a path for small products that goes through the target.
void CompleteOtherTriangle(benchmark::State& state)
{
    auto const order = static_cast<int>(state.range(0));
    auto const property = static_cast<Property>(state.range(1));
    KVOSrvBlaMatrix const factor = Matrix(order, 256, Random(order, 256));
    Values const before = Random(order, order);
    KVOSrvBlaMatrix matrix = Matrix(order, order, before, property);
    auto const complete = [&] { matrix.Multiply(factor, factor, 0.0, 1.0, false, true); };
    complete();
    {
        Values const after = ValuesOf(matrix);
        auto const n = static_cast<std::size_t>(order);
        for (std::size_t j = 0; j < n; ++j)
            for (std::size_t i = 0; i < n; ++i)
                Check(after[i + j * n] == (i >= j ? before[i + j * n] : matrix.IsSkewSymmetric() ? -before[j + i * n] : before[j + i * n]));
    }
    AgainstMemcpy(state, 8.0 * order * (order - 1.0), Times(order), complete); // reads one triangle, writes the other
}
BENCHMARK(CompleteOtherTriangle)
    ->ArgNames({"order", "property"})
    ->Args({2000, kSymmetric})
    ->Args({4000, kSymmetric})
    ->Args({4096, kSymmetric})
    ->Args({4000, kSkewSymmetric})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

void Transpose(benchmark::State& state)
{
    auto const order = static_cast<int>(state.range(0));
    Values const before = Random(order, order);
    KVOSrvBlaMatrix matrix = Matrix(order, order, before);
    matrix.Transpose();
    {
        Values const after = ValuesOf(matrix);
        auto const n = static_cast<std::size_t>(order);
        for (std::size_t k = 0; k < after.size(); ++k)
            Check(after[k] == before[k / n + k % n * n]);
    }
    AgainstMemcpy(state, 16.0 * order * order, Times(order), [&] { matrix.Transpose(); });
}
BENCHMARK(Transpose)->Arg(2000)->Arg(4000)->Arg(4096)->UseManualTime()->Unit(benchmark::kMillisecond);

// A matrix that is not square is transposed once, into a new array: each run has one of its own.
void TransposeIntoNewArray(benchmark::State& state)
{
    auto const rows = static_cast<int>(state.range(0)), columns = static_cast<int>(state.range(1)); // fewer rows than columns
    Values const before = Random(rows, columns);
    struct Fresh { // Clang warns where a container destroys an object whose class has virtual members, but not so the destructor
        Fresh(int m, int n, Values const& values) : matrix(m, n, values.data(), kGeneral) {}
        KVOSrvBlaMatrix matrix;
    };
    std::deque<Fresh> matrices;
    for (benchmark::IterationCount i = 0; i < state.max_iterations; ++i)
        matrices.emplace_back(rows, columns, before);
    std::size_t next = 0;
    AgainstMemcpy(state, 16.0 * rows * columns, 1, [&] { matrices[next++].matrix.Transpose(); });

    // The leading dimension stays: what it still leads to is the array's beginning, without gaps.
    Values after(static_cast<std::size_t>(rows) * static_cast<std::size_t>(rows));
    for (Fresh const& fresh : matrices) {
        fresh.matrix.GetValues(0, rows - 1, 0, rows - 1, after.data());
        for (std::size_t k = 0; k < after.size(); ++k) {
            auto const n = static_cast<std::size_t>(columns), m = static_cast<std::size_t>(rows);
            Check(after[k] == before[k / n + k % n * m]);
        }
    }
}
BENCHMARK(TransposeIntoNewArray)->Args({2000, 3000})->Args({2048, 4096})->Iterations(9)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
