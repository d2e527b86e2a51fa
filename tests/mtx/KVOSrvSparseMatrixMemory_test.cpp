#include "ChildProcess.h"
#include "KVOSrvSparseMatrix.h"

#include <climits>
#include <fstream>
#include <gtest/gtest.h>
#include <random>

namespace
{

int StatusKilobytes(std::string const& field)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(field + ":"))
            return std::stoi(line.substr(field.size() + 1));
    return 0;
}

// The most memory that it takes to assemble a matrix of random entries and to use it, in a process that has allocated nothing before.
double PeakMegabytes(
    int rows, int columns, int count, void (*use)(KVOSrvSparseMatrix&) = [](KVOSrvSparseMatrix&) {})
{
    Reports reports;
    ChildProcess const child([&] {
        int const before = StatusKilobytes("VmRSS");
        KVOSrvSparseMatrix matrix(rows, columns);
        std::mt19937 random(1);
        for (int k = 0; k < count; ++k)
            matrix.AddData(static_cast<unsigned>(random() % static_cast<unsigned>(rows)),
                           static_cast<unsigned>(random() % static_cast<unsigned>(columns)), 1.0);
        matrix.EndAssembly();
        use(matrix);
        reports.Send(StatusKilobytes("VmHWM") - before);
        return 0;
    });
    return reports.Next() / 1024.0;
}

TEST(KVOSrvSparseMatrixMemory, GoesWithEntriesAndRows)
{
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the address sanitizer holds memory of its own";
#endif
    constexpr double kEntry = 16.0 / (1 << 20), kRow = 4.0 / (1 << 20), kSmall = 12; // large pages not filled, rows of a bucket

    double const manyEntries = PeakMegabytes(100000, 100000, 4000000);
    EXPECT_LT(manyEntries, 2.2 * 4000000 * kEntry);
    EXPECT_GT(manyEntries, 1.5 * 4000000 * kEntry); // or nothing was measured
    EXPECT_LT(PeakMegabytes(40000000, 10, 1), 40000000 * kRow + kSmall);
    double const manyColumns = PeakMegabytes(1, INT_MAX, 1000, [](KVOSrvSparseMatrix& matrix) {
        int found = 0, kept = 0;
        matrix.NontrivialColumns(found);
        matrix.EliminateTrivialColumns(kept);
        if (found != 1000 || kept != 1000)
            throw std::runtime_error("other columns");
    });
    EXPECT_LT(manyColumns, kSmall);
    EXPECT_GT(manyColumns, 0); // it was there to the end
}

} // namespace
