#include "MatrixMarket.h"

#include "KVOSrvProductMemory.h"
#include "KVOSrvSparseMatrix.h"
#include "MatrixFiles.h"
#include "MatrixText.h"
#include "SparseRows.h"
#include "mem_Vector.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <numeric>
#include <utility>

namespace
{

// a(i, j) equals a(j, i) everywhere, an entry that is not stored being 0. A NaN equals nothing. IsSymmetric() is another question: it lets
// infinities of different sign pass, and does not know that an entry of value 0 is as good as none.
bool EqualsTranspose(KVOSrvSparseRows const& rows)
{
    if (rows.rows != rows.columns)
        return false;
    // Of each row that was passed the next entry right of the diagonal. Its mirror images come in ascending order.
    auto const next = KVOSrvSparseSupport::AllocateArray<unsigned>(rows.rows);
    // The entry of `row` in `column`, which is 0 where none is stored; null when one between it and the one before is not 0.
    auto const take = [&](int row, int column) -> double const* {
        static constexpr double kNone = 0.0;
        unsigned& k = next[row];
        unsigned const end = rows.rowStart[row + 1];
        for (; k < end && rows.columnIndices[k] < column; ++k)
            if (rows.values[k] != 0.0)
                return nullptr;
        return k < end && rows.columnIndices[k] == column ? &rows.values[k++] : &kNone;
    };
    for (int row = 0; row < rows.rows; ++row) {
        unsigned k = rows.rowStart[row];
        unsigned const end = rows.rowStart[row + 1];
        for (; k < end && rows.columnIndices[k] <= row; ++k) {
            int const column = rows.columnIndices[k];
            double const* const mirror = column < row ? take(column, row) : &rows.values[k];
            if (mirror == nullptr || !(*mirror == rows.values[k]))
                return false;
        }
        next[row] = k;
    }
    for (int row = 0; row < rows.rows; ++row)
        if (take(row, rows.columns) == nullptr)
            return false;
    return true;
}

void WriteEntry(OutputFile& file, int row, int column, double value)
{
    constexpr std::size_t kLongestLine = 64; // two integers of 11 characters, a value of 24, what separates them

    char* text = MatrixText::WriteInteger(file.Room(kLongestLine), row + 1);
    *text++ = ' ';
    text = MatrixText::WriteInteger(text, column + 1);
    *text++ = ' ';
    text = MatrixText::WriteShortest(text, value);
    *text++ = '\n';
    file.Commit(text);
}

char const* Kind(bool symmetric)
{
    return symmetric ? "coordinate real symmetric" : "coordinate real general";
}

// Calls visit(row, column, value) for what is written of half storage but for the diagonal, in no order.
template<class Visit>
void ForEachWritten(KVOSrvSparseRows const& half, bool symmetric, Visit const& visit)
{
    for (int row = 0; row < half.rows; ++row)
        for (unsigned k = half.rowStart[row]; k < half.rowStart[row + 1]; ++k) {
            int const column = half.columnIndices[k];
            visit(std::max(row, column), std::min(row, column), half.values[k]);
            if (!symmetric)
                visit(std::min(row, column), std::max(row, column), half.values[k]);
        }
}

// What Write() writes of the same matrix in full storage, for a limit of memory: as many rows at a time as fit into it.
void WriteHalfStored(KVOSrvSparseRows const& half, char const* path, std::int64_t limit)
{
    using Entry = KVOSrvSparseMatrixEntry;

    auto const isNumber = [](double value) { return value == value; };
    bool const symmetric = std::all_of(half.diagonal, half.diagonal + half.rows, isNumber) &&
                           std::all_of(half.values, half.values + half.rowStart[half.rows], isNumber);
    auto const entriesOfRow = KVOSrvSparseSupport::AllocateArray<int>(half.rows);
    std::fill_n(entriesOfRow.get(), half.rows, 1);
    ForEachWritten(half, symmetric, [&](int row, int, double) { ++entriesOfRow[row]; });

    std::int64_t const all = std::accumulate(entriesOfRow.get(), entriesOfRow.get() + half.rows, std::int64_t{0});
    OutputFile file(path, OutputFile::Existing::kTruncate, 0666);
    MatrixMarket::WriteHead(file, Kind(symmetric), {half.rows, half.rows, all});
    mem_Vector<Entry> entries;
    for (int begin = 0, end; begin < half.rows; begin = end) {
        std::int64_t count = entriesOfRow[begin];
        for (end = begin + 1; end < half.rows && (count + entriesOfRow[end]) * std::int64_t{sizeof(Entry)} <= limit / 2; ++end)
            count += entriesOfRow[end];
        entries.clear();
        entries.reserve(static_cast<std::size_t>(count));
        for (int row = begin; row < end; ++row)
            entries.push_back({static_cast<unsigned>(row), static_cast<unsigned>(row), half.diagonal[row]});
        ForEachWritten(half, symmetric, [&](int row, int column, double value) {
            if (begin <= row && row < end)
                entries.push_back({static_cast<unsigned>(row), static_cast<unsigned>(column), value});
        });
        std::sort(entries.begin(), entries.end(),
                  [](Entry const& a, Entry const& b) { return std::pair(a.row, a.column) < std::pair(b.row, b.column); });
        for (Entry const& entry : entries)
            WriteEntry(file, static_cast<int>(entry.row), static_cast<int>(entry.column), entry.value);
    }
    file.Close();
}

// How many entries of a row are written: of a symmetric matrix those up to the diagonal.
unsigned EndOfRow(KVOSrvSparseRows const& rows, int row, bool symmetric)
{
    unsigned const begin = rows.rowStart[row], end = rows.rowStart[row + 1];
    int const* const columns = rows.columnIndices;
    return symmetric ? static_cast<unsigned>(std::upper_bound(columns + begin, columns + end, row) - columns) : end;
}

} // namespace

void MatrixMarket::WriteHead(OutputFile& file, char const* kind, std::initializer_list<std::int64_t> sizes)
{
    std::string text(kMark); // appended to: g++ 12 warns of what lies within a sum of strings
    text.append(" matrix ").append(kind);
    char separator = '\n';
    for (std::int64_t const size : sizes) {
        text += separator + std::to_string(size);
        separator = ' ';
    }
    text += '\n';
    file.WriteItems(text.data(), std::ssize(text));
}

void MatrixMarket::Write(KVOSrvSparseRows const& rows, char const* path)
{
    bool const symmetric = EqualsTranspose(rows);
    std::int64_t count = 0;
    for (int row = 0; row < rows.rows; ++row)
        count += EndOfRow(rows, row, symmetric) - rows.rowStart[row];

    OutputFile file(path, OutputFile::Existing::kTruncate, 0666);
    WriteHead(file, Kind(symmetric), {rows.rows, rows.columns, count});
    for (int row = 0; row < rows.rows; ++row) {
        unsigned const end = EndOfRow(rows, row, symmetric);
        for (unsigned k = rows.rowStart[row]; k < end; ++k)
            WriteEntry(file, row, rows.columnIndices[k], rows.values[k]);
    }
    file.Close();
}

void KVOSrvSparseMatrix::ExportMatrixMarket(char const* path) const
{
    RequireAssembled("ExportMatrixMarket");
    if (!IsHalfStored())
        return MatrixMarket::Write(Rows(), path);
    if (std::int64_t const limit = KVOSrvProductMemory::Bytes(); limit > 0)
        return WriteHalfStored(Rows(), path, limit);
    std::unique_ptr<KVOSrvSparseMatrix> const full(Full());
    MatrixMarket::Write(full->Rows(), path);
}
