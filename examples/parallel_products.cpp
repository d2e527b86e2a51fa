// The library owns no threads; a program that has some lends them to it. Products of a stiffness-like sparse matrix with some vectors,
// first by one thread, then with the threads of the program: of its own, or of OpenMP where it is compiled with that.
//
// usage: parallel_products [THREADS]

#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvSparseMatrix.h"
#ifdef _OPENMP
#include "ParallelOpenMP.h"
#else
#include "ParallelThreads.h"
#endif

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace
{

constexpr int kRows = 100'000, kVectors = 8;

// The second difference over points in a row, coupled to points further off.
void Assemble(KVOSrvSparseMatrix& matrix)
{
    for (unsigned i = 0; i < kRows; ++i)
        for (unsigned const distance : {0U, 1U, 100U, 2000U}) {
            matrix.AddData(i, i, distance == 0 ? 6.0 : 0.0);
            if (distance > 0 && i + distance < kRows) {
                matrix.AddData(i, i + distance, -1.0 / distance);
                matrix.AddData(i + distance, i, -1.0 / distance);
            }
        }
    matrix.EndAssembly();
}

std::vector<double> TimedProduct(KVOSrvSparseMatrix const& matrix, std::vector<double> const& x, char const* by)
{
    std::vector<double> y(x.size());
    double best = 1e9;
    for (int repetition = 0; repetition < 10; ++repetition) {
        auto const start = std::chrono::steady_clock::now();
        matrix.Multiply(x.data(), kVectors, y.data(), false);
        best = std::min(best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::printf("%-26s %6.2f ms\n", by, best);
    return y;
}

} // namespace

int main(int argc, char** argv)
{
    int tally = 0;
    KVOMtxLinearAlgebra_initialize(tally);
    int const count = argc > 1 ? std::atoi(argv[1]) : 2;
    KVOSrvSparseMatrix matrix(kRows, kRows);
    Assemble(matrix);
    std::vector<double> x(static_cast<std::size_t>(kRows) * kVectors);
    for (std::size_t k = 0; k < x.size(); ++k)
        x[k] = 1.0 / static_cast<double>(k + 1);

    std::vector<double> const alone = TimedProduct(matrix, x, "by one thread");
#ifdef _OPENMP
    omp_set_num_threads(count);
    KVOSrvParallel const parallel(ParallelOpenMP::Run, nullptr, count);
#else
    ParallelThreads threads(count);
    KVOSrvParallel const parallel(ParallelThreads::Run, &threads, threads.Count());
#endif
    std::vector<double> const together = TimedProduct(matrix, x, "by the program's threads");
    bool const same = together == alone;
    std::puts(same ? "the same numbers" : "other numbers");
    KVOMtxLinearAlgebra_finalize(tally);
    return same ? 0 : 1;
}
