#include "KVOSrvSparseMatrix.h"

#include "SparseRowSorter.h"
#include "SparseRows.h"
#include "sparse_parts.h"
#include "tasks.h"

#include <algorithm>
#include <utility>

using namespace KVOSrvSparseSupport;

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

SparseRows AllocateRows(int rows, int entries)
{
    return {AllocateArray<unsigned>(std::int64_t{rows} + 1), AllocateArray<int>(entries), AllocateArray<double>(entries)};
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
bool IsWide(int columns, int entries)
{
    return columns / 2 > entries;
}

// Into how many parts of rows, each with a number a column, a transposition is cut.
int TransposedInParts(int entries, int columns)
{
    constexpr int kLeastEntries = 1 << 16;
    return std::min({blac::ThreadsForTasks(), blac::PiecesFor(entries, kLeastEntries), entries / std::max(columns, 1) + 1});
}

// The columns that occur, ascending.
std::unique_ptr<unsigned[]> SortedColumns(int const* columns, int entries, int& count)
{
    auto list = AllocateList<unsigned>(entries);
    std::copy_n(columns, entries, list.get());
    std::sort(list.get(), list.get() + entries);
    count = static_cast<int>(std::unique(list.get(), list.get() + entries) - list.get());
    return list;
}

// The same. The list lies in the array of marks: no column is listed behind its mark.
std::unique_ptr<unsigned[]> MarkedColumns(int const* columns, int entries, int columnCount, int& count)
{
    auto list = AllocateList<unsigned>(columnCount);
    std::fill_n(list.get(), columnCount, 0);
    std::for_each_n(columns, entries, [&](int column) { list[column] = 1; });
    int found = 0;
    for (int column = 0; column < columnCount; ++column)
        if (list[column] != 0)
            list[found++] = static_cast<unsigned>(column);
    count = found;
    return list;
}

} // namespace

KVOSrvSparseMatrix* KVOSrvSparseMatrix::Transpose() const
{
    RequireAssembled("Transpose");
    int const entries = StoredEntries();
    SparseRows rows = AllocateRows(m_columnCount, entries);
    // next[c] of a part of the rows is where its next entry of column c goes, behind those of the parts before it. That of the last part
    // is in the result: afterwards it has become the start of column c + 1.
    int const parts = TransposedInParts(entries, m_columnCount);
    Array<unsigned> const nextOfOthers = parts > 1 ? AllocateArray<unsigned>(std::int64_t{parts - 1} * m_columnCount) : nullptr;
    auto const nextOf = [&](int part) {
        return part + 1 < parts ? nextOfOthers.get() + std::int64_t{part} * m_columnCount : rows.rowStart.get() + 1;
    };
    auto const firstRowOf = [&](int part) {
        return entries > 0 ? static_cast<int>(blac::FirstRowOf(m_rowStart.get(), m_rowCount, parts, part)) : 0;
    };
    rows.rowStart[0] = 0;
    blac::InTasks(parts, [&](int part) {
        unsigned* const next = nextOf(part);
        std::fill_n(next, m_columnCount, 0);
        unsigned const end = entries > 0 ? m_rowStart[firstRowOf(part + 1)] : 0;
        for (unsigned k = entries > 0 ? m_rowStart[firstRowOf(part)] : 0; k < end; ++k)
            ++next[m_columnIndices[k]];
    });
    unsigned begin = 0;
    for (int column = 0; column < m_columnCount; ++column)
        for (int part = 0; part < parts; ++part)
            begin += std::exchange(nextOf(part)[column], begin);
    blac::InTasks(parts, [&](int part) {
        unsigned* const next = nextOf(part);
        for (int row = firstRowOf(part), end = firstRowOf(part + 1); row < end; ++row)
            for (unsigned k = m_rowStart[row]; k < m_rowStart[row + 1]; ++k) {
                unsigned const place = next[m_columnIndices[k]]++;
                rows.columnIndices[place] = row;
                rows.values[place] = m_values[k];
            }
    });
    return NewMatrix(rows, HoldsDiagonal() ? CopyOfDiagonal(nullptr) : nullptr, m_columnCount, m_rowCount);
}

