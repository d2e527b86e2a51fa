#pragma once

#include <algorithm>

/// How the rows of a model are shared: each rank has some whole blocks of the stored modes, one after another, and so is the only one to
/// write to these. Ranks behind the last block have no rows.
struct RowShare {
    int order = 0;
    int rowsPerBlock = 1;
    int blocksPerRank = 1;

    RowShare(int rows, int ranks) : order(rows)
    {
        // A column of a block fills pages of the disk, so that no two ranks write to one, and a block is some megabytes of twenty modes.
        constexpr int kPage = 512, kMost = 16384;
        int const own = (rows + ranks - 1) / ranks;
        blocksPerRank = std::max(1, (own + kMost - 1) / kMost);
        rowsPerBlock = (own + blocksPerRank - 1) / blocksPerRank;
        rowsPerBlock = std::min(rows, (rowsPerBlock + kPage - 1) / kPage * kPage);
    }

    int FirstRow(int rank) const noexcept
    {
        return static_cast<int>(std::min<long long>(order, static_cast<long long>(rank) * blocksPerRank * rowsPerBlock));
    }
    int EndRow(int rank) const noexcept { return FirstRow(rank + 1); }
    int Rows(int rank) const noexcept { return EndRow(rank) - FirstRow(rank); }
};
