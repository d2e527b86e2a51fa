#include "ModelPair.h"

#include "KVOSrvModesFailure.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <string>

namespace
{

// Files hold as few as six digits: a minor of two rows that is negative by no more than their rounding is let through.
constexpr double kDigitsOfFiles = 1e-5;

// Every stored entry; in half storage each one off the diagonal stands for its mirror image, too.
template<class Take>
void ForEachStored(KVOSrvSparseMatrix const& matrix, Take const& take)
{
    KVOSrvSparseRows const rows = matrix.Rows();
    for (int i = 0; i < rows.rows; ++i) {
        for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k)
            take(i, rows.columnIndices[k], rows.values[k]);
        if (rows.diagonal != nullptr)
            take(i, i, rows.diagonal[i]);
    }
}

[[noreturn]] void Refuse(std::string const& reason, int line = __builtin_LINE())
{
    KVOSrvModesFailure(KVOSrvModesFailure::Pair, reason).Throw("modes/ModelPair", line);
}

std::vector<double> Diagonal(KVOSrvSparseMatrix const& matrix, std::vector<char>& isUsed)
{
    std::vector<double> diagonal(isUsed.size());
    ForEachStored(matrix, [&](int row, int column, double value) {
        auto const i = static_cast<std::size_t>(row), j = static_cast<std::size_t>(column);
        if (i == j)
            diagonal[i] = value;
        if (value != 0.0)
            isUsed[i] = isUsed[j] = 1;
    });
    return diagonal;
}

// A positive semidefinite matrix has no diagonal entry below zero and no minor of two rows, m_ii m_jj - m_ij^2.
void RequireSemidefinite(KVOSrvSparseMatrix const& mass, std::vector<double> const& diagonal)
{
    ForEachStored(mass, [&](int row, int column, double value) {
        auto const root = [&](int i) { return std::sqrt(std::max(0.0, diagonal[static_cast<std::size_t>(i)])); };
        if (row == column ? value < 0.0 : std::fabs(value) > (1.0 + kDigitsOfFiles) * root(row) * root(column))
            Refuse("the mass matrix has negative eigenvalues (see row " + std::to_string(row + 1) + ", column " +
                   std::to_string(column + 1) + "); give one that is positive, or zero for massless unknowns");
    });
}

} // namespace

ModelPair::ModelPair(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass)
{
    std::vector<char> isUsed(static_cast<std::size_t>(stiffness.NumberOfRows()));
    massDiagonal = Diagonal(mass, isUsed);
    RequireSemidefinite(mass, massDiagonal);
    std::vector<double> const k = Diagonal(stiffness, isUsed);
    if (auto const unused = std::ranges::find(isUsed, 0); unused != isUsed.end())
        Refuse("unknown " + std::to_string(unused - isUsed.begin() + 1) +
               " has neither stiffness nor mass (its rows of both matrices are zero); leave it out of the model");
    negative = static_cast<int>(std::ranges::find_if(k, [](double entry) { return entry < 0.0; }) - k.begin()) + 1;
    if (negative > static_cast<int>(k.size()))
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
