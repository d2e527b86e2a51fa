#include "SparseSymmetry.h"

#include "SparseRowBuilder.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace KVOSrvSparseSupport
{

namespace
{

// Entries to the right of the diagonal minus those to the left of it.
std::int64_t UpperMinusLower(KVOSrvSparseRows const& rows)
{
    std::int64_t difference = 0;
    for (int row = 0; row < rows.rows; ++row)
        for (unsigned k = rows.rowStart[row]; k < rows.rowStart[row + 1]; ++k)
            difference += (rows.columnIndices[k] > row) - (rows.columnIndices[k] < row);
    return difference;
}

// Deliberate: 1e-16 is below half the distance of neighbouring numbers, so values that differ at all fail, and a NaN, which is not
// greater than anything, passes.
bool Differ(double a, double b)
{
    return std::abs((a - b) * (a == 0 ? 1.0 : 1.0 / a)) > 1e-16;
}

// Every entry left of the diagonal has its like at the mirrored place. The rows ask for their mirrored places in ascending order, so one
// pass through each row finds them all.
bool MirrorsAgree(KVOSrvSparseRows const& rows)
{
    auto const next = AllocateArray<unsigned>(rows.rows);
    std::copy_n(rows.rowStart, rows.rows, next.get());
    for (int row = 0; row < rows.rows; ++row)
        for (unsigned k = rows.rowStart[row]; k < rows.rowStart[row + 1]; ++k) {
            int const column = rows.columnIndices[k];
            if (column >= row)
                continue;
            unsigned& mirror = next[column];
            unsigned const end = rows.rowStart[column + 1];
            while (mirror < end && rows.columnIndices[mirror] < row)
                ++mirror;
            if (mirror == end || rows.columnIndices[mirror] != row || Differ(rows.values[mirror], rows.values[k]))
                return false;
        }
    return true;
}

// Of rows with one triangle, whose columns ascend: from the top down, an entry and its mirror image come behind all that their rows have
// already.
CompressedRows Mirrored(KVOSrvSparseRows const& half)
{
    CompressedRows full(half.rows, half.rows, CountInFull(half));
    std::fill_n(full.rowStart.get(), std::int64_t{half.rows} + 1, 0U);
    unsigned* const count = full.rowStart.get() + 1;
    for (int row = 0; row < half.rows; ++row) {
        count[row] += half.rowStart[row + 1] - half.rowStart[row] + 1;
        for (unsigned k = half.rowStart[row]; k < half.rowStart[row + 1]; ++k)
            ++count[half.columnIndices[k]];
    }
    // Afterwards the start of each row has become that of the next one.
    unsigned* const next = count;
    unsigned begin = 0;
    for (int row = 0; row < half.rows; ++row)
        begin += std::exchange(next[row], begin);
    auto const append = [&](int row, int column, double value) {
        unsigned const place = next[row]++;
        full.columnIndices[place] = column;
        full.values[place] = value;
    };
    for (int row = 0; row < half.rows; ++row) {
        unsigned k = half.rowStart[row];
        unsigned const end = half.rowStart[row + 1];
        bool const above = k < end && half.columnIndices[k] > row;
        if (above)
            append(row, row, half.diagonal[row]);
        for (; k < end; ++k) {
            append(row, half.columnIndices[k], half.values[k]);
            append(half.columnIndices[k], row, half.values[k]);
        }
        if (!above)
            append(row, row, half.diagonal[row]);
    }
    return full;
}

} // namespace

bool EntriesAreSymmetric(KVOSrvSparseRows const& rows)
{
    return UpperMinusLower(rows) == 0 && MirrorsAgree(rows);
}

HalfRows UpperHalf(CompressedRows const& matrix)
{
    KVOSrvSparseRows const rows = matrix.View();
    std::int64_t entries = 0;
    for (int row = 0; row < rows.rows; ++row)
        for (unsigned k = rows.rowStart[row]; k < rows.rowStart[row + 1]; ++k)
            entries += rows.columnIndices[k] > row;
    HalfRows half{CompressedRows(rows.rows, rows.rows, entries), AllocateArray<double>(rows.rows)};
    unsigned next = 0;
    for (int row = 0; row < rows.rows; ++row) {
        half.triangle.rowStart[row] = next;
        half.diagonal[row] = 0.0;
        for (unsigned k = rows.rowStart[row]; k < rows.rowStart[row + 1]; ++k)
            if (int const column = rows.columnIndices[k]; column > row) {
                half.triangle.columnIndices[next] = column;
                half.triangle.values[next++] = rows.values[k];
            } else if (column == row) {
                half.diagonal[row] = rows.values[k];
            }
    }
    half.triangle.rowStart[rows.rows] = next;
    return half;
}

CompressedRows InFull(HalfRows const& half)
{
    KVOSrvSparseRows const rows = half.View();
    if (ColumnsAscend(rows) && LieInOneTriangle(rows))
        return Mirrored(rows);
    std::int64_t const count = CountInFull(rows);
    auto const list = AllocateArray<KVOSrvSparseMatrixEntry>(count);
    ListInFull(rows, list.get());
    SparseRowBuilder::Entries const entries(list.get(), static_cast<std::size_t>(count));
    return BuildRows({&entries, 1}, rows.rows, rows.rows);
}

} // namespace KVOSrvSparseSupport