// The diagonal, permuted unless `perm` is null.
KVOSrvSparseMatrix::Array<double> KVOSrvSparseMatrix::CopyOfDiagonal(int const* perm) const
{
    auto diagonal = AllocateArray<double>(m_rowCount);
    for (int row = 0; row < m_rowCount; ++row)
        diagonal[row] = m_diagonal[perm != nullptr ? perm[row] : row];
    return diagonal;
}

KVOSrvSparseMatrix* KVOSrvSparseMatrix::NewMatrix(SparseRows& rows, Array<double> diagonal, int rowCount, int columnCount) const
{
    auto* const matrix = new KVOSrvSparseMatrix(rows.rowStart.get(), rows.columnIndices.get(), rows.values.get(), diagonal.get(),
                                                m_rowStart != nullptr ? m_nonzeroCount : 0, rowCount, columnCount);
    // Owned twice up to here, so that a failing `new` leaves them with one owner.
    static_cast<void>(rows.rowStart.release());
    static_cast<void>(rows.columnIndices.release());
    static_cast<void>(rows.values.release());
    static_cast<void>(diagonal.release());
    return matrix;
}

SparseRows KVOSrvSparseMatrix::PermutedRows(int const* perm, char const* operation) const
{
    RequireAssembled(operation);
    Require(m_rowCount == m_columnCount, operation, "the matrix is not square");
    Array<int> const newNumber = Inverse(perm, m_rowCount);
    SparseRows rows = AllocateRows(m_rowCount, StoredEntries());
    SparseRowSorter sorter(m_columnCount);
    sorter.Clear();
    unsigned next = 0;
    rows.rowStart[0] = 0;
    for (int row = 0; row < m_rowCount; ++row) {
        unsigned const begin = m_rowStart != nullptr ? m_rowStart[perm[row]] : 0;
        unsigned const count = m_rowStart != nullptr ? m_rowStart[perm[row] + 1] - begin : 0;
        int const* const columns = m_columnIndices.get() + begin;
        double const* const values = m_values.get() + begin;
        int* const target = rows.columnIndices.get() + next;
        double* const targetValues = rows.values.get() + next;
        if (sorter.Renumber(columns, values, count, newNumber.get(), target, targetValues) != count)
            RenumberWithRepeats(columns, values, count, newNumber.get(), target, targetValues);
        next += count;
        rows.rowStart[row + 1] = next;
    }
    return rows;
}

KVOSrvSparseMatrix* KVOSrvSparseMatrix::Permute(int const* perm) const
{
    SparseRows rows = PermutedRows(perm, "Permute");
    return NewMatrix(rows, HoldsDiagonal() ? CopyOfDiagonal(perm) : nullptr, m_rowCount, m_columnCount);
}

void KVOSrvSparseMatrix::PermuteInPlace(int const* perm)
{
    SparseRows rows = PermutedRows(perm, "PermuteInPlace");
    if (m_rowStart == nullptr)
        return;
    if (IsHalfStored())
        m_diagonal = CopyOfDiagonal(perm);
    else
        m_symmetryState = 0;
    ReplaceRows(rows);
}

void KVOSrvSparseMatrix::PermuteRows(int const* perm)
{
    RequireAssembled("PermuteRows");
    if (IsHalfStored())
        KVOSrvMtxNoSymmetricTrue("PermuteRows").Throw(kSource, __LINE__);
    Array<int> const oldRow = Inverse(perm, m_rowCount);
    if (m_rowStart == nullptr)
        return;
    SparseRows rows = AllocateRows(m_rowCount, StoredEntries());
    unsigned next = 0;
    rows.rowStart[0] = 0;
    for (int row = 0; row < m_rowCount; ++row) {
        unsigned const begin = m_rowStart[oldRow[row]], count = m_rowStart[oldRow[row] + 1] - begin;
        std::copy_n(m_columnIndices.get() + begin, count, rows.columnIndices.get() + next);
        std::copy_n(m_values.get() + begin, count, rows.values.get() + next);
        next += count;
        rows.rowStart[row + 1] = next;
    }
    m_symmetryState = 0;
    ReplaceRows(rows);
}

