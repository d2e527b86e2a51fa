#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseImExPorter.h"
#include "MatrixEntryStore.h"
#include "MatrixFiles.h"
#include "SparseRowSorter.h"
#include "SparseRows.h"

#include <algorithm>
#include <climits>
#include <cmath>

using KVOSrvSparseSupport::AllocateArray;
using KVOSrvSparseSupport::Array;

namespace
{

constexpr char kSource[] = "mtx/impl/KVOSrvSparseImExPorterDense";

// The dense matrix passes through a window about the size of the second-level cache, not through memory of its whole size.
constexpr std::int64_t kWindow = 65536; // doubles

struct Header {
    std::int32_t rows;
    std::int32_t columns;
    std::int32_t rowsAgain;
    std::int32_t columnsAgain;
};
static_assert(sizeof(Header) == 16);

// Deliberate: smaller elements are dropped, and so is a NaN, which compares with nothing.
bool IsKept(double value)
{
    return std::fabs(value) > 1e-16;
}

// Most groups of a sparse matrix's elements are passed over by one vectorised look.
constexpr std::int64_t kGroup = 16;

bool AnyKept(double const* group)
{
    std::int64_t any = 0;
    for (std::int64_t k = 0; k < kGroup; ++k)
        any |= IsKept(group[k]);
    return any != 0;
}

/// Walks down the columns of a dense matrix as its elements come in.
class DenseReader
{
public:
    DenseReader(int rows, std::int64_t elements) : m_rows(rows), m_entries(elements) {}

    void Take(double const* values, std::int64_t count)
    {
        m_entries.Reserve(count, m_taken);
        m_taken += count;
        for (std::int64_t part; count > 0; values += part, count -= part) {
            part = std::min<std::int64_t>(count, m_rows - m_row);
            TakeOfColumn(values, part);
            m_row += static_cast<int>(part);
            if (m_row == m_rows) {
                m_row = 0;
                ++m_column;
            }
        }
    }

    MatrixEntryStore const& Entries() const noexcept { return m_entries; }

private:
    void TakeOfColumn(double const* values, std::int64_t count)
    {
        std::int64_t k = 0;
        for (; k + kGroup <= count; k += kGroup)
            if (AnyKept(values + k))
                TakeKept(values, k, k + kGroup);
        TakeKept(values, k, count);
    }

    void TakeKept(double const* values, std::int64_t begin, std::int64_t end)
    {
        for (std::int64_t k = begin; k < end; ++k)
            if (IsKept(values[k]))
                m_entries.Append({static_cast<unsigned>(m_row + k), m_column, values[k]});
    }

    int m_rows;
    int m_row = 0;
    unsigned m_column = 0;
    std::int64_t m_taken = 0;
    MatrixEntryStore m_entries;
};

bool ColumnsAscend(unsigned const* rowStart, int const* columnIndices, std::int64_t rows)
{
    for (std::int64_t i = 0; i < rows; ++i)
        if (!std::is_sorted(columnIndices + rowStart[i], columnIndices + rowStart[i + 1]))
            return false;
    return true;
}

/// Makes the dense matrix from the left to the right, some columns at a time, in a walk through every row.
class DenseWriter
{
public:
    DenseWriter(unsigned const* rowStart, int const* columnIndices, double const* values, std::int64_t rows, std::int64_t columns)
        : m_rowStart(rowStart), m_columnIndices(columnIndices), m_values(values), m_rows(rows), m_columns(columns),
          m_next(AllocateArray<unsigned>(rows))
    {
        std::copy_n(rowStart, rows, m_next.get());
        if (!ColumnsAscend(rowStart, columnIndices, rows))
            SortRows();
    }

    void Write(OutputFile& file)
    {
        // Eight columns at a time use up the cache lines of a row's entries, unless that takes too much memory.
        constexpr std::int64_t kFewColumns = 8, kManyRows = 524288;

        std::int64_t const rowsAtOnce = m_rows <= kManyRows ? m_rows : kWindow;
        std::int64_t const columnsAtOnce = m_rows <= kManyRows ? std::max(kFewColumns, kWindow / m_rows) : 1;
        std::int64_t const size = rowsAtOnce * std::min(columnsAtOnce, m_columns);
        Array<double> const window = AllocateArray<double>(size);
        std::fill_n(window.get(), size, 0.0);
        for (std::int64_t column = 0; column < m_columns; column += columnsAtOnce)
            for (std::int64_t row = 0; row < m_rows; row += rowsAtOnce) {
                std::int64_t const rows = std::min(rowsAtOnce, m_rows - row), columns = std::min(columnsAtOnce, m_columns - column);
                Scatter(row, rows, column, columns, window.get());
                file.WriteItems(window.get(), rows * columns);
                Clear(window.get(), rows * columns);
            }
    }

private:
    // Files of half-stored matrices may hold the entries of a row in any order.
    void SortRows()
    {
        std::int64_t const count = m_rowStart[m_rows];
        Array<KVOSrvSparseMatrixEntry> const entries = AllocateArray<KVOSrvSparseMatrixEntry>(count);
        m_sortedColumns = AllocateArray<int>(count);
        m_sortedValues = AllocateArray<double>(count);
        for (std::int64_t i = 0; i < m_rows; ++i) {
            unsigned const begin = m_rowStart[i], end = m_rowStart[i + 1];
            for (unsigned k = begin; k < end; ++k)
                entries[k] = {k, static_cast<unsigned>(m_columnIndices[k]), m_values[k]};
            KVOSrvSparseSupport::SortByColumn(entries.get() + begin, end - begin);
            for (unsigned k = begin; k < end; ++k) {
                m_sortedColumns[k] = static_cast<int>(entries[k].column);
                m_sortedValues[k] = entries[k].value;
            }
        }
        m_columnIndices = m_sortedColumns.get();
        m_values = m_sortedValues.get();
    }

