#include "KVOSrvUtilities.h"

#include "ExpectThrows.h"
#include "KVOSrvMtxExceptions.h"

#include <climits>
#include <csignal>
#include <gmock/gmock.h>
#include <memory>

TEST(KVOSrvUtilities, LimitChunkSize2GB)
{
    struct {
        int rowsPerChunk, colsPerChunk, nRows, nCols, expectedRows, expectedCols;
    } const kCases[] = {
        {1000000, 1000000, 1000, 1000000, 268, 268435},
        {268, 268435, 1000, 1000000, 268, 268435}, // at the limits
        {269, 268436, 1000, 1000000, 268, 268435}, // one above each
        {100, 5, 1000, 1000000, 100, 5},
        {7, 1 << 28, 1, 1, 7, 1 << 28},
        {INT_MAX, INT_MAX, 1, 1 << 28, 1, 1 << 28},
        {3, 3, 2, (1 << 28) + 1, 0, 3}, // one row is more than 2 GiB
    };
    for (auto [rows, cols, nRows, nCols, expectedRows, expectedCols] : kCases) {
        SCOPED_TRACE(std::to_string(rows) + ' ' + std::to_string(cols) + " of " + std::to_string(nRows) + " x " + std::to_string(nCols));
        KVOSrvUtilities::LimitChunkSize2GB(rows, cols, nRows, nCols);
        EXPECT_EQ(std::pair(rows, cols), std::pair(expectedRows, expectedCols));
    }
    for (auto const& [nRows, nCols] : {std::pair(0, 5), {5, 0}, {-1, 5}, {5, INT_MIN}}) {
        int rows = 1 << 30, cols = 1 << 30;
        ExpectThrows<KVOSrvMtxRefusedInput>(
            "KVOSrvUtilities::LimitChunkSize2GB - Illegal input: the number of rows or of columns is not positive.",
            [&, r = nRows, c = nCols] { KVOSrvUtilities::LimitChunkSize2GB(rows, cols, r, c); });
        EXPECT_EQ(std::pair(rows, cols), std::pair(1 << 30, 1 << 30));
    }
}

static std::vector<int> Ranges(std::vector<int> const& indices, int n, int maxRun)
{
    int nRanges = -1;
    std::unique_ptr<int[]> const offsets = KVOSrvContiguousRanges(indices.data(), n, maxRun, nRanges);
    if (offsets == nullptr) {
        EXPECT_EQ(nRanges, 0);
        return {};
    }
    return {offsets.get(), offsets.get() + nRanges + 1};
}

TEST(KVOSrvFindContiguousRanges, RunsAreMaximal)
{
    struct {
        std::vector<int> indices;
        int n, maxRun;
        std::vector<int> expected;
    } const kCases[] = {
        {{3, 4, 5, 9, 10}, 5, 100, {0, 3, 5}},
        {{1, 2, 3, 4, 5}, 5, 2, {0, 2, 4, 5}},
        {{8}, 1, 100, {0, 1}},
        {{}, 0, 100, {}},
        {{}, -3, 100, {0, 1}}, // deliberate: a negative length counts as one run
        {{1, 2, 3}, 3, 0, {0, 1, 2, 3}},
        {{1, 2, 3}, 3, INT_MIN, {0, 1, 2, 3}},
        {{5, 4, 4, 5}, 4, 100, {0, 1, 2, 4}},
        {{INT_MAX, INT_MIN, INT_MIN + 1}, 3, 100, {0, 1, 3}}, // the difference wraps round to 1 in 32 bits
    };
    for (auto const& c : kCases)
        EXPECT_EQ(Ranges(c.indices, c.n, c.maxRun), c.expected) << testing::PrintToString(c.indices) << ", at most " << c.maxRun;
}

TEST(KVOSrvUtilitiesDeathTest, ReportAndAbort)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe"); // a BLAS provider may have threads running
    using testing::Eq, testing::KilledBySignal;
    EXPECT_EXIT(KVOSrvUtilities::ReportAndAbort("startRow>=0 && startCol>=0", "mtx/impl/KVOSrvBlaMatrix", 71), KilledBySignal(SIGABRT),
                Eq(std::string("Assertion failed: startRow>=0 && startCol>=0\nFile mtx/impl/KVOSrvBlaMatrix, line 71\n")));
    EXPECT_EXIT(KVOSrvUtilities::ReportAndAbort("100% %s", nullptr, 71), KilledBySignal(SIGABRT),
                Eq(std::string("Assertion failed: 100% %s\n")));
}
