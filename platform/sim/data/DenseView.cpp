#include "DenseView.h"

#include "mem_Allocator.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace simdb
{

namespace
{

// Calls move(ranges, places) for every combination of one run of each dimension, the last dimension varying fastest.
template<class Move>
void ForEachBlock(DenseView const& view, Move const& move)
{
    std::size_t const rank = view.runs.size();
    std::vector<std::size_t> at(rank, 0);
    std::vector<Range> ranges(rank);
    std::vector<std::int64_t> places(rank);
    for (;;) {
        for (std::size_t d = 0; d < rank; ++d) {
            ranges[d] = view.runs[d][at[d]].range;
            places[d] = view.runs[d][at[d]].at;
        }
        move(ranges, places);
        std::size_t d = rank;
        while (d > 0 && ++at[d - 1] == view.runs[d - 1].size())
            at[--d] = 0;
        if (d == 0)
            return;
    }
}

// Copies between the packed values of a block and their places in the view's buffer, row by row along the last dimension.
template<class Copy>
void ForEachRow(DenseView const& view, std::vector<Range> const& ranges, std::vector<std::int64_t> const& places, Copy const& copy)
{
    std::size_t const last = ranges.size() - 1;
    std::vector<std::int64_t> at(ranges.size(), 0);
    std::int64_t const rowLength = ranges[last].Count();
    for (std::int64_t packed = 0;; packed += rowLength) {
        std::int64_t place = 0;
        for (std::size_t d = 0; d <= last; ++d)
            place = place * view.ranges[d].Count() + places[d] + at[d];
        copy(packed, place, rowLength);
        std::size_t d = last;
        while (d > 0 && ++at[d - 1] == ranges[d - 1].Count())
            at[--d] = 0;
        if (d == 0)
            return;
    }
}

std::unique_ptr<std::byte, mem_Deleter> BlockBuffer(DenseView const& view, std::size_t valueBytes)
{
    std::int64_t count = 1; // no more than the view's, which was checked
    for (auto const& runs : view.runs)
        count *= std::max_element(runs.begin(), runs.end(), [](Run const& a, Run const& b) {
                     return a.range.Count() < b.range.Count();
                 })->range.Count();
    return std::unique_ptr<std::byte, mem_Deleter>(static_cast<std::byte*>(mem_OperatorNewThrow(mem_ArrayBytes(count, valueBytes))));
}

} // namespace

std::vector<Run> FindRuns(std::span<std::int64_t const> positions)
{
    std::vector<Run> runs;
    for (std::size_t i = 0; i < positions.size(); ++i)
        if (!runs.empty() && positions[i] == runs.back().range.last + 1)
            ++runs.back().range.last;
        else
            runs.push_back({static_cast<std::int64_t>(i), {positions[i], positions[i]}});
    return runs;
}

void ReadRuns(DenseDrawer& drawer, DenseView const& view, std::size_t valueBytes, void* buffer, DenseDrawer::Way const& way)
{
    auto const block = BlockBuffer(view, valueBytes);
    std::byte* const target = static_cast<std::byte*>(buffer);
    ForEachBlock(view, [&](std::vector<Range> const& ranges, std::vector<std::int64_t> const& places) {
        drawer.Read(ranges, block.get(), way);
        ForEachRow(view, ranges, places, [&](std::int64_t packed, std::int64_t place, std::int64_t count) {
            std::memcpy(target + static_cast<std::size_t>(place) * valueBytes, block.get() + static_cast<std::size_t>(packed) * valueBytes,
                        static_cast<std::size_t>(count) * valueBytes);
        });
    });
}

void WriteRuns(DenseDrawer& drawer, DenseView const& view, std::size_t valueBytes, void const* buffer, DenseDrawer::Way const& way)
{
    auto const block = BlockBuffer(view, valueBytes);
    std::byte const* const source = static_cast<std::byte const*>(buffer);
    ForEachBlock(view, [&](std::vector<Range> const& ranges, std::vector<std::int64_t> const& places) {
        ForEachRow(view, ranges, places, [&](std::int64_t packed, std::int64_t place, std::int64_t count) {
            std::memcpy(block.get() + static_cast<std::size_t>(packed) * valueBytes, source + static_cast<std::size_t>(place) * valueBytes,
                        static_cast<std::size_t>(count) * valueBytes);
        });
        drawer.Write(ranges, block.get(), way);
    });
}

} // namespace simdb
