#include "ModelPair.h"

#include "SubspaceIteration.h"

#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace
{

// Files hold as few as six digits: a minor of two rows that is negative by no more than their rounding is let through.
constexpr double kDigitsOfFiles = 1e-5;

struct EntryList {
    explicit EntryList(KVOSrvSparseMatrix const& matrix) : list(matrix.GetEntries(count)) {}

    std::span<KVOSrvSparseMatrixEntry const> All() const { return {list.get(), static_cast<std::size_t>(count)}; }

    int count = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> list;
};

std::vector<double> Diagonal(EntryList const& entries, int order)
{
    std::vector<double> diagonal(static_cast<std::size_t>(order));
    for (auto const& entry : entries.All())
        if (entry.row == entry.column)
            diagonal[entry.row] = entry.value;
    return diagonal;
}

// A positive semidefinite matrix has no diagonal entry below zero and no minor of two rows, m_ii m_jj - m_ij^2.
void RequireSemidefinite(EntryList const& mass, std::vector<double> const& diagonal)
{
    for (auto const& entry : mass.All()) {
        double const bound = std::sqrt(std::max(0.0, diagonal[entry.row])) * std::sqrt(std::max(0.0, diagonal[entry.column]));
        if (entry.row == entry.column ? entry.value < 0.0 : std::fabs(entry.value) > (1.0 + kDigitsOfFiles) * bound)
            throw SubspaceFailure("the mass matrix has negative eigenvalues (see row " + std::to_string(entry.row + 1) + ", column " +
                                  std::to_string(entry.column + 1) + "); give one that is positive, or zero for massless unknowns");
    }
}

} // namespace

ModelPair::ModelPair(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass)
{
    int const order = stiffness.NumberOfRows();
    EntryList const massEntries(mass);
    massDiagonal = Diagonal(massEntries, order);
    RequireSemidefinite(massEntries, massDiagonal);

    std::vector<double> const k = Diagonal(EntryList(stiffness), order);
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
