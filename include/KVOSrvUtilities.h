#pragma once

/// @file
/// Services that the matrix classes share.

#include "KVOExport.h"
#include "KVOSimArray.h"
#include "KVOSimDistribution.h"
#include "KVOSimIdentifiers.h"
#include "KVOSimPosition.h"
#include "cow_String.h"

#include <memory>

/// Services that the matrix classes share. Not locked: settings belong to the host's main thread.
class KVO_EXPORT KVOSrvUtilities
{
public:
    KVOSrvUtilities() = delete;

    /// Ends the process because of a broken precondition: writes "Assertion failed: <expression>" and, unless `file` is
    /// null, "File <file>, line <line>" to the error stream and calls abort(). Support staff search logs for these
    /// lines.
    [[noreturn]] static void ReportAndAbort(char const* expression, char const* file, int line);

    /// Caps the chunk sizes of a matrix of nRows x nCols doubles so that neither a chunk of rowsPerChunk whole rows nor
    /// one of colsPerChunk whole columns exceeds 2 GiB (2^28 doubles).
    /// @throws KVOSrvMtxIllegalInput "LimitChunkSize2GB" if nRows or nCols is not positive; nothing is changed then
    static void LimitChunkSize2GB(int& rowsPerChunk, int& colsPerChunk, int nRows, int nCols);

    /// Gives back to the system what the library keeps of released arrays to use it again: at most 64 MiB or a tenth of
    /// the memory that its arrays take, whichever is more, and never more than a thirty-second of what the process can
    /// have. Free memory of the C library's heap goes back too. Any thread may call it at any time; what is alive is
    /// not touched.
    static void ReleaseMemory() noexcept;

    /// Sets the folder for scratch database files of the process; the text is shared, not copied. Empty, the state at
    /// load time, means the working directory.
    static void SetTempDirectory(cow_String const& dir);
    /// The folder for scratch database files; empty means the working directory.
    static cow_String GetTempDirectory();

    /// Whether a distribution holds a dense matrix: one or two dimensions, one drawer, which is dense.
    static bool IsDenseMatrix(KVOSimDistribution const& distribution);
    /// Whether it holds a sparse matrix: two dimensions, one drawer, which is sparse, symmetric or not.
    static bool IsSparseMatrix(KVOSimDistribution const& distribution);

    /// @name Makers of distributions
    /// Each makes a new distribution with one drawer; those for doubles read as 0.0 until they are written. A chunk
    /// size of -1 means all of its dimension; without any other chunk size the drawer is not chunked. A chunk may be
    /// larger than its dimension. Chunk sizes are not capped: see LimitChunkSize2GB(). Where two dimensions have one
    /// collection, the first takes a colour variant of it, so that the dimensions differ. A typeIndex of 0 or greater
    /// types the distribution. Failures, null sets among them, are KVOSimException; the distribution then disappears
    /// with the transaction, if there is one.
    /// @{

    /// A vector over `set`, in the context of its collection.
    static KVOSimDistributionID Create1DDistribution(KVOSimCSetID const& set, int chunk);
    /// The same at `position`, typed.
    static KVOSimDistributionID Create1DDistribution(KVOSimPosition& position, int typeIndex, KVOSimCSetID const& set,
                                                     int chunk);
    /// A matrix of rows x columns: dimension 0 over the columns, dimension 1 over the rows.
    static KVOSimDistributionID Create2DDistribution(KVOSimCSetID const& rows, KVOSimCSetID const& columns,
                                                     int rowChunk, int columnChunk);
    /// The same at `position`, typed.
    static KVOSimDistributionID Create2DDistribution(KVOSimPosition& position, int typeIndex, KVOSimCSetID const& rows,
                                                     KVOSimCSetID const& columns, int rowChunk, int columnChunk);
    /// The same. @param valueChecksums  as KVOSimTransfer::SetValueChecksums(): with chunks only
    static KVOSimDistributionID Create2DDistribution(KVOSimPosition& position, int typeIndex, KVOSimCSetID const& rows,
                                                     KVOSimCSetID const& columns, int rowChunk, int columnChunk,
                                                     bool valueChecksums);
    /// Dimension d over sets[d]. @param chunks  one size a dimension (-1: all of it), or none: not chunked
    /// @param temporary  not kept with the database
    /// @throws KVOSrvMtxIllegalInput "CreateDistribution" when the number of chunk sizes is another one
    static KVOSimDistributionID CreateDistribution(KVOSimPosition& position, int typeIndex,
                                                   KVOSimArray<KVOSimCSetID> const& sets,
                                                   KVOSimArray<int> const& chunks, bool temporary);
    /// Integers over `set`, not chunked, written at once. @param values  `count` of them, one a member
    static KVOSimDistributionID Write1DIntDistribution(KVOSimCSetID const& set, int const* values, int count);
    /// For a sparse matrix, whose export makes the drawer: dimension 0 over the rows, dimension 1 over the columns;
    /// here the columns take the colour variant.
    static KVOSimDistributionID CreateSparseDistribution(KVOSimCSetID const& rows, KVOSimCSetID const& columns);
    /// The same at `position`, typed.
    static KVOSimDistributionID CreateSparseDistribution(KVOSimPosition& position, int typeIndex,
                                                         KVOSimCSetID const& rows, KVOSimCSetID const& columns);
    /// @}
};

/// Cuts indices[0 .. n-1] into runs of consecutive ascending indices of at most maxRun entries.
///
/// @param maxRun        greatest length of a run; below 1 it counts as 1
/// @param[out] nRanges  number of runs: 0 for n = 0, at least 1 otherwise
/// @return offsets of nRanges + 1 entries, run r covering positions result[r] to result[r + 1] - 1; the caller releases
///         it with delete[]. Null for n = 0. A negative n gives the one run [0, 1].
KVO_EXPORT int* KVOSrvFindContiguousRanges(int const* indices, int n, int maxRun, int& nRanges);
/// The same, held.
inline std::unique_ptr<int[]> KVOSrvContiguousRanges(int const* indices, int n, int maxRun, int& nRanges)
{
    return std::unique_ptr<int[]>(KVOSrvFindContiguousRanges(indices, n, maxRun, nRanges));
}