    void Scatter(std::int64_t firstRow, std::int64_t rows, std::int64_t firstColumn, std::int64_t columns, double* window)
    {
        for (std::int64_t i = 0; i < rows; ++i) {
            unsigned next = m_next[firstRow + i];
            for (unsigned const end = m_rowStart[firstRow + i + 1]; next != end && m_columnIndices[next] < firstColumn + columns; ++next) {
                std::int64_t const place = i + (m_columnIndices[next] - firstColumn) * rows;
                window[place] = m_values[next];
                if (m_touchedCount < kTouched)
                    m_touched[m_touchedCount++] = place;
            }
            m_next[firstRow + i] = next;
        }
    }

    // Sets back to 0 what Scatter() touched: of a sparse matrix a small part.
    void Clear(double* window, std::int64_t size)
    {
        if (m_touchedCount == kTouched)
            std::fill_n(window, size, 0.0);
        for (std::int64_t k = 0; k < m_touchedCount; ++k)
            window[m_touched[k]] = 0.0;
        m_touchedCount = 0;
    }

    static constexpr std::int64_t kTouched = kWindow / 16;

    unsigned const* m_rowStart;
    int const* m_columnIndices;
    double const* m_values;
    std::int64_t m_rows;
    std::int64_t m_columns;
    Array<unsigned> m_next; // entry of every row
    std::int64_t m_touched[kTouched];
    std::int64_t m_touchedCount = 0;
    Array<int> m_sortedColumns;
    Array<double> m_sortedValues;
};

} // namespace

void KVOSrvSparseImExPorter::ImportDense(KVOSrvSparseMatrix& matrix, char const* path)
{
    // Without elements nothing in the file stands for the rows or columns; so many are believed.
    constexpr int kMostWithoutElements = 1 << 24;

    InputFile file(path);
    Header header;
    file.ReadItems(&header, 1);
    std::int64_t const rows = header.rows, elements = rows * header.columns;
    if (header.rows < 0 || header.columns < 0 || elements > (file.Size() - std::int64_t{sizeof header}) / std::int64_t{sizeof(double)} ||
        (elements == 0 && std::max(header.rows, header.columns) > kMostWithoutElements))
        KVOSrvMtxUnsupportedImpFmt().Throw(kSource, __LINE__);

    DenseReader reader(header.rows, elements);
    Array<double> const window = AllocateArray<double>(std::min(kWindow, elements));
    for (std::int64_t left = elements, count; left > 0; left -= count) {
        count = std::min(kWindow, left);
        file.ReadItems(window.get(), count);
        reader.Take(window.get(), count);
        if (reader.Entries().Count() > INT_MAX)
            KVOSrvMtxUnsupportedImpFmt().Throw(kSource, __LINE__);
    }
    matrix.ResetData(reader.Entries().Entries(), static_cast<int>(reader.Entries().Count()), header.rows, header.columns);
}

// Deliberate: of a half-stored matrix neither the diagonal nor the mirrored entries are written.
void KVOSrvSparseImExPorter::ExportDense(KVOSrvSparseMatrix const& matrix, char const* path)
{
    // Negative sizes come from indices that no assembly takes.
    if (matrix.m_rowCount < 0 || matrix.m_columnCount < 0)
        KVOSrvMtxUnsupportedExpFmt().Throw(kSource, __LINE__);

    // A matrix without row starts has no entries.
    std::int64_t const rows = matrix.m_rowCount, columns = matrix.m_columnCount;
    Array<unsigned> noEntries;
    if (matrix.m_rowStart == nullptr) {
        noEntries = AllocateArray<unsigned>(rows + 1);
        std::fill_n(noEntries.get(), rows + 1, 0);
    }
    DenseWriter writer(noEntries != nullptr ? noEntries.get() : matrix.m_rowStart.get(), matrix.m_columnIndices.get(),
                       matrix.m_values.get(), rows, columns);

    // Deliberate: not truncated, an existing longer file keeps its tail.
    OutputFile file(path, OutputFile::Existing::kOverwrite, 0644);
    Header const header{matrix.m_rowCount, matrix.m_columnCount, matrix.m_rowCount, matrix.m_columnCount};
    file.WriteItems(&header, 1);
    if (rows > 0)
        writer.Write(file);
    file.Close();
}
