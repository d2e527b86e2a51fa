#include "ModelPair.h"

#include "LowerEntries.h"
#include "SubspaceIteration.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace
{

// Files hold as few as six digits: a minor of two rows that is negative by no more than their rounding is let through.
constexpr double kDigitsOfFiles = 1e-5;

std::vector<double> Diagonal(KVOSrvSparseMatrix const& matrix)
{
    std::vector<double> diagonal(static_cast<std::size_t>(matrix.NumberOfRows()));
    ForEachLowerEntry(matrix, [&](int row, int column, double value) {
        if (row == column)
            diagonal[static_cast<std::size_t>(row)] = value;
    });
    return diagonal;
}

// A positive semidefinite matrix has no diagonal entry below zero and no minor of two rows, m_ii m_jj - m_ij^2.
void RequireSemidefinite(KVOSrvSparseMatrix const& mass, std::vector<double> const& diagonal)
{
    auto const root = [&](int row) { return std::sqrt(std::max(0.0, diagonal[static_cast<std::size_t>(row)])); };
    ForEachLowerEntry(mass, [&](int row, int column, double value) {
        if (row == column ? value < 0.0 : std::fabs(value) > (1.0 + kDigitsOfFiles) * (root(row) * root(column)))
            throw SubspaceFailure("the mass matrix has negative eigenvalues (see row " + std::to_string(row + 1) + ", column " +
                                  std::to_string(column + 1) + "); give one that is positive, or zero for massless unknowns");
    });
}

} // namespace

ModelPair::ModelPair(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass)
{
    int const order = stiffness.NumberOfRows();
    massDiagonal = Diagonal(mass);
    RequireSemidefinite(mass, massDiagonal);

    std::vector<double> const k = Diagonal(stiffness);
    negative = static_cast<int>(std::ranges::find_if(k, [](double entry) { return entry < 0.0; }) - k.begin()) + 1;
    if (negative > order)
        negative = 0;
    double smallest = std::numeric_limits<double>::infinity();
    for (std::size_t i = 0; i < k.size(); ++i) {
        if (massDiagonal[i] > 0.0)
            largest = std::max(largest, std::fabs(k[i]) / massDiagonal[i]);
        if (massDiagonal[i] > 0.0 && k[i] > 0.0)
            smallest = std::min(smallest, k[i] / massDiagonal[i]);
    }
    lowest = std::isfinite(smallest) ? smallest : 0.0;
}

int ModelPair::Massive() const
{
    return static_cast<int>(std::ranges::count_if(massDiagonal, [](double entry) { return entry > 0.0; }));
}
