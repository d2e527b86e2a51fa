#pragma once

#include "DenseChecks.h"
#include "KVOSrvBlockCut.h"
#include "KVOSrvProductMemory.h"

#include <algorithm>
#include <cstdint>
#include <string>

/// What operations make of the limit of memory that the caller has stated, where there is one. In doubles.
namespace StatedMemory
{

inline std::int64_t EntriesAllowed() noexcept
{
    return KVOSrvProductMemory::IsSet() ? KVOSrvProductMemory::Bytes() / static_cast<std::int64_t>(sizeof(double)) : INT64_MAX;
}

/// What each of `buffers` equal ones may have of `most` entries, 1 at least.
inline std::int64_t EntriesFor(std::int64_t most, int buffers = 1) noexcept
{
    return std::clamp<std::int64_t>(EntriesAllowed() / buffers, 1, most);
}

/// Refuses an operation that cannot do with less than `entries` entries when it may not have them.
inline void Require(std::int64_t entries, char const* operation,
                    KVOSrvMatrixSupport::RefusalCheck const& require = DenseChecks::RequireFitting)
{
    if (entries <= EntriesAllowed())
        return;
    std::string const reason = "the memory limit of " + std::to_string(KVOSrvProductMemory::Bytes()) + " bytes is too small, " +
                               std::to_string(static_cast<std::int64_t>(sizeof(double)) * entries) + " would do";
    require(false, operation, reason.c_str());
}

/// The columns cut where the store is, or narrower where the memory for one of them, `entriesPerColumn` and `entriesBeside` for all, does
/// not allow so many at a time.
inline KVOSrvBlockCut ColumnsWithin(KVOSrvBlockCut const& columns, std::int64_t entriesPerColumn, std::int64_t entriesBeside) noexcept
{
    std::int64_t const width = (EntriesAllowed() - entriesBeside) / std::max<std::int64_t>(1, entriesPerColumn);
    return width >= columns.MaxNumberInBlock() ? columns
                                               : KVOSrvBlockCut::Whole(columns.size, static_cast<int>(std::max<std::int64_t>(1, width)));
}

} // namespace StatedMemory
