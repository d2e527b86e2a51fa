#include "SymmetricRows.h"

#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace
{

// What is left of rounding where two programs add the same element matrices in another order.
constexpr double kSymmetryTolerance = 1e-12;

void Require(bool isRight, char const* reason, int line = __builtin_LINE())
{
    if (!isRight)
        KVOSrvMtxRefusedInput("kvo_mtx_modes", "SymmetricRows", reason).Throw("modes/SymmetricRows", line);
}

template<class Take>
void ForEachEntry(KVOSrvSparseRows const& rows, Take const& take)
{
    for (int i = 0; i < rows.rows; ++i)
        for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k)
            take(i, rows.columnIndices[k], rows.values[k]);
}

void RequireRows(KVOSrvSparseRows const& rows)
{
    Require(rows.rows >= 1 && rows.rows == rows.columns, "a symmetric matrix has as many rows as columns, 1 or more");
    Require(rows.rowStart[0] == 0 && rows.rowStart[rows.rows] <= INT_MAX && std::is_sorted(rows.rowStart, rows.rowStart + rows.rows + 1),
            "the row starts do not ascend from 0 on");
    ForEachEntry(rows, [&](int, int column, double value) {
        Require(column >= 0 && column < rows.columns, "a column is none of 0 to order - 1");
        Require(std::isfinite(value), "a value is not finite");
    });
}

// Entries below the diagonal, or above it as those below.
std::unique_ptr<KVOSrvSparseMatrix> Side(KVOSrvSparseRows const& rows, bool below)
{
    auto side = std::make_unique<KVOSrvSparseMatrix>(rows.rows, rows.rows);
    ForEachEntry(rows, [&](int i, int j, double value) {
        if (below ? i > j : i < j)
            side->AddData(static_cast<unsigned>(std::max(i, j)), static_cast<unsigned>(std::min(i, j)), value);
    });
    side->EndAssembly();
    return side;
}

double LargestEntry(KVOSrvSparseRows const& rows)
{
    double largest = 0.0;
    ForEachEntry(rows, [&](int, int, double value) { largest = std::max(largest, std::fabs(value)); });
    return largest;
}

void RequireSame(KVOSrvSparseMatrix const& below, KVOSrvSparseMatrix const& above, double scale)
{
    KVOSrvSparseMatrix difference(below.NumberOfRows(), below.NumberOfRows());
    difference.Subtract(below, above);
    Require(LargestEntry(difference.Rows()) <= kSymmetryTolerance * scale, "the matrix is not symmetric");
}

} // namespace

std::unique_ptr<KVOSrvSparseMatrix> SymmetricRows(KVOSrvSparseRows const& rows)
{
    RequireRows(rows);
    auto taken = Side(rows, true);
    if (auto above = Side(rows, false); taken->NumberOfNonzeros() == 0)
        taken = std::move(above);
    else if (above->NumberOfNonzeros() > 0)
        RequireSame(*taken, *above, LargestEntry(rows));
    KVOSrvSparseMatrix whole(rows.rows, rows.rows);
    ForEachEntry(taken->Rows(), [&](int i, int j, double value) {
        whole.AddData(static_cast<unsigned>(i), static_cast<unsigned>(j), value);
        whole.AddData(static_cast<unsigned>(j), static_cast<unsigned>(i), value);
    });
    ForEachEntry(rows, [&](int i, int j, double value) {
        if (i == j)
            whole.AddData(static_cast<unsigned>(i), static_cast<unsigned>(i), value);
    });
    whole.EndAssembly();
    return whole.InHalfStorage();
}
