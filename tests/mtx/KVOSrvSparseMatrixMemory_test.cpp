#include "ChildProcess.h"
#include "KVOSrvSparseMatrix.h"

#include <climits>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>

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

// The most memory that run() holds at any time, in a process that has allocated nothing before.
template<class Run>
double PeakMegabytes(Run const& run)
{
    Reports reports;
    ChildProcess const child([&] {
        int const before = StatusKilobytes("VmRSS");
        run();
        reports.Send(StatusKilobytes("VmHWM") - before);
        return 0;
    });
    return reports.Next() / 1024.0;
}

void AddRandom(KVOSrvSparseMatrix& matrix, int count)
{
    std::mt19937 random(1);
    auto const rows = static_cast<unsigned>(matrix.NumberOfRows()), columns = static_cast<unsigned>(matrix.NumberOfColumns());
    for (int k = 0; k < count; ++k)
        matrix.AddData(static_cast<unsigned>(random() % rows), static_cast<unsigned>(random() % columns), 1.0);
}

double AssemblyMegabytes(int rows, int columns, int count)
{
    return PeakMegabytes([&] {
        KVOSrvSparseMatrix matrix(rows, columns);
        AddRandom(matrix, count);
        matrix.EndAssembly();
    });
}

class KVOSrvSparseMatrixMemory : public testing::Test
{
protected:
    void SetUp() override
    {
#ifdef __SANITIZE_ADDRESS__
        GTEST_SKIP() << "the address sanitizer holds memory of its own";
#endif
    }
};

TEST_F(KVOSrvSparseMatrixMemory, AssemblyTakesTwiceTheEntriesAndTheRowStarts)
{
    constexpr double kEntry = 16.0 / (1 << 20), kRow = 4.0 / (1 << 20), kSmall = 12; // large pages not filled, rows of a bucket

    double const manyEntries = AssemblyMegabytes(100000, 100000, 4000000);
    EXPECT_LT(manyEntries, 2.2 * 4000000 * kEntry);
    EXPECT_GT(manyEntries, 1.5 * 4000000 * kEntry); // or nothing was measured
    EXPECT_LT(AssemblyMegabytes(40000000, 10, 1), 40000000 * kRow + kSmall);
    EXPECT_LT(AssemblyMegabytes(1, INT_MAX, 1000), kSmall);
}

TEST_F(KVOSrvSparseMatrixMemory, NontrivialColumnsTakeNothingForTheOthers)
{
    EXPECT_LT(PeakMegabytes([] {
                  KVOSrvSparseMatrix matrix(1, INT_MAX);
                  AddRandom(matrix, 1000);
                  matrix.EndAssembly();
                  int found = 0, kept = 0;
                  std::unique_ptr<unsigned[]> const columns(matrix.FindNontrivialColumns(found));
                  std::unique_ptr<unsigned[]> const oldNumbers(matrix.EliminateTrivialColumns(kept));
                  if (found != 1000 || kept != 1000)
                      throw std::runtime_error("other columns");
              }),
              12);
}

} // namespace
