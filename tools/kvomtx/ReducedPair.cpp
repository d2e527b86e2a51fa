#include "ReducedPair.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace
{

// Directions of the reduced stiffness below this share of the largest are rounding error.
constexpr double kRankTolerance = 1e-13;

KVOSrvMatrix Full(int rows, int columns)
{
    return KVOSrvMatrix(rows, columns, nullptr, false, false);
}

// A symmetric eigenproblem needs exact symmetry; the two triangles of a computed Gram matrix differ by rounding.
void Symmetrize(KVOSrvMatrix& matrix)
{
    int const n = matrix.NumberOfRows();
    double* const a = matrix.Values();
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < j; ++i) {
            double& upper = a[i + std::ptrdiff_t{j} * n];
            double& lower = a[j + std::ptrdiff_t{i} * n];
            upper = lower = 0.5 * (upper + lower);
        }
}

// Eigenpairs of a symmetric matrix, ascending.
void Decompose(KVOSrvMatrix const& matrix, std::vector<double>& values, KVOSrvMatrix& vectors)
{
    int const n = matrix.NumberOfRows();
    values.assign(static_cast<std::size_t>(n), 0.0);
    std::vector<double> const ones(static_cast<std::size_t>(n), 1.0);
    KVOSrvMatrix identity = Full(n, n);
    identity = 0.0;
    identity.SetDiagonal(ones.data());
    KVOSrvMatrix eigenvalues(n, 1, values.data(), false, false);
    matrix.SolveEigenproblemSymmetric(identity, eigenvalues, vectors);
}

} // namespace

RitzPairs SolveReduced(KVOSrvMatrix& stiffness, KVOSrvMatrix& mass)
{
    int const q = stiffness.NumberOfRows();
    Symmetrize(stiffness);
    Symmetrize(mass);
    // Equilibrate first: the columns of the basis differ by orders of magnitude.
    std::vector<double> scale(static_cast<std::size_t>(q));
    for (int i = 0; i < q; ++i) {
        double const entry = stiffness.Values()[i + std::ptrdiff_t{i} * q];
        scale[static_cast<std::size_t>(i)] = entry > 0.0 ? 1.0 / std::sqrt(entry) : 0.0;
    }
    for (int j = 0; j < q; ++j)
        for (int i = 0; i < q; ++i) {
            double const factor = scale[static_cast<std::size_t>(i)] * scale[static_cast<std::size_t>(j)];
            stiffness.Values()[i + std::ptrdiff_t{j} * q] *= factor;
            mass.Values()[i + std::ptrdiff_t{j} * q] *= factor;
        }

    std::vector<double> energy;
    KVOSrvMatrix directions = Full(q, q);
    Decompose(stiffness, energy, directions);
    auto const first =
        std::find_if(energy.begin(), energy.end(), [&](double e) { return e > kRankTolerance * energy.back(); }) - energy.begin();
    int const rank = q - static_cast<int>(first);
    KVOSrvMatrix whitening = Full(q, rank);
    for (int j = 0; j < rank; ++j)
        for (int i = 0; i < q; ++i)
            whitening.Values()[i + std::ptrdiff_t{j} * q] =
                directions.Values()[i + (first + j) * q] / std::sqrt(energy[static_cast<std::size_t>(first + j)]);
    KVOSrvMatrix massTimes = Full(q, rank);
    massTimes.Multiply(mass, whitening);
    KVOSrvMatrix whiteMass = Full(rank, rank);
    whitening.TransposeMultiply(massTimes, whiteMass, 0, 0);
    Symmetrize(whiteMass);
    std::vector<double> mu;
    KVOSrvMatrix vectors = Full(rank, rank);
    Decompose(whiteMass, mu, vectors);

    RitzPairs ritz{{}, Full(q, q)};
    ritz.combinations = 0.0;
    KVOSrvMatrix product = Full(q, rank);
    product.Multiply(whitening, vectors);
    for (int k = 0; k < rank; ++k) { // largest mu first: lowest lambda
        int const from = rank - 1 - k;
        double const value = mu[static_cast<std::size_t>(from)];
        if (!(value > 0.0))
            break;
        ritz.shifted.push_back(1.0 / value);
        double const factor = 1.0 / std::sqrt(value);
        for (int i = 0; i < q; ++i)
            ritz.combinations.Values()[i + std::ptrdiff_t{k} * q] =
                factor * scale[static_cast<std::size_t>(i)] * product.Values()[i + std::ptrdiff_t{from} * q];
    }
    return ritz;
}
