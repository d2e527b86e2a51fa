#include "StridedCopy.h"

#include "KVOBasProcessor.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace simdb
{

StridedRuns::StridedRuns(std::span<std::int64_t const> counts, std::span<std::int64_t const> extents0,
                         std::span<std::int64_t const> extents1, std::size_t valueBytes) noexcept
    : runBytes(valueBytes)
{
    auto stride0 = static_cast<std::int64_t>(valueBytes), stride1 = stride0;
    for (std::size_t d = counts.size(); d-- > 0; stride0 *= extents0[d], stride1 *= extents1[d]) {
        auto const run = static_cast<std::int64_t>(runBytes);
        if (depth == 0 && stride0 == run && stride1 == run)
            runBytes *= static_cast<std::size_t>(counts[d]);
        else if (depth > 0 && stride0 == loops[depth - 1].count * loops[depth - 1].strides[0] &&
                 stride1 == loops[depth - 1].count * loops[depth - 1].strides[1])
            loops[depth - 1].count *= counts[d];
        else if (counts[d] > 1)
            loops[depth++] = {counts[d], {stride0, stride1}};
    }
}

std::int64_t StridedRuns::NumRuns() const noexcept
{
    std::int64_t runs = 1;
    for (std::size_t l = 0; l < depth; ++l)
        runs *= loops[l].count;
    return runs;
}

std::int64_t StridedRuns::Span(int side) const noexcept
{
    auto bytes = static_cast<std::int64_t>(runBytes);
    for (std::size_t l = 0; l < depth; ++l)
        bytes += (loops[l].count - 1) * loops[l].strides[side];
    return bytes;
}

StridedRuns StridedRuns::Repeating(int side) const noexcept
{
    StridedRuns result = *this;
    for (std::size_t l = 0; l < depth; ++l)
        result.loops[l].strides[side] = 0;
    return result;
}

namespace
{

constexpr std::size_t kLine = 64;

void Fetch(std::byte const* memory, std::size_t bytes) noexcept
{
    for (std::size_t i = 0; i < bytes; i += kLine)
        __builtin_prefetch(memory + i, 0, 2); // the second level: the first is too small for what is on its way
}

// In pieces, so that no more is asked for at once than the processor keeps track of. Of 256 to 4096 bytes this was the fastest, 1.7 times
// a memcpy a run where runs are 4 KiB long, on a Zen 4.
void CopyRun(std::byte* to, std::byte const* from, std::size_t bytes, Upcoming const& next) noexcept
{
    constexpr std::size_t kPiece = 2048;
    for (std::size_t i = 0; i < bytes; i += kPiece) {
        std::size_t const piece = std::min(bytes - i, kPiece);
        if (i < next.bytes)
            Fetch(next.first + i, std::min(next.bytes - i, piece));
        std::memcpy(to + i, from + i, piece);
    }
}

// Single values: the compiler makes loads and stores of them.
template<std::size_t bytes>
void CopyValues(std::byte* to, std::int64_t toStride, std::byte const* from, std::int64_t fromStride, std::byte const* apart,
                std::int64_t apartStride, std::int64_t count) noexcept
{
    constexpr std::int64_t kAhead = 16;
    for (std::int64_t i = 0; i < count; ++i) {
        __builtin_prefetch(apart + std::min(i + kAhead, count - 1) * apartStride);
        std::memcpy(to + i * toStride, from + i * fromStride, bytes);
    }
}

template<int toSide>
void Copy(StridedRuns const& runs, std::byte* to, std::byte const* from, Upcoming const& upcoming) noexcept
{
    if (runs.IsOneRun())
        return CopyRun(to, from, runs.runBytes, upcoming);
    StridedRuns::Loop const inner = runs.loops[0];
    std::int64_t const toStride = inner.strides[toSide], fromStride = inner.strides[1 - toSide];
    runs.ForEachInnerLoop([&](std::int64_t offset0, std::int64_t offset1, bool isLast) {
        std::byte* const target = to + (toSide == 0 ? offset0 : offset1);
        std::byte const* const source = from + (toSide == 0 ? offset1 : offset0);
        std::byte const* const apart = toSide == 0 ? target : source;
        switch (runs.runBytes) {
        case 1:
            return CopyValues<1>(target, toStride, source, fromStride, apart, inner.strides[0], inner.count);
        case 4:
            return CopyValues<4>(target, toStride, source, fromStride, apart, inner.strides[0], inner.count);
        case 8:
            return CopyValues<8>(target, toStride, source, fromStride, apart, inner.strides[0], inner.count);
        default:
            break;
        }
        for (std::int64_t i = 0; i + 1 < inner.count; ++i)
            CopyRun(target + i * toStride, source + i * fromStride, runs.runBytes, {apart + (i + 1) * inner.strides[0], runs.runBytes});
        std::int64_t const last = inner.count - 1;
        CopyRun(target + last * toStride, source + last * fromStride, runs.runBytes, isLast ? upcoming : Upcoming());
    });
}

} // namespace

void CopyToFirst(StridedRuns const& runs, std::byte* array0, std::byte const* array1, Upcoming const& upcoming) noexcept
{
    Copy<0>(runs, array0, array1, upcoming);
}

void CopyToSecond(StridedRuns const& runs, std::byte const* array0, std::byte* array1, Upcoming const& upcoming) noexcept
{
    Copy<1>(runs, array1, array0, upcoming);
}

void CopyPastCache(std::byte* to, std::byte const* from, std::size_t bytes) noexcept
{
#ifdef __SSE2__
    if (!KVOBasProcessor::This().choices.copiesPastCache) {
        std::memcpy(to, from, bytes);
        return;
    }
    std::size_t const head = std::min(bytes, static_cast<std::size_t>(-reinterpret_cast<std::uintptr_t>(to) & (kLine - 1)));
    std::memcpy(to, from, head);
    std::size_t i = head;
    for (; bytes - i >= kLine; i += kLine) // whole lines, so that each leaves its write buffer full
        for (std::size_t k = 0; k < kLine; k += sizeof(__m128i))
            _mm_stream_si128(reinterpret_cast<__m128i*>(to + i + k), _mm_loadu_si128(reinterpret_cast<__m128i const*>(from + i + k)));
    _mm_sfence();
    std::memcpy(to + i, from + i, bytes - i);
#else
    std::memcpy(to, from, bytes);
#endif
}

} // namespace simdb