void KVOSrvSparseMatrix::ReplaceRows(SparseRows& rows) noexcept
{
    m_rowStart = std::move(rows.rowStart);
    m_columnIndices = std::move(rows.columnIndices);
    m_values = std::move(rows.values);
}

unsigned* KVOSrvSparseMatrix::FindNontrivialRows(int& count) const
{
    RequireAssembled("FindNontrivialRows");
    auto list = AllocateList<unsigned>(std::min(m_rowCount, StoredEntries()));
    int found = 0;
    for (int row = 0; m_rowStart != nullptr && row < m_rowCount; ++row)
        if (m_rowStart[row + 1] > m_rowStart[row])
            list[found++] = static_cast<unsigned>(row);
    count = found;
    return list.release();
}

unsigned* KVOSrvSparseMatrix::FindNontrivialColumns(int& count) const
{
    RequireAssembled("FindNontrivialColumns");
    int const entries = StoredEntries();
    return (IsWide(m_columnCount, entries) ? SortedColumns(m_columnIndices.get(), entries, count)
                                           : MarkedColumns(m_columnIndices.get(), entries, m_columnCount, count))
        .release();
}

unsigned* KVOSrvSparseMatrix::EliminateTrivialColumns(int& count)
{
    RequireAssembled("EliminateTrivialColumns");
    if (IsHalfStored())
        KVOSrvMtxNoSymmetricTrue("EliminateTrivialColumns").Throw(kSource, __LINE__);
    int const entries = StoredEntries();
    int kept = 0;
    std::unique_ptr<unsigned[]> list(FindNontrivialColumns(kept));
    if (IsWide(m_columnCount, entries)) {
        std::for_each_n(m_columnIndices.get(), entries, [&](int& column) {
            column = static_cast<int>(std::lower_bound(list.get(), list.get() + kept, static_cast<unsigned>(column)) - list.get());
        });
    } else {
        auto const newNumber = AllocateArray<int>(m_columnCount);
        for (int column = 0; column < kept; ++column)
            newNumber[list[column]] = column;
        std::for_each_n(m_columnIndices.get(), entries, [&](int& column) { column = newNumber[column]; });
    }
    m_columnCount = kept;
    count = kept; // the verdict of IsSymmetric() stays, as in SetColumnsToZero()
    return list.release();
}

void KVOSrvSparseMatrix::SetColumnsToZero(int const* columns, int n)
{
    RequireAssembled("SetColumnsToZero");
    // Deliberate: the small c of the name; it stands in reports that are searched for.
    if (IsHalfStored())
        KVOSrvMtxNoSymmetricTrue("SetcolumnsToZero").Throw(kSource, __LINE__);
    Require(n >= 0, "SetColumnsToZero", "the number of columns is negative");
    Require(std::all_of(columns, columns + n, [&](int column) { return column >= 0 && column < m_columnCount; }), "SetColumnsToZero",
            "a column lies outside the matrix");
    auto const marks = AllocateArray<char>(m_columnCount);
    std::fill_n(marks.get(), m_columnCount, 0);
    std::for_each_n(columns, n, [&](int column) { marks[column] = 1; });
    int const entries = StoredEntries();
    for (int k = 0; k < entries; ++k)
        if (marks[m_columnIndices[k]] != 0)
            m_values[k] = 0;
    // Deliberate: the verdict of IsSymmetric() stays, the structure being the same; only entries that come or move end it.
}
