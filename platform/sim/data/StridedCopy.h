#pragma once

#include "ChunkGrid.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace simdb
{

/// A packed n-dimensional part of two arrays, reduced to the longest runs of bytes that both have in one piece, and loops around them.
struct StridedRuns {
    struct Loop {
        std::int64_t count;
        std::int64_t strides[2]; ///< in bytes, in the first and the second array
    };

    /// @param counts   values per dimension of the part
    /// @param extents  values per dimension of the two arrays
    StridedRuns(std::span<std::int64_t const> counts, std::span<std::int64_t const> extents0, std::span<std::int64_t const> extents1,
                std::size_t valueBytes) noexcept;

    // Copied for every piece of a range: only the loops that there are.
    StridedRuns(StridedRuns const& other) noexcept { *this = other; }
    StridedRuns& operator=(StridedRuns const& other) noexcept
    {
        runBytes = other.runBytes;
        depth = other.depth;
        std::copy(other.loops.begin(), other.loops.begin() + static_cast<std::ptrdiff_t>(depth), loops.begin());
        return *this;
    }
    ~StridedRuns() = default;

    bool IsOneRun() const noexcept { return depth == 0; }
    std::int64_t NumRuns() const noexcept;
    /// Bytes from the first to behind the last byte of the part in array `side`.
    std::int64_t Span(int side) const noexcept;
    /// The same with array `side` standing still: each run takes the same bytes there.
    StridedRuns Repeating(int side) const noexcept;

    /// Calls visit(offset0, offset1) with the byte offsets of each run.
    template<class Visit>
    void ForEachRun(Visit visit) const
    {
        ForEachFrom(0, [&](std::int64_t offset0, std::int64_t offset1, bool) { visit(offset0, offset1); });
    }

    /// Calls visit(offset0, offset1, isLast) with the offsets of the first run of each innermost loop; there must be a loop.
    template<class Visit>
    void ForEachInnerLoop(Visit visit) const
    {
        ForEachFrom(1, visit);
    }

    std::size_t runBytes;
    std::size_t depth = 0;
    std::array<Loop, kMaxRank> loops; ///< the innermost first

private:
    template<class Visit>
    void ForEachFrom(std::size_t level, Visit visit) const
    {
        std::array<std::int64_t, kMaxRank> left;
        std::int64_t visits = 1;
        for (std::size_t l = level; l < depth; ++l)
            visits *= left[l] = loops[l].count;
        std::int64_t offset0 = 0, offset1 = 0;
        for (; visits > 0; --visits) {
            visit(offset0, offset1, visits == 1);
            for (std::size_t l = level; l < depth; ++l) {
                offset0 += loops[l].strides[0];
                offset1 += loops[l].strides[1];
                if (--left[l] > 0)
                    break;
                left[l] = loops[l].count;
                offset0 -= left[l] * loops[l].strides[0];
                offset1 -= left[l] * loops[l].strides[1];
            }
        }
    }
};

/// Memory that the copy after this one begins with; it is fetched ahead.
struct Upcoming {
    std::byte const* first = nullptr;
    std::size_t bytes = 0;
};

/// Copies the part from array 1 to array 0, or the other way; the pointers are to the part's first value. The arrays don't overlap.
///
/// Array 0 is the one whose runs lie apart: each is fetched into the second-level cache while the one before is copied.
void CopyToFirst(StridedRuns const& runs, std::byte* array0, std::byte const* array1, Upcoming const& upcoming = {}) noexcept;
void CopyToSecond(StridedRuns const& runs, std::byte const* array0, std::byte* array1, Upcoming const& upcoming = {}) noexcept;

/// memcpy for what will not be read again soon: it does not read what it overwrites into the cache first, where that pays on
/// this processor.
void CopyPastCache(std::byte* to, std::byte const* from, std::size_t bytes) noexcept;

} // namespace simdb
