#include "KVOSrvUtilities.h"

#include "KVOSimAssert.h"
#include "KVOSrvMtxExceptions.h"
#include "mem_Allocator.h"

#include <algorithm>
#include <cstdint>
#include <memory>

namespace
{

cow_String& TempDirectory()
{
    // Never destroyed: scratch matrices of static duration may ask for it while the process ends.
    static cow_String& s_tempDirectory = *new cow_String;
    return s_tempDirectory;
}

// Differences of indices at both ends of their range do not fit in 32 bits.
bool StartsNewRun(int const* indices, int k, int runLength, int maxRun)
{
    return std::int64_t{indices[k]} - indices[k - 1] != 1 || runLength >= maxRun;
}

} // namespace

void KVOSrvUtilities::ReportAndAbort(char const* expression, char const* file, int line)
{
    KVOSimAssert::ReportValidationFailure(expression, file, line);
}

void KVOSrvUtilities::ReleaseMemory() noexcept
{
    mem_ReleaseMemory();
}

void KVOSrvUtilities::LimitChunkSize2GB(int& rowsPerChunk, int& colsPerChunk, int nRows, int nCols)
{
    constexpr int kEntries = 268435456; // 2 GiB of doubles
    if (nRows <= 0 || nCols <= 0)
        KVOSrvMtxRefusedInput("KVOSrvUtilities", "LimitChunkSize2GB", "the number of rows or of columns is not positive")
            .Throw("mtx/impl/KVOSrvUtilities", __LINE__);
    rowsPerChunk = std::min(rowsPerChunk, kEntries / nCols);
    colsPerChunk = std::min(colsPerChunk, kEntries / nRows);
}

void KVOSrvUtilities::SetTempDirectory(cow_String const& dir)
{
    TempDirectory() = dir;
}

cow_String KVOSrvUtilities::GetTempDirectory()
{
    return TempDirectory();
}

int* KVOSrvFindContiguousRanges(int const* indices, int n, int maxRun, int& nRanges)
{
    nRanges = 0;
    if (n == 0)
        return nullptr;

    int runs = 1;
    for (int k = 1, length = 1; k < n; ++k) {
        bool const newRun = StartsNewRun(indices, k, length, maxRun);
        runs += newRun;
        length = newRun ? 1 : length + 1;
    }

    std::unique_ptr<int[]> offsets(new int[static_cast<std::size_t>(runs) + 1]);
    int* last = offsets.get();
    *last++ = 0;
    *last = 1;
    for (int k = 1, length = 1; k < n; ++k) {
        bool const newRun = StartsNewRun(indices, k, length, maxRun);
        length = newRun ? 1 : length + 1;
        if (newRun) {
            last[1] = last[0] + 1;
            ++last;
        } else {
            ++*last;
        }
    }
    nRanges = runs;
    return offsets.release();
}
