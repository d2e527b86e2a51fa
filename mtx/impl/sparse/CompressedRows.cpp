#include "CompressedRows.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <utility>

namespace KVOSrvSparseSupport
{

std::uint64_t NewPattern() noexcept
{
    static std::atomic<std::uint64_t> s_last = 0;
    return ++s_last;
}

CompressedRows::CompressedRows(int rowCount, int columnCount, std::int64_t entries)
    : CompressedRows(rowCount, columnCount, AllocateArray<unsigned>(std::int64_t{rowCount} + 1), AllocateArray<int>(entries),
                     AllocateArray<double>(entries))
{
}

CompressedRows::CompressedRows(int rowCount, int columnCount, Array<unsigned> starts, Array<int> indices, Array<double> numbers) noexcept
    : rows(rowCount), columns(columnCount), rowStart(std::move(starts)), columnIndices(std::move(indices)), values(std::move(numbers))
{
}

KVOSrvSparseRows CompressedRows::View() const noexcept
{
    return {rows, columns, Entries(), rowStart.get(), columnIndices.get(), values.get(), nullptr};
}

KVOSrvSparseRows HalfRows::View() const noexcept
{
    KVOSrvSparseRows view = triangle.View();
    view.diagonal = diagonal.get();
    return view;
}

CompressedRows WithoutEntries(int rows, int columns)
{
    CompressedRows empty(rows, columns, 0);
    std::fill_n(empty.rowStart.get(), std::int64_t{rows} + 1, 0U);
    return empty;
}

CompressedRows CopyOf(CompressedRows const& rows)
{
    CompressedRows copy(rows.rows, rows.columns, rows.Entries());
    std::copy_n(rows.rowStart.get(), std::int64_t{rows.rows} + 1, copy.rowStart.get());
    std::copy_n(rows.columnIndices.get(), rows.Entries(), copy.columnIndices.get());
    std::copy_n(rows.values.get(), rows.Entries(), copy.values.get());
    copy.pattern = rows.pattern;
    return copy;
}

HalfRows CopyOf(HalfRows const& rows)
{
    HalfRows copy{CopyOf(rows.triangle), AllocateArray<double>(rows.triangle.rows)};
    std::copy_n(rows.diagonal.get(), rows.triangle.rows, copy.diagonal.get());
    return copy;
}

bool StartsAscend(unsigned const* rowStart, int rows) noexcept
{
    return rowStart[0] == 0 && std::is_sorted(rowStart, rowStart + rows + 1) && rowStart[rows] <= INT_MAX;
}

bool ColumnsAscend(KVOSrvSparseRows const& rows) noexcept
{
    // The sign bit of one of the differences tells; without a comparison the loop is vectorised.
    unsigned bits = 0;
    for (std::int64_t i = 0; i < rows.rows; ++i)
        for (std::int64_t k = rows.rowStart[i]; k + 1 < rows.rowStart[i + 1]; ++k)
            bits |= static_cast<unsigned>(rows.columnIndices[k + 1]) - static_cast<unsigned>(rows.columnIndices[k]) - 1;
    return bits <= INT_MAX;
}

bool LieInOneTriangle(KVOSrvSparseRows const& rows) noexcept
{
    bool above = true, below = true;
    for (int row = 0; row < rows.rows; ++row) {
        unsigned const begin = rows.rowStart[row], end = rows.rowStart[row + 1];
        if (begin == end)
            continue;
        above &= rows.columnIndices[begin] > row;
        below &= rows.columnIndices[end - 1] < row;
    }
    return above || below;
}

std::int64_t CountInFull(KVOSrvSparseRows const& rows) noexcept
{
    return rows.diagonal != nullptr ? rows.rows + 2 * std::int64_t{rows.entries} : rows.entries;
}

void ListInFull(KVOSrvSparseRows const& rows, KVOSrvSparseMatrixEntry* list) noexcept
{
    for (unsigned row = 0; row < static_cast<unsigned>(rows.rows); ++row) {
        if (rows.diagonal != nullptr)
            *list++ = {row, row, rows.diagonal[row]};
        for (unsigned k = rows.rowStart[row]; k < rows.rowStart[row + 1]; ++k) {
            auto const column = static_cast<unsigned>(rows.columnIndices[k]);
            if (rows.diagonal != nullptr)
                *list++ = {column, row, rows.values[k]};
            *list++ = {row, column, rows.values[k]};
        }
    }
}

} // namespace KVOSrvSparseSupport
