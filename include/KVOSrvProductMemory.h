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

private:
    std::int64_t m_before;
};
