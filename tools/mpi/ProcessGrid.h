#pragma once

#include "TileGrid.h"

#include <vector>

class Ranks;

/// The ranks as a grid, about square, for ScaLAPACK. To be made and ended by all.
class ProcessGrid
{
public:
    explicit ProcessGrid(Ranks const& ranks);
    ~ProcessGrid();
    ProcessGrid(ProcessGrid const&) = delete;
    ProcessGrid& operator=(ProcessGrid const&) = delete;

    /// How a matrix of that size in such tiles is dealt.
    TileGrid Deal(int rows, int columns, int tileRows, int tileColumns) const noexcept;
    /// C = A B; the arrays are this rank's parts.
    void Multiply(TileGrid const& aGrid, std::vector<double> const& a, TileGrid const& bGrid, std::vector<double> const& b,
                  TileGrid const& cGrid, std::vector<double>& c) const;

private:
    int m_context = 0;
    int m_rows = 1;
    int m_columns = 1;
    int m_row = 0;
    int m_column = 0;
};
