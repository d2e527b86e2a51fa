// C = A B of stored matrices larger than the memory that the product may take: once by hand, since the operands of docs/measurements.md
// take 40 GB and the better part of an hour.
//
//     OPENBLAS_NUM_THREADS=1 beyond_memory 5000 500000 5000 1024 [FOLDER]     m, k, n, and the limit in MiB
//
// Makes A and B in scratch files, multiplies, compares some rows of C with sums of whole numbers, and prints how far the resident set grew
// and how much was read.

#include "KVOSrvMatrix.h"
#include "KVOSrvProductMemory.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace
{

// Whole numbers, so that sums are exact in whatever order they are formed.
double ValueOfA(std::int64_t i, std::int64_t k)
{
    return static_cast<double>((7 * i + 3 * k + i * k % 13) % 11 - 5);
}

double ValueOfB(std::int64_t k, std::int64_t j)
{
    return static_cast<double>((5 * k + j + k * j % 17) % 7 - 3);
}

template<class Value>
void Fill(KVOSrvDenseMatrix& matrix, Value const& value)
{
    for (int bc = 0; bc < matrix.NumberOfColumnBlocks(); ++bc)
        for (int br = 0; br < matrix.NumberOfRowBlocks(); ++br) {
            int const row = matrix.FirstRowInBlock(br), column = matrix.FirstColumnInBlock(bc);
            KVOSrvMatrix block(matrix.NumberOfRowsInBlock(br), matrix.NumberOfColumnsInBlock(bc), nullptr, false, false);
            for (int j = 0; j < block.NumberOfColumns(); ++j)
                for (int i = 0; i < block.NumberOfRows(); ++i)
                    block.Values()[i + std::int64_t{j} * block.NumberOfRows()] = value(row + i, column + j);
            matrix.SetValues(row, row + block.NumberOfRows() - 1, column, column + block.NumberOfColumns() - 1, block);
        }
}

// A number of the process behind `key`.
double NumberIn(char const* file, std::string const& key)
{
    std::ifstream lines(file);
    for (std::string word; lines >> word;)
        if (double number = 0; word == key && lines >> number)
            return number;
    return NAN;
}

int WrongValues(KVOSrvDenseMatrix const& C, int inner)
{
    int wrong = 0;
    KVOSrvMatrix row(1, C.NumberOfColumns(), nullptr, false, false);
    for (int i = 0; i < C.NumberOfRows(); i += std::max(1, C.NumberOfRows() - 1)) {
        C.GetRows(i, i, row);
        for (int j = 0; j < C.NumberOfColumns(); j += 97) {
            double sum = 0;
            for (int k = 0; k < inner; ++k)
                sum += ValueOfA(i, k) * ValueOfB(k, j);
            wrong += row.Values()[j] != sum;
        }
    }
    return wrong;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 5)
        return std::fprintf(stderr, "usage: beyond_memory M K N MIB [FOLDER]\n"), 2;
    int const m = std::atoi(argv[1]), k = std::atoi(argv[2]), n = std::atoi(argv[3]);
    if (argc > 5)
        KVOSrvUtilities::SetTempDirectory(cow_String(argv[5]));
    constexpr int kChunk = 1000;
    constexpr char kStatus[] = "/proc/self/status", kCounts[] = "/proc/self/io";
    KVOSrvScratchDenseMatrix a(m, k, kChunk, kChunk), b(k, n, kChunk, kChunk), c(m, n, kChunk, kChunk);
    Fill(a, ValueOfA);
    Fill(b, ValueOfB);
    double const limit = std::atof(argv[4]) * (1 << 20), order = std::sqrt(limit / 24), dm = m, dk = k, dn = n;
    double const model = 8 * dk * (dm * std::max(1.0, dn / order) + dn * std::max(1.0, dm / order));
    {
        KVOSrvMatrix warm(2000, 2000, nullptr, false, false);
        warm = 1.0;
        warm *= KVOSrvMatrix(warm); // the provider takes its memory at its first product
    }
    KVOSrvUtilities::ReleaseMemory();
    std::ofstream("/proc/self/clear_refs") << "5"; // the peak starts anew
    double const resident = NumberIn(kStatus, "VmRSS:"), readBefore = NumberIn(kCounts, "rchar:");
    auto const begin = std::chrono::steady_clock::now();
    {
        KVOSrvProductMemory const inForce(static_cast<std::int64_t>(limit));
        a.Multiply(b, c);
    }
    std::chrono::duration<double> const elapsed = std::chrono::steady_clock::now() - begin;
    std::printf("%d x %d x %d: %.0f s, %.1f Gflop/s, resident set grew by %.0f MiB, read %.1f GB, %.2f of the model\n", m, k, n,
                elapsed.count(), 2e-9 * dm * dk * dn / elapsed.count(), (NumberIn(kStatus, "VmHWM:") - resident) / 1024,
                (NumberIn(kCounts, "rchar:") - readBefore) * 1e-9, (NumberIn(kCounts, "rchar:") - readBefore) / model);
    int const wrong = WrongValues(c, k);
    std::printf("%d values are wrong\n", wrong);
    return wrong == 0 ? 0 : 1;
}
