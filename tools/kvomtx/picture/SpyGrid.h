#pragma once

#include "SpyPicture.h"

#include <algorithm>
#include <cstdint>

/// The part of a matrix that is drawn, over the pixels that it is drawn on.
struct SpyGrid {
    IndexRange rows;
    IndexRange columns;
    int width;
    int height;

    // The pixels of a row are those from Top(row) to before Bottom(row), at least one; likewise of a column.
    int Top(int row) const { return Scaled(row - rows.first, rows.Count(), height); }
    int Left(int column) const { return Scaled(column - columns.first, columns.Count(), width); }
    int Bottom(int row) const { return rows.Count() >= height ? Top(row) + 1 : Top(row + 1); }
    int Right(int column) const { return columns.Count() >= width ? Left(column) + 1 : Left(column + 1); }

    std::size_t Pixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
    /// Its place among all, row by row.
    std::size_t Pixel(int x, int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
    }
    /// Places of the matrix that share a pixel, at least 1.
    double PlacesOfPixel() const
    {
        return std::max(1.0, static_cast<double>(rows.Count()) / height) * std::max(1.0, static_cast<double>(columns.Count()) / width);
    }

private:
    static int Scaled(int index, int size, int pixels) { return static_cast<int>(std::int64_t{index} * pixels / size); }
};

/// Calls take(row, column, k) for the entries k of that part, row by row.
template<class Take>
void ForEachEntryOf(KVOSrvSparseRows const& matrix, SpyGrid const& grid, Take const& take)
{
    for (int row = grid.rows.first; row <= grid.rows.last; ++row)
        for (unsigned k = matrix.rowStart[row]; k < matrix.rowStart[row + 1]; ++k)
            if (int const column = matrix.columnIndices[k]; column >= grid.columns.first && column <= grid.columns.last)
                take(row, column, k);
}
