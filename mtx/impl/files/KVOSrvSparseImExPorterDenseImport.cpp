// Import of dense files: format 7.

#include "DenseFileHeader.h"
#include "KVOSrvSparseImExPorter.h"
#include "MalformedFile.h"
#include "MatrixEntryStore.h"
#include "MatrixFiles.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstring>
#include <numeric>
#include <string>
#include <utility>

using KVOSrvSparseSupport::AllocateArray;
using KVOSrvSparseSupport::Array;
using KVOSrvSparseSupport::CompressedRows;
using KVOSrvSparseSupport::ShrinkArray;

namespace
{

using Mask = std::uint16_t; // bit c stands for column c of a panel
constexpr std::int64_t kMostPanelColumns = 16;

/// Some columns of the matrix.
struct Panel {
    double const* values; // column-major
    std::int64_t rows;
    std::int64_t firstColumn;
    std::int64_t columns;

    bool IsFull(Mask mask) const noexcept { return mask == (1U << columns) - 1; }
};

// Deliberate: smaller elements are dropped, and so is a NaN, which compares with nothing.
constexpr double kDropped = 1e-16;

/// Eight rows of a panel, copied together so that each cache line of the panel is fetched once.
class Tile
{
public:
    static constexpr std::int64_t kRows = 8;

    /// @return whether any element is kept
    bool Load(Panel const& panel, std::int64_t firstRow) noexcept
    {
        double const* const values = panel.values + firstRow;
        std::uint64_t bits[kRows] = {};
        if (panel.rows - firstRow >= kRows)
            LoadAllRows(values, panel, bits);
        else
            LoadRows(values, panel.rows - firstRow, panel, bits);
        std::copy_n(bits, kRows, m_masks);
        return std::any_of(bits, bits + kRows, [](std::uint64_t mask) { return mask != 0; });
    }

    Mask const* Masks() const noexcept { return m_masks; }
    double At(std::int64_t row, std::int64_t column) const noexcept { return m_values[column][row]; }

private:
    void LoadRows(double const* values, std::int64_t rows, Panel const& panel, std::uint64_t* bits) noexcept
    {
        for (std::int64_t c = 0; c < panel.columns; ++c)
            for (std::int64_t r = 0; r < rows; ++r) {
                m_values[c][r] = values[r + c * panel.rows];
                bits[r] |= static_cast<std::uint64_t>(std::fabs(m_values[c][r]) > kDropped) << c;
            }
    }

    // The same with all rows, two at a time; compilers do not find that themselves. Of a sparse matrix the import took 1.27
    // times the raw read without it and takes 1.09 with it.
    void LoadAllRows(double const* values, Panel const& panel, std::uint64_t* bits) noexcept
    {
        using Pair [[gnu::vector_size(16)]] = double;
        using PairOfBits [[gnu::vector_size(16)]] = std::int64_t;
        constexpr std::int64_t kNoSign = INT64_MAX;

        PairOfBits masks[kRows / 2] = {};
        for (std::int64_t c = 0; c < panel.columns; ++c, values += panel.rows) {
            std::int64_t const bit = std::int64_t{1} << c;
            for (std::int64_t r = 0; r < kRows / 2; ++r) {
                Pair pair;
                std::memcpy(&pair, values + 2 * r, sizeof pair);
                std::memcpy(m_values[c] + 2 * r, &pair, sizeof pair);
                auto const magnitude = reinterpret_cast<Pair>(reinterpret_cast<PairOfBits>(pair) & kNoSign);
                masks[r] |= (magnitude > kDropped) & bit;
            }
        }
        std::memcpy(bits, masks, sizeof masks);
    }

    double m_values[kMostPanelColumns][kRows];
    Mask m_masks[kRows];
};

/// Builds compressed rows from panels that come in from the left to the right.
///
/// As long as at most half of the elements are kept, their values are stored panel by panel with the masks, and placed when the row starts
/// are known. Of a fuller matrix every row is given room for all its columns at once, and the gaps are closed in the end.
class RowsOfPanels
{
public:
    RowsOfPanels(std::int64_t rows, std::int64_t columns, std::int64_t panelColumns)
        : m_rows(rows), m_columns(columns), m_panelColumns(panelColumns),
          m_masks(AllocateArray<Mask>(rows * ((columns + panelColumns - 1) / panelColumns))), m_next(AllocateArray<std::int64_t>(rows)),
          m_values(rows * columns), m_result(static_cast<int>(rows), static_cast<int>(columns), nullptr, nullptr, nullptr)
    {
        std::fill_n(m_next.get(), rows, 0);
    }

    std::int64_t Count() const noexcept { return m_count; }

    /// Takes the next columns: as many as a panel has, fewer only in the end.
    void Take(double const* values, std::int64_t columns)
    {
        Panel const panel{values, m_rows, m_taken, columns};
        if (m_spread)
            Spread(panel);
        else
            Store(panel);
        m_taken += columns;
        if (!m_spread && m_taken < m_columns && m_count > m_rows * m_taken / 2)
            BeginSpreading();
    }

