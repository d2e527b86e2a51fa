#pragma once

#include <algorithm>
#include <cstdint>

/// One direction of a block-cyclic matrix: `size` values in tiles, tile t on process t modulo `processes`.
struct CyclicCut {
    int size = 0;
    int tile = 1;
    int processes = 1;

    int Tiles() const noexcept { return (size + tile - 1) / tile; }
    int First(int t) const noexcept { return t * tile; }
    int Count(int t) const noexcept { return std::min(tile, size - First(t)); }
    /// Where tile t begins in the array of its process.
    int LocalFirst(int t) const noexcept { return t / processes * tile; }
    /// Values that a process has.
    int Local(int process) const noexcept
    {
        int local = 0;
        for (int t = process; t < Tiles(); t += processes)
            local += Count(t);
        return local;
    }
};

/// A matrix whose tiles are dealt to a grid of processes as ScaLAPACK does, and the place of one of these.
struct TileGrid {
    CyclicCut rows;
    CyclicCut columns;
    int row = 0; ///< of the process in the grid
    int column = 0;

    int LocalRows() const noexcept { return rows.Local(row); }
    int LocalColumns() const noexcept { return columns.Local(column); }
    std::int64_t LocalValues() const noexcept { return std::int64_t{LocalRows()} * LocalColumns(); }
    int LeadingDimension() const noexcept { return std::max(1, LocalRows()); }

    /// visit(firstRow, lastRow, firstColumn, lastColumn, offset) for each tile of the process; the tile begins at `offset` in its array.
    template<class Visit>
    void ForEachTile(Visit const& visit) const
    {
        for (int j = column; j < columns.Tiles(); j += columns.processes)
            for (int i = row; i < rows.Tiles(); i += rows.processes)
                visit(rows.First(i), rows.First(i) + rows.Count(i) - 1, columns.First(j), columns.First(j) + columns.Count(j) - 1,
                      rows.LocalFirst(i) + std::int64_t{columns.LocalFirst(j)} * LeadingDimension());
    }
};
