#pragma once

#include "KVOExport.h"

#include <cstdint>

/// A limit of memory for the work of this thread, for as long as the object lives; the limit before it then holds
/// again. There is none at first.
///
/// Under it products of stored matrices, operations on whole matrices, and the assembly, import and export of sparse
/// ones keep what they take beside the caller's operands and, where they make a matrix in memory, beside that, within
/// the limit and two blocks. What they need beyond goes to scratch files in KVOSrvUtilities::GetTempDirectory(), or is
/// read more than once. Results may differ from those without a limit by the rounding of another order of summation,
/// where their operation does not say otherwise; equal limits give equal bits.
///
/// Products of KVOSrvDenseMatrix and KVOSrvDenseMatrixSet are formed tile by tile under it. For C = A B of m x k and
/// k x n values they read about 16 m k n / t bytes, t being the order of the tiles and 24 t^2 the limit, or each
/// operand once where that is more. A block is what is read of one at a time: chunks larger than a tile, and matrices
/// without chunks, are read by ranges. Values are read and written by calls alone, and nothing of a file stays in the
/// process's memory. Not counted is what the BLAS provider takes.
///
/// An operation for which the limit is too small refuses it by KVOSrvMtxIllegalInput, with the least that would do;
/// nothing is changed then.
///
/// Objects of one thread end in the reverse order of their making, as those of nested blocks do.
class KVO_EXPORT KVOSrvProductMemory
{
public:
    /// @throws KVOSrvMtxIllegalInput "KVOSrvProductMemory" unless `bytes` is positive
    explicit KVOSrvProductMemory(std::int64_t bytes);
    ~KVOSrvProductMemory();
    KVOSrvProductMemory(KVOSrvProductMemory const&) = delete;
    KVOSrvProductMemory& operator=(KVOSrvProductMemory const&) = delete;

    /// The limit of this thread in bytes; 0: none.
    static std::int64_t Bytes() noexcept;
    /// Whether this thread has a limit.
    static bool IsSet() noexcept { return Bytes() > 0; }

private:
    std::int64_t m_before;
};