    CompressedRows Finish()
    {
        if (m_spread)
            CloseGaps();
        else
            PlaceStored();
        return std::move(m_result);
    }

private:
    // Appends the panel's values row by row. Until the row starts are known m_next counts the entries of the rows.
    void Store(Panel const& panel)
    {
        m_values.Reserve(panel.rows * panel.columns, panel.rows * panel.firstColumn);
        Mask* const masks = m_masks.get() + panel.firstColumn / m_panelColumns * m_rows;
        double* next = m_values.End();
        Tile tile;
        for (std::int64_t first = 0; first < m_rows; first += Tile::kRows) {
            std::int64_t const rows = std::min(Tile::kRows, m_rows - first);
            bool const any = tile.Load(panel, first);
            std::copy_n(tile.Masks(), rows, masks + first);
            for (std::int64_t r = 0; any && r < rows; ++r) {
                unsigned const mask = tile.Masks()[r];
                if (mask == 0)
                    continue;
                double* const begin = next;
                // Without a branch; what is written in vain lies in the room for the panel.
                for (std::int64_t c = 0; c < panel.columns; ++c) {
                    *next = tile.At(r, c);
                    next += mask >> c & 1;
                }
                m_next[first + r] += next - begin;
            }
        }
        m_values.Commit(next);
        m_count = m_values.Count();
    }

    // Places the panel's values, rows having room for all columns.
    void Spread(Panel const& panel)
    {
        auto const firstColumn = static_cast<int>(panel.firstColumn), columns = static_cast<int>(panel.columns);
        Tile tile;
        for (std::int64_t first = 0; first < m_rows; first += Tile::kRows) {
            tile.Load(panel, first);
            for (std::int64_t r = 0; r < std::min(Tile::kRows, m_rows - first); ++r) {
                unsigned const mask = tile.Masks()[r];
                std::int64_t next = m_next[first + r];
                double* const values = m_result.values.get();
                int* const columnIndices = m_result.columnIndices.get();
                if (panel.IsFull(static_cast<Mask>(mask))) {
                    for (int c = 0; c < columns; ++c)
                        values[next + c] = tile.At(r, c);
                    std::iota(columnIndices + next, columnIndices + next + columns, firstColumn);
                    next += columns;
                } else {
                    for (int c = 0; c < columns; ++c) {
                        values[next] = tile.At(r, c);
                        columnIndices[next] = firstColumn + c;
                        next += mask >> c & 1;
                    }
                }
                m_count += next - m_next[first + r];
                m_next[first + r] = next;
            }
        }
    }

    // Places the stored values from m_next on.
    void Replay()
    {
        double const* value = m_values.Entries();
        Mask const* masks = m_masks.get();
        for (std::int64_t first = 0; first < m_taken; first += m_panelColumns, masks += m_rows)
            for (std::int64_t row = 0; row < m_rows; ++row) {
                std::int64_t next = m_next[row];
                for (unsigned mask = masks[row]; mask != 0; mask &= mask - 1, ++next) {
                    m_result.columnIndices[next] = static_cast<int>(first) + std::countr_zero(mask);
                    m_result.values[next] = *value++;
                }
                m_next[row] = next;
            }
    }

    void BeginSpreading()
    {
        AllocateRows(m_rows * m_columns);
        for (std::int64_t row = 0; row < m_rows; ++row)
            m_next[row] = row * m_columns;
        Replay();
        m_values = MatrixEntryStore<double>(0);
        m_spread = true;
    }

    void CloseGaps()
    {
        std::int64_t end = 0;
        for (std::int64_t row = 0; row < m_rows; ++row) {
            std::int64_t const begin = row * m_columns, count = m_next[row] - begin;
            m_result.rowStart[row] = static_cast<unsigned>(end);
            if (begin != end) {
                std::copy_n(m_result.columnIndices.get() + begin, count, m_result.columnIndices.get() + end);
                std::copy_n(m_result.values.get() + begin, count, m_result.values.get() + end);
            }
            end += count;
        }
        m_result.rowStart[m_rows] = static_cast<unsigned>(end);
        if (end < m_rows * m_columns) {
            ShrinkArray(m_result.columnIndices, end);
            ShrinkArray(m_result.values, end);
        }
    }

    void PlaceStored()
    {
        AllocateRows(m_count);
        std::int64_t begin = 0;
        for (std::int64_t row = 0; row < m_rows; ++row) {
            m_result.rowStart[row] = static_cast<unsigned>(begin);
            begin += std::exchange(m_next[row], begin);
        }
        m_result.rowStart[m_rows] = static_cast<unsigned>(begin);
        Replay();
    }

    void AllocateRows(std::int64_t entries)
    {
        m_result.rowStart = AllocateArray<unsigned>(m_rows + 1);
        m_result.columnIndices = AllocateArray<int>(entries);
        m_result.values = AllocateArray<double>(entries);
    }

