#include "ReducedPair.h"

#include "Rotations.h"
#include "Whitening.h"

#include "KVOSrvModesFailure.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>
#include <utility>

namespace
{

// A column of which less is left is dropped: the rounding of what is left, 2^-53 over it, is then below kNegativeMass of the largest mass.
constexpr double kDependent = 1e-8;
// A negative share of the largest reduced mass beyond that rounding: the mass matrix is not positive semidefinite.
constexpr double kNegativeMass = 1e-6;
// Below it a few sweeps of rotations suffice. Above it the basis has yet to turn to the modes.
constexpr double kNearlyDiagonal = 0.1;
// A tridiagonal method, the faster one, keeps twelve digits of every eigenvalue when they are no farther apart.
constexpr double kCloseEigenvalues = 1e3;

// Both triangles become their mean: those of a computed Gram matrix differ by rounding.
void Symmetrize(Panel& matrix)
{
    for (int j = 0; j < matrix.columns; ++j)
        for (int i = 0; i < j; ++i)
            matrix.At(i, j) = matrix.At(j, i) = 0.5 * matrix.At(i, j) + 0.5 * matrix.At(j, i);
}

void Prepare(Panel& matrix)
{
    if (!std::ranges::all_of(matrix.values, [](double value) { return std::isfinite(value); }))
        KVOSrvModesFailure(KVOSrvModesFailure::Pair,
                           "the entries of the stiffness and the mass are too far apart for products of them; choose other units")
            .Throw("modes/ReducedPair", __LINE__);
    Symmetrize(matrix);
}

// Scales both so that the first has a diagonal of 1: the columns of the basis differ by orders of magnitude. Returns the factors.
std::vector<double> Equilibrate(Panel& first, Panel& second)
{
    std::vector<double> scale;
    for (int i = 0; i < first.rows; ++i)
        scale.push_back(first.At(i, i) > 0.0 ? 1.0 / std::sqrt(first.At(i, i)) : 0.0);
    for (Panel* const matrix : {&first, &second})
        for (int j = 0; j < matrix->columns; ++j)
            for (int i = 0; i < matrix->rows; ++i) // one factor after the other: their product may overflow
                (matrix->At(i, j) *= scale[static_cast<std::size_t>(i)]) *= scale[static_cast<std::size_t>(j)];
    return scale;
}

bool IsGraded(Panel const& matrix)
{
    double smallest = HUGE_VAL, largest = 0.0;
    for (int i = 0; i < matrix.rows; ++i) {
        smallest = std::min(smallest, matrix.At(i, i));
        largest = std::max(largest, matrix.At(i, i));
    }
    return smallest * kCloseEigenvalues < largest;
}

std::vector<double> Decompose(Panel& matrix)
{
    return IsGraded(matrix) && LargestCoupling(matrix) < kNearlyDiagonal ? EigenpairsByRotations(matrix) : Eigenpairs(matrix);
}

// Eigenpairs of `second` in the inner product of `first`, whose place their combinations take, scaled to 1 in that product.
std::vector<double> SolveIn(Panel& first, Panel& second)
{
    std::vector<double> const scale = Equilibrate(first, second);
    Panel const whitening = Whitening(first, kDependent);
    Panel white = TransposeTimes(whitening, Times(second, whitening));
    Symmetrize(white);
    std::vector<double> values = Decompose(white);
    first = Times(whitening, white);
    for (int j = 0; j < first.columns; ++j)
        for (int i = 0; i < first.rows; ++i)
            first.At(i, j) *= scale[static_cast<std::size_t>(i)];
    return values;
}

} // namespace

RitzPairs SolveDefinitePair(Panel stiffness, Panel mass)
{
    Prepare(stiffness);
    Prepare(mass);
    std::vector<double> const mu = SolveIn(stiffness, mass);
    int const rank = static_cast<int>(mu.size());
    RitzPairs ritz{{}, Panel(stiffness.rows, rank)};
    ritz.indefinite = rank > 0 && mu.front() < -kNegativeMass * std::max(mu.back(), -mu.front());
    int kept = 0;
    for (; kept < rank; ++kept) { // largest mu first: lowest lambda
        int const from = rank - 1 - kept;
        double const value = mu[static_cast<std::size_t>(from)];
        if (!(value > 0.0))
            break;
        ritz.shifted.push_back(1.0 / value);
        for (int i = 0; i < stiffness.rows; ++i)
            ritz.combinations.At(i, kept) = stiffness.At(i, from) / std::sqrt(value);
    }
    ritz.combinations.Cut(kept);
    return ritz;
}

RitzPairs SolveIndefinitePair(Panel stiffness, Panel mass)
{
    Prepare(stiffness);
    Prepare(mass);
    std::vector<double> const values = SolveIn(mass, stiffness);
    std::vector<int> order(values.size());
    std::iota(order.begin(), order.end(), 0);
    std::ranges::sort(order, {}, [&](int i) { return std::fabs(values[static_cast<std::size_t>(i)]); });
    RitzPairs ritz{{}, Panel(mass.rows, static_cast<int>(order.size()))};
    for (std::size_t j = 0; j < order.size(); ++j) {
        ritz.shifted.push_back(values[static_cast<std::size_t>(order[j])]);
        std::copy_n(mass.Column(order[j]), mass.rows, ritz.combinations.Column(static_cast<int>(j)));
    }
    return ritz;
}
