#pragma once

#include "KVOSrvBlockCut.h"

#include <algorithm>
#include <cstdint>

/// Walks over a whole matrix by pieces: its blocks, some of them or parts of one.
namespace DensePieces
{

/// Rows r0 to r1 of columns c0 to c1, all inclusive.
struct Window {
    int r0, r1, c0, c1;

    constexpr int Rows() const noexcept { return r1 - r0 + 1; }
    constexpr int Columns() const noexcept { return c1 - c0 + 1; }
    constexpr std::int64_t Entries() const noexcept { return std::int64_t{Rows()} * Columns(); }
};

/// The greatest number of rows and columns of a piece. A block that is larger is cut evenly, as far as that goes.
struct Limit {
    int rows, columns;
};

/// A limit for pieces of at most `entries` entries: whole blocks, whole columns of blocks, or parts of one column, so that a piece is
/// contiguous in the store.
inline Limit LimitEntries(KVOSrvBlockCut const& rows, std::int64_t entries)
{
    auto const blockRows = static_cast<std::int64_t>(std::max(1, rows.MaxNumberInBlock()));
    auto const most = [](std::int64_t count) { return static_cast<int>(std::clamp<std::int64_t>(count, 1, INT32_MAX)); };
    return {most(std::min(blockRows, entries)), most(entries / blockRows)};
}

/// Calls run(first, last) for the parts of first to last: as few as `limit` allows, of even sizes, in order.
template<class Run>
void ForEachPart(int first, int last, int limit, Run const& run)
{
    std::int64_t const size = last - first + 1, parts = (size + limit - 1) / limit;
    auto const border = [=](std::int64_t part) { return first + static_cast<int>(size * part / parts); };
    for (std::int64_t part = 0; part < parts; ++part)
        run(border(part), border(part + 1) - 1);
}

/// Calls run(Window) for pieces that together cover rows x columns: block columns outer, block rows inner, in increasing order.
template<class Run>
void ForEachPiece(KVOSrvBlockCut const& rows, KVOSrvBlockCut const& columns, Limit const& limit, Run const& run)
{
    for (int bc = 0; bc < columns.blocks; ++bc)
        for (int br = 0; br < rows.blocks; ++br) {
            int const firstRow = rows.FirstInBlock(br), lastRow = firstRow + rows.NumberInBlock(br) - 1;
            int const firstColumn = columns.FirstInBlock(bc), lastColumn = firstColumn + columns.NumberInBlock(bc) - 1;
            ForEachPart(firstColumn, lastColumn, limit.columns, [&](int c0, int c1) {
                ForEachPart(firstRow, lastRow, limit.rows, [&](int r0, int r1) { run(Window{r0, r1, c0, c1}); });
            });
        }
}

} // namespace DensePieces