    std::int64_t m_rows;
    std::int64_t m_columns;
    std::int64_t m_panelColumns;
    std::int64_t m_taken = 0; // columns
    std::int64_t m_count = 0; // entries
    bool m_spread = false;
    Array<Mask> m_masks;        // of the stored panels one after the other
    Array<std::int64_t> m_next; // place of every row's next entry
    MatrixEntryStore<double> m_values;
    CompressedRows m_result; // without arrays at first
};

// A file that is as long as its header says, before anything is allocated.
DenseFileHeader ReadHeader(InputFile& file)
{
    // Without elements nothing in the file stands for the rows; so many are believed. Columns without rows take no memory.
    constexpr int kMostEmptyRows = 1 << 24;

    RequireSize(file, sizeof(DenseFileHeader), "the header of a dense file");
    DenseFileHeader header;
    file.ReadItems(&header, 1);
    auto const require = [](bool sound, std::int64_t byte, char const* expected, int found) {
        if (!sound)
            throw MalformedFile::AtByte(byte, std::string("expected ") + expected + ", found " + std::to_string(found));
    };
    require(header.rows >= 0, 0, "the number of rows of a dense file", header.rows);
    require(header.columns >= 0, 4, "the number of columns of a dense file", header.columns);
    require(header.columns > 0 || header.rows <= kMostEmptyRows, 0, "at most 16777216 rows where there are no columns", header.rows);
    std::int64_t const values = std::int64_t{header.rows} * header.columns;
    if (values > (file.Size() - std::int64_t{sizeof header}) / std::int64_t{sizeof(double)})
        throw MalformedFile::AtByte(file.Size(), "the file ends here; a matrix of " + std::to_string(header.rows) + " x " +
                                                     std::to_string(header.columns) + ", as its header says, takes " +
                                                     std::to_string(values) + " values of 8 bytes");
    return header;
}

[[noreturn]] void RefuseTooMany(InputFile const& file)
{
    throw MalformedFile::AtByte(file.Place(), "more entries up to here than a matrix can have (2147483647)");
}

// The matrix passes through a window, not through memory of its whole size: 512 KiB, no more than the second-level cache of server
// processors since 2017.
constexpr std::int64_t kWindow = 65536; // doubles

// Wide panels use up the cache lines of a row's entries, unless that takes too much memory.
std::int64_t PanelColumns(std::int64_t rows)
{
    constexpr std::int64_t kFewColumns = 8, kManyRows = 524288;

    return rows > kManyRows ? 1 : std::clamp(kWindow / rows, kFewColumns, kMostPanelColumns);
}

} // namespace

CompressedRows KVOSrvSparseImExPorter::ReadDense(char const* path)
{
    InputFile file(path);
    DenseFileHeader const header = ReadHeader(file);
    std::int64_t const rows = header.rows, columns = header.columns;
    if (rows == 0 || columns == 0)
        return KVOSrvSparseSupport::WithoutEntries(header.rows, header.columns);

    std::int64_t const panelColumns = PanelColumns(rows), panelsAtOnce = std::max<std::int64_t>(1, kWindow / (panelColumns * rows));
    std::int64_t const columnsAtOnce = std::min(columns, panelsAtOnce * panelColumns);
    RowsOfPanels reader(rows, columns, panelColumns);
    Array<double> const window = AllocateArray<double>(rows * columnsAtOnce);
    for (std::int64_t left = columns, read; left > 0; left -= read) {
        read = std::min(columnsAtOnce, left);
        file.ReadItems(window.get(), rows * read);
        for (std::int64_t column = 0; column < read; column += panelColumns)
            reader.Take(window.get() + rows * column, std::min(panelColumns, read - column));
        if (reader.Count() > INT_MAX)
            RefuseTooMany(file);
    }
    return reader.Finish();
}

std::pair<int, int> KVOSrvSparseImExPorter::ReadDense(char const* path, TakeEntries const& take)
{
    InputFile file(path);
    DenseFileHeader const header = ReadHeader(file);
    std::int64_t const elements = std::int64_t{header.rows} * header.columns;
    Array<double> const window = AllocateArray<double>(std::min(kWindow, elements));
    Array<KVOSrvSparseMatrixEntry> const entries = AllocateArray<KVOSrvSparseMatrixEntry>(std::min(kWindow, elements));
    for (std::int64_t first = 0, all = 0, read; first < elements; first += read) {
        read = std::min(kWindow, elements - first);
        file.ReadItems(window.get(), read);
        std::size_t count = 0;
        for (std::int64_t k = 0; k < read; ++k)
            if (std::fabs(window[k]) > kDropped)
                entries[count++] = {static_cast<unsigned>((first + k) % header.rows), static_cast<unsigned>((first + k) / header.rows),
                                    window[k]};
        all += static_cast<std::int64_t>(count);
        if (all > INT_MAX)
            RefuseTooMany(file);
        take({entries.get(), count});
    }
    return {header.rows, header.columns};
}
