#include "SparseRestructuring.h"

#include "KVOSrvMtxExceptions.h"
#include "SparseRowSorter.h"
#include "sparse_parts.h"
#include "tasks.h"

#include <algorithm>
#include <utility>

namespace KVOSrvSparseSupport
{

namespace
{

// inverse[perm[k]] = k. @throws KVOSrvMtxIllegalPermVect unless perm holds 0 ... n - 1 in some order
Array<int> Inverse(int const* perm, int n)
{
    auto inverse = AllocateArray<int>(n);
    std::fill_n(inverse.get(), n, -1);
    for (int k = 0; k < n; ++k) {
        if (perm[k] < 0 || perm[k] >= n || inverse[perm[k]] != -1)
            KVOSrvMtxIllegalPermVect().Throw(kSource, __LINE__);
        inverse[perm[k]] = k;
    }
    return inverse;
}

// For a row that repeats columns, as some files have them: entries of equal column keep their order.
void RenumberWithRepeats(int const* columns, double const* values, unsigned count, int const* newNumber, int* sortedColumns,
                         double* sortedValues)
{
    auto const entries = AllocateArray<KVOSrvSparseMatrixEntry>(count);
    for (unsigned k = 0; k < count; ++k)
        entries[k] = {k, static_cast<unsigned>(newNumber[columns[k]]), values[k]};
    SortByColumn(entries.get(), count);
    for (unsigned k = 0; k < count; ++k) {
        sortedColumns[k] = static_cast<int>(entries[k].column);
        sortedValues[k] = entries[k].value;
    }
}

// An array over the columns would outgrow the entries.
bool IsWide(KVOSrvSparseRows const& rows)
{
    return rows.columns / 2 > rows.entries;
}

// Into how many parts of rows, each with a number a column, a transposition is cut.
int TransposedInParts(KVOSrvSparseRows const& rows)
{
    constexpr int kLeastEntries = 1 << 16;
    return std::min({blac::ThreadsForTasks(), blac::PiecesFor(rows.entries, kLeastEntries), rows.entries / std::max(rows.columns, 1) + 1});
}

std::unique_ptr<unsigned[]> SortedColumns(KVOSrvSparseRows const& rows, int& count)
{
    auto list = AllocateList<unsigned>(rows.entries);
    std::copy_n(rows.columnIndices, rows.entries, list.get());
    std::sort(list.get(), list.get() + rows.entries);
    count = static_cast<int>(std::unique(list.get(), list.get() + rows.entries) - list.get());
    return list;
}

// The same. The list lies in the array of marks: no column is listed behind its mark.
std::unique_ptr<unsigned[]> MarkedColumns(KVOSrvSparseRows const& rows, int& count)
{
    auto list = AllocateList<unsigned>(rows.columns);
    std::fill_n(list.get(), rows.columns, 0);
    std::for_each_n(rows.columnIndices, rows.entries, [&](int column) { list[column] = 1; });
    int found = 0;
    for (int column = 0; column < rows.columns; ++column)
        if (list[column] != 0)
            list[found++] = static_cast<unsigned>(column);
    count = found;
    return list;
}

Array<double> CopyOfDiagonal(HalfRows const& rows)
{
    auto diagonal = AllocateArray<double>(rows.triangle.rows);
    std::copy_n(rows.diagonal.get(), rows.triangle.rows, diagonal.get());
    return diagonal;
}

} // namespace

CompressedRows TransposeOf(CompressedRows const& matrix)
{
    KVOSrvSparseRows const rows = matrix.View();
    CompressedRows result(rows.columns, rows.rows, rows.entries);
    // next[c] of a part of the rows is where its next entry of column c goes, behind those of the parts before it. That of the last part
    // is in the result: afterwards it has become the start of column c + 1.
    int const parts = TransposedInParts(rows);
    Array<unsigned> const nextOfOthers = parts > 1 ? AllocateArray<unsigned>(std::int64_t{parts - 1} * rows.columns) : nullptr;
    auto const nextOf = [&](int part) {
        return part + 1 < parts ? nextOfOthers.get() + std::int64_t{part} * rows.columns : result.rowStart.get() + 1;
    };
    auto const firstRowOf = [&](int part) { return static_cast<int>(blac::FirstRowOf(rows.rowStart, rows.rows, parts, part)); };
    result.rowStart[0] = 0;
    blac::InTasks(parts, [&](int part) {
        unsigned* const next = nextOf(part);
        std::fill_n(next, rows.columns, 0);
        unsigned const end = rows.rowStart[firstRowOf(part + 1)];
        for (unsigned k = rows.rowStart[firstRowOf(part)]; k < end; ++k)
            ++next[rows.columnIndices[k]];
    });
    unsigned begin = 0;
    for (int column = 0; column < rows.columns; ++column)
        for (int part = 0; part < parts; ++part)
            begin += std::exchange(nextOf(part)[column], begin);
    blac::InTasks(parts, [&](int part) {
        unsigned* const next = nextOf(part);
        for (int row = firstRowOf(part), end = firstRowOf(part + 1); row < end; ++row)
            for (unsigned k = rows.rowStart[row]; k < rows.rowStart[row + 1]; ++k) {
                unsigned const place = next[rows.columnIndices[k]]++;
                result.columnIndices[place] = row;
                result.values[place] = rows.values[k];
            }
    });
    return result;
}

HalfRows TransposeOf(HalfRows const& rows)
{
    return {TransposeOf(rows.triangle), CopyOfDiagonal(rows)};
}

CompressedRows PermutationOf(CompressedRows const& rows, int const* perm)
{
    Array<int> const newNumber = Inverse(perm, rows.rows);
    CompressedRows result(rows.rows, rows.columns, rows.Entries());
    SparseRowSorter sorter(rows.columns);
    sorter.Clear();
    unsigned next = 0;
    result.rowStart[0] = 0;
    for (int row = 0; row < rows.rows; ++row) {
        unsigned const begin = rows.rowStart[perm[row]], count = rows.rowStart[perm[row] + 1] - begin;
        int const* const columns = rows.columnIndices.get() + begin;
        double const* const values = rows.values.get() + begin;
        int* const target = result.columnIndices.get() + next;
        double* const targetValues = result.values.get() + next;
        if (sorter.Renumber(columns, values, count, newNumber.get(), target, targetValues) != count)
            RenumberWithRepeats(columns, values, count, newNumber.get(), target, targetValues);
        next += count;
        result.rowStart[row + 1] = next;
    }
    return result;
}

HalfRows PermutationOf(HalfRows const& rows, int const* perm)
{
    HalfRows result{PermutationOf(rows.triangle, perm), CopyOfDiagonal(rows)};
    for (int row = 0; row < rows.triangle.rows; ++row)
        result.diagonal[row] = rows.diagonal[perm[row]];
    return result;
}

CompressedRows RowPermutationOf(CompressedRows const& rows, int const* perm)
{
    Array<int> const oldRow = Inverse(perm, rows.rows);
    CompressedRows result(rows.rows, rows.columns, rows.Entries());
    unsigned next = 0;
    result.rowStart[0] = 0;
    for (int row = 0; row < rows.rows; ++row) {
        unsigned const begin = rows.rowStart[oldRow[row]], count = rows.rowStart[oldRow[row] + 1] - begin;
        std::copy_n(rows.columnIndices.get() + begin, count, result.columnIndices.get() + next);
        std::copy_n(rows.values.get() + begin, count, result.values.get() + next);
        next += count;
        result.rowStart[row + 1] = next;
    }
    return result;
}

std::unique_ptr<unsigned[]> RowsWithEntries(KVOSrvSparseRows const& rows, int& count)
{
    auto list = AllocateList<unsigned>(std::min(rows.rows, rows.entries));
    int found = 0;
    for (int row = 0; row < rows.rows; ++row)
        if (rows.rowStart[row + 1] > rows.rowStart[row])
            list[found++] = static_cast<unsigned>(row);
    count = found;
    return list;
}

std::unique_ptr<unsigned[]> ColumnsWithEntries(KVOSrvSparseRows const& rows, int& count)
{
    return IsWide(rows) ? SortedColumns(rows, count) : MarkedColumns(rows, count);
}

void KeepColumns(CompressedRows& rows, unsigned const* list, int count)
{
    if (IsWide(rows.View())) {
        std::for_each_n(rows.columnIndices.get(), rows.Entries(), [&](int& column) {
            column = static_cast<int>(std::lower_bound(list, list + count, static_cast<unsigned>(column)) - list);
        });
    } else {
        auto const newNumber = AllocateArray<int>(rows.columns);
        for (int column = 0; column < count; ++column)
            newNumber[list[column]] = column;
        std::for_each_n(rows.columnIndices.get(), rows.Entries(), [&](int& column) { column = newNumber[column]; });
    }
    rows.columns = count;
    rows.pattern = NewPattern();
}

void ZeroColumns(CompressedRows& rows, int const* columns, int n)
{
    auto const marks = AllocateArray<char>(rows.columns);
    std::fill_n(marks.get(), rows.columns, 0);
    std::for_each_n(columns, n, [&](int column) { marks[column] = 1; });
    int const entries = rows.Entries();
    for (int k = 0; k < entries; ++k)
        if (marks[rows.columnIndices[k]] != 0)
            rows.values[k] = 0;
}

} // namespace KVOSrvSparseSupport
