#include "Symmetry.h"

#include "Errors.h"
#include "FullMatrix.h"
#include "SparseArrays.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <vector>

namespace
{

std::string Number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string Place(int row, int column)
{
    char text[32];
    std::snprintf(text, sizeof text, "(%d, %d)", row + 1, column + 1);
    return text;
}

// Of equal values exactly that one, also where their sum is beyond the range of doubles.
double Mean(double a, double b)
{
    return a == b ? a : 0.5 * a + 0.5 * b;
}

} // namespace

void AsymmetrySearch::Compare(int row, int column, double value, double mirror)
{
    double const difference = value == mirror ? 0.0 : std::fabs(value - mirror); // of equal infinities, too
    if (difference == 0.0)
        return;
    m_found.pairs += row != column;
    bool const isFinite = std::isfinite(difference);
    m_isFinite = m_isFinite && isFinite;
    if (isFinite ? difference <= m_found.largest : m_found.largest > 0.0)
        return;
    m_found = {isFinite ? difference : 0.0, row, column, value, mirror, m_found.pairs, m_found.unmatched};
}

Asymmetry AsymmetrySearch::Result(double scale) const
{
    Asymmetry found = m_found;
    if (scale > 0.0)
        found.largest /= scale;
    if (!m_isFinite)
        found.largest = std::numeric_limits<double>::infinity();
    return found;
}

Asymmetry FindAsymmetry(KVOSrvSparseRows const& matrix)
{
    double scale = 0.0;
    ForEachEntry(matrix, [&](int, int, double value) { scale = std::isfinite(value) ? std::max(scale, std::fabs(value)) : scale; });
    AsymmetrySearch search;

    // Rows ascend, so each row of the upper triangle is met from the left to the right by the columns of the lower one.
    std::vector<unsigned> next(static_cast<std::size_t>(matrix.rows));
    auto const skipUpper = [&](int row, int column) { // entries of the upper triangle without one below
        unsigned& k = next[static_cast<std::size_t>(row)];
        for (; k < matrix.rowStart[row + 1] && matrix.columnIndices[k] < column; ++k) {
            search.CountUnmatched();
            search.Compare(row, matrix.columnIndices[k], matrix.values[k], 0.0);
        }
        return k < matrix.rowStart[row + 1] && matrix.columnIndices[k] == column;
    };
    for (int row = 0; row < matrix.rows; ++row) {
        unsigned k = matrix.rowStart[row];
        for (; k < matrix.rowStart[row + 1] && matrix.columnIndices[k] < row; ++k) {
            bool const both = skipUpper(matrix.columnIndices[k], row);
            if (!both)
                search.CountUnmatched();
            search.Compare(row, matrix.columnIndices[k], matrix.values[k],
                           both ? matrix.values[next[static_cast<std::size_t>(matrix.columnIndices[k])]++] : 0.0);
        }
        for (; k < matrix.rowStart[row + 1] && matrix.columnIndices[k] == row; ++k)
            search.Compare(row, row, matrix.values[k], matrix.values[k]); // a NaN there is worth telling
        next[static_cast<std::size_t>(row)] = k;
    }
    for (int row = 0; row < matrix.rows; ++row)
        skipUpper(row, matrix.rows);
    return search.Result(scale);
}

bool EqualsItsTranspose(KVOSrvSparseRows const& matrix)
{
    return matrix.rows == matrix.columns && FindAsymmetry(matrix).largest == 0.0;
}

void RequireSymmetric(KVOSrvSparseRows const& matrix, std::string const& name)
{
    if (matrix.rows != matrix.columns)
        throw ToolError(ExitCode::kCannot, name + " is no square matrix (" + std::to_string(matrix.rows) + " x " +
                                               std::to_string(matrix.columns) + "); give a symmetric one");
    ForEachEntry(matrix, [&](int row, int column, double value) {
        if (!std::isfinite(value))
            throw ToolError(ExitCode::kCannot, name + " holds " + Number(value) + " at " + Place(row, column) +
                                                   "; the program that wrote the matrix has failed there");
    });
    Asymmetry const worst = FindAsymmetry(matrix);
    if (worst.largest > kSymmetryTolerance)
        throw ToolError(ExitCode::kCannot, name + " is not symmetric: the entry " + Place(worst.row, worst.column) + " is " +
                                               Number(worst.value) + ", the entry " + Place(worst.column, worst.row) + " is " +
                                               Number(worst.mirror) + "; a symmetric matrix is needed here");
}

std::unique_ptr<KVOSrvSparseMatrix> SymmetricPart(KVOSrvSparseRows const& matrix)
{
    std::int64_t entries = 0;
    ForEachEntry(matrix, [&](int row, int column, double) { entries += column > row; });
    SparseArrays half(matrix.rows, matrix.rows, entries, true);
    std::vector<unsigned> next(matrix.rowStart, matrix.rowStart + matrix.rows);
    unsigned end = half.rowStart[0] = 0;
    for (int row = 0; row < matrix.rows; ++row) {
        half.diagonal[row] = 0.0;
        for (unsigned k = matrix.rowStart[row]; k < matrix.rowStart[row + 1]; ++k) {
            int const column = matrix.columnIndices[k];
            if (column == row)
                half.diagonal[row] = matrix.values[k];
            if (column <= row)
                continue;
            // Rows ascend, so the mirror stands in front of the lower part of row `column` that is left.
            unsigned& mirror = next[static_cast<std::size_t>(column)];
            while (mirror < matrix.rowStart[column + 1] && matrix.columnIndices[mirror] < row)
                ++mirror;
            bool const both = mirror < matrix.rowStart[column + 1] && matrix.columnIndices[mirror] == row;
            half.columnIndices[end] = column;
            half.values[end++] = both ? Mean(matrix.values[k], matrix.values[mirror]) : matrix.values[k];
        }
        half.rowStart[row + 1] = end;
    }
    return half.Matrix();
}
