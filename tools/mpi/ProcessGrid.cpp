#include "ProcessGrid.h"

#include "Blacs.h"
#include "Errors.h"
#include "Ranks.h"

#include <array>
#include <exception>
#include <string>

namespace
{

using Descriptor = std::array<int, 9>;

Descriptor Describe(TileGrid const& grid, int context)
{
    Descriptor descriptor{};
    int const zero = 0, lld = grid.LeadingDimension();
    int info = 0;
    descinit_(descriptor.data(), &grid.rows.size, &grid.columns.size, &grid.rows.tile, &grid.columns.tile, &zero, &zero, &context, &lld,
              &info);
    if (info != 0)
        throw ToolError(ExitCode::kCannot, "ScaLAPACK refuses argument " + std::to_string(-info) + " of a matrix");
    return descriptor;
}

} // namespace

ProcessGrid::ProcessGrid(Ranks const& ranks)
{
    int sizes[2] = {0, 0};
    MPI_Dims_create(ranks.Size(), 2, sizes);
    Cblacs_get(0, 0, &m_context);
    Cblacs_gridinit(&m_context, "Row", sizes[0], sizes[1]);
    Cblacs_gridinfo(m_context, &m_rows, &m_columns, &m_row, &m_column);
}

ProcessGrid::~ProcessGrid()
{
    if (std::uncaught_exceptions() == 0) // else the others may not come to it
        Cblacs_gridexit(m_context);
}

TileGrid ProcessGrid::Deal(int rows, int columns, int tileRows, int tileColumns) const noexcept
{
    return {{rows, tileRows, m_rows}, {columns, tileColumns, m_columns}, m_row, m_column};
}

void ProcessGrid::Multiply(TileGrid const& aGrid, std::vector<double> const& a, TileGrid const& bGrid, std::vector<double> const& b,
                           TileGrid const& cGrid, std::vector<double>& c) const
{
    Descriptor const aDescriptor = Describe(aGrid, m_context), bDescriptor = Describe(bGrid, m_context),
                     cDescriptor = Describe(cGrid, m_context);
    double const alpha = 1.0, beta = 0.0;
    int const first = 1;
    pdgemm_("N", "N", &cGrid.rows.size, &cGrid.columns.size, &aGrid.columns.size, &alpha, a.data(), &first, &first, aDescriptor.data(),
            b.data(), &first, &first, bDescriptor.data(), &beta, c.data(), &first, &first, cDescriptor.data());
}
