#pragma once

#include "KVOExport.h"
#include "cow_String.h"

/// Services that the matrix classes share. Not locked: settings belong to the host's main thread.
class KVO_EXPORT KVOSrvUtilities
{
public:
    KVOSrvUtilities() = delete;

    /// Ends the process because of a broken precondition: writes "Assertion failed: <expression>" and, unless `file` is null,
    /// "File <file>, line <line>" to the error stream and calls abort(). Support staff search logs for these lines.
    [[noreturn]] static void ReportAndAbort(char const* expression, char const* file, int line);

    /// Caps the chunk sizes of a matrix of nRows x nCols doubles so that neither a chunk of rowsPerChunk whole rows nor one of
    /// colsPerChunk whole columns exceeds 2 GiB (2^28 doubles).
    /// @throws KVOSrvMtxIllegalInput "LimitChunkSize2GB" if nRows or nCols is not positive; nothing is changed then
    static void LimitChunkSize2GB(int& rowsPerChunk, int& colsPerChunk, int nRows, int nCols);

    /// Sets the folder for scratch database files of the process; the text is shared, not copied. Empty, the state at load time, means
    /// the working directory.
    static void SetTempDirectory(cow_String const& dir);
    static cow_String GetTempDirectory();
};

/// Cuts indices[0 .. n-1] into runs of consecutive ascending indices of at most maxRun entries.
///
/// @param maxRun        greatest length of a run; below 1 it counts as 1
/// @param[out] nRanges  number of runs: 0 for n = 0, at least 1 otherwise
/// @return offsets of nRanges + 1 entries, run r covering positions result[r] to result[r + 1] - 1; the caller releases it with delete[].
///         Null for n = 0. A negative n gives the one run [0, 1].
KVO_EXPORT int* KVOSrvFindContiguousRanges(int const* indices, int n, int maxRun, int& nRanges);
