// Export of dense files: format 7.

#include "CompressedRows.h"
#include "DenseFileHeader.h"
#include "KVOSrvSparseImExPorter.h"
#include "MatrixFiles.h"
#include "SparseRowSorter.h"
#include "SparseRows.h"

#include <algorithm>

using KVOSrvSparseSupport::AllocateArray;
using KVOSrvSparseSupport::Array;

namespace
{

// The dense matrix passes through a window, not through memory of its whole size. The window of a sparse one, 512 KiB, is no larger than
// the second-level cache of server processors since 2017; a filled one gains more from longer pieces of its rows (16 columns at a time
// took 3.2 to 3.4 times the raw write where 64 took 2.9).
constexpr std::int64_t kWindow = 65536, kFilledWindow = 262144; // doubles

constexpr std::int64_t kTileRows = 8; // a cache line of the dense matrix
constexpr std::int64_t kTileColumns = 64;

// Each row's columns, of which one may stand twice.
bool ColumnsAscendWithRepeats(KVOSrvSparseRows const& rows)
{
    for (int i = 0; i < rows.rows; ++i)
        if (!std::is_sorted(rows.columnIndices + rows.rowStart[i], rows.columnIndices + rows.rowStart[i + 1]))
            return false;
    return true;
}

/// Makes the dense matrix from the left to the right, some columns at a time, in a walk through every row.
class DenseWriter
{
public:
    explicit DenseWriter(KVOSrvSparseRows const& rows)
        : m_rowStart(rows.rowStart), m_columnIndices(rows.columnIndices), m_values(rows.values), m_rows(rows.rows), m_columns(rows.columns),
          m_filled(rows.entries > m_rows * m_columns / kTouchedShare), m_next(AllocateArray<unsigned>(m_rows))
    {
        std::copy_n(m_rowStart, m_rows, m_next.get());
        bool const strictly = KVOSrvSparseSupport::ColumnsAscend(rows);
        m_mostlyFull = strictly && rows.entries > m_rows * m_columns / 2;
        if (!strictly && !ColumnsAscendWithRepeats(rows))
            SortRows();
    }

    void Write(OutputFile& file)
    {
        // Eight columns at a time use up the cache lines of a row's entries, unless that takes too much memory.
        constexpr std::int64_t kFewColumns = 8, kManyRows = 524288;

        std::int64_t const rowsAtOnce = m_rows <= kManyRows ? m_rows : kWindow;
        std::int64_t const columnsAtOnce = m_rows <= kManyRows ? std::max(kFewColumns, (m_filled ? kFilledWindow : kWindow) / m_rows) : 1;
        std::int64_t const size = rowsAtOnce * std::min(columnsAtOnce, m_columns);
        Array<double> const window = AllocateArray<double>(size);
        std::fill_n(window.get(), size, 0.0);
        for (std::int64_t column = 0; column < m_columns; column += columnsAtOnce)
            for (std::int64_t row = 0; row < m_rows; row += rowsAtOnce) {
                std::int64_t const rows = std::min(rowsAtOnce, m_rows - row), columns = std::min(columnsAtOnce, m_columns - column);
                if (m_filled)
                    ScatterTiles(row, rows, column, columns, window.get());
                else
                    Scatter(row, rows, column, columns, window.get());
                file.WriteItems(window.get(), rows * columns);
                if (!m_filled)
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

    // Writes every element, zeros too: a tile at a time in the first-level cache, whose columns then go to the
    // window as whole cache lines.
    void ScatterTiles(std::int64_t firstRow, std::int64_t rows, std::int64_t firstColumn, std::int64_t columns, double* window)
    {
        for (std::int64_t column = 0; column < columns; column += kTileColumns)
            for (std::int64_t row = 0; row < rows; row += kTileRows) {
                std::int64_t const tileRows = std::min(kTileRows, rows - row), tileColumns = std::min(kTileColumns, columns - column);
                double tile[kTileColumns][kTileRows];
                FillTile(firstRow + row, tileRows, firstColumn + column, tileColumns, tile);
                double* target = window + row + column * rows;
                for (std::int64_t c = 0; c < tileColumns; ++c, target += rows)
                    if (tileRows == kTileRows)
                        std::copy_n(tile[c], kTileRows, target);
                    else
                        std::copy_n(tile[c], tileRows, target);
            }
    }

    void FillTile(std::int64_t firstRow, std::int64_t rows, std::int64_t firstColumn, std::int64_t columns,
                  double (*tile)[kTileRows]) noexcept
    {
        // Every row lies elsewhere, so the processor does not foresee what is needed next.
        constexpr std::int64_t kRowsAhead = 2 * kTileRows, kPerLine = 8; // values in a cache line
        for (std::int64_t row = firstRow + kRowsAhead; row < std::min(firstRow + kRowsAhead + kTileRows, m_rows); ++row) {
            __builtin_prefetch(m_columnIndices + m_next[row]);
            __builtin_prefetch(m_values + m_next[row]);
            __builtin_prefetch(m_values + m_next[row] + kPerLine);
        }
        std::int64_t fullRows = 0;
        for (std::int64_t r = 0; m_mostlyFull && r < rows; ++r)
            fullRows += IsFull(firstRow + r, firstColumn, columns);
        if (fullRows < rows)
            std::fill_n(tile[0], columns * kTileRows, 0.0);
        for (std::int64_t r = 0; r < rows; ++r) {
            unsigned& next = m_next[firstRow + r];
            if (fullRows > 0 && IsFull(firstRow + r, firstColumn, columns)) {
                for (std::int64_t c = 0; c < columns; ++c)
                    tile[c][r] = m_values[next + c];
                next += static_cast<unsigned>(columns);
                continue;
            }
            unsigned k = next;
            for (unsigned const end = m_rowStart[firstRow + r + 1]; k != end && m_columnIndices[k] < firstColumn + columns; ++k)
                tile[m_columnIndices[k] - firstColumn][r] = m_values[k];
            next = k;
        }
    }

    // Whether the row has an entry in each of the columns; those in front of them have been written.
    bool IsFull(std::int64_t row, std::int64_t firstColumn, std::int64_t columns) const noexcept
    {
        std::int64_t const last = m_next[row] + columns - 1;
        return last < m_rowStart[row + 1] && m_columnIndices[last] == firstColumn + columns - 1;
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

    static constexpr std::int64_t kTouchedShare = 16; // of a matrix with more than one entry in so many elements all are written anew
    static constexpr std::int64_t kTouched = kWindow / kTouchedShare;

    unsigned const* m_rowStart;
    int const* m_columnIndices;
    double const* m_values;
    std::int64_t m_rows;
    std::int64_t m_columns;
    bool m_filled;
    bool m_mostlyFull;      // rows may have an entry in every column, and none has two
    Array<unsigned> m_next; // entry of every row
    std::int64_t m_touched[kTouched];
    std::int64_t m_touchedCount = 0;
    Array<int> m_sortedColumns;
    Array<double> m_sortedValues;
};

} // namespace

// Deliberate: of a half-stored matrix neither the diagonal nor the mirrored entries are written.
void KVOSrvSparseImExPorter::WriteDense(KVOSrvSparseRows const& rows, char const* path)
{
    DenseWriter writer(rows);

    // Deliberate: not truncated, an existing longer file keeps its tail.
    OutputFile file(path, OutputFile::Existing::kOverwrite, 0644);
    DenseFileHeader const header{rows.rows, rows.columns, rows.rows, rows.columns};
    file.WriteItems(&header, 1);
    if (rows.rows > 0)
        writer.Write(file);
    file.Close();
}
