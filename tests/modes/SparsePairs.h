#pragma once

#include "Dense.h"

#include "KVOSrvSparseMatrix.h"

#include <memory>
#include <random>
#include <vector>

/// All entries that are not 0.
inline std::unique_ptr<KVOSrvSparseMatrix> Sparse(Dense const& dense)
{
    auto matrix = std::make_unique<KVOSrvSparseMatrix>(dense.rows, dense.columns);
    matrix->BeginAssembly();
    for (int i = 0; i < dense.rows; ++i)
        for (int j = 0; j < dense.columns; ++j)
            if (dense.At(i, j) != 0.0)
                matrix->AddData(static_cast<unsigned>(i), static_cast<unsigned>(j), dense.At(i, j));
    matrix->EndAssembly();
    return matrix;
}

inline Dense DiagonalMatrix(std::vector<double> const& values)
{
    Dense matrix(static_cast<int>(values.size()), static_cast<int>(values.size()));
    for (int i = 0; i < matrix.rows; ++i)
        matrix.At(i, i) = values[static_cast<std::size_t>(i)];
    return matrix;
}

/// A pair whose eigenvalues are known: K = L Q diag(lambda) Q^T L^T and M = L L^T with Q orthogonal, L bidiagonal with a unit diagonal.
/// Unknowns without mass follow, tied to the others by springs of stiffness 1, which leaves the eigenvalues what they are.
struct KnownPair {
    KnownPair(std::vector<double> lambda, int massless, unsigned seed)
        : stiffness(DiagonalMatrix(lambda)), mass(DiagonalMatrix(Vector(lambda.size(), 1.0)))
    {
        std::mt19937 generator(seed);
        std::uniform_real_distribution<double> uniform(-1.0, 1.0);
        int const n = stiffness.rows;
        for (int rotation = 0; rotation < 4 * n && n > 1; ++rotation) {
            int const p = static_cast<int>(generator() % static_cast<unsigned>(n)),
                      q = (p + 1 + static_cast<int>(generator() % static_cast<unsigned>(n - 1))) % n;
            double const angle = 3.0 * uniform(generator);
            Combine(stiffness, p, q, std::cos(angle), std::sin(angle));
        }
        for (int i = n - 1; i > 0; --i) {
            double const factor = 0.5 * uniform(generator);
            for (Dense* const matrix : {&stiffness, &mass})
                AddMultiple(*matrix, i, i - 1, factor);
        }
        if (massless > 0)
            Condense(n, massless);
    }

    Dense stiffness, mass;

private:
    static void Combine(Dense& a, int p, int q, double c, double s)
    {
        for (int pass = 0; pass < 2; ++pass)
            for (int k = 0; k < a.rows; ++k) {
                double& x = pass == 0 ? a.At(p, k) : a.At(k, p);
                double& y = pass == 0 ? a.At(q, k) : a.At(k, q);
                double const turned = c * x - s * y;
                y = s * x + c * y;
                x = turned;
            }
    }
    // Row and column `to` += factor times row and column `from`.
    static void AddMultiple(Dense& a, int to, int from, double factor)
    {
        for (int k = 0; k < a.rows; ++k)
            a.At(to, k) += factor * a.At(from, k);
        for (int k = 0; k < a.rows; ++k)
            a.At(k, to) += factor * a.At(k, from);
    }
    // A massless unknown y with the energy (y - x_i)^2 follows x_i and adds nothing.
    void Condense(int n, int massless)
    {
        Dense larger(n + massless, n + massless), largerMass(n + massless, n + massless);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                larger.At(i, j) = stiffness.At(i, j);
                largerMass.At(i, j) = mass.At(i, j);
            }
        for (int k = 0; k < massless; ++k) {
            int const i = k % n;
            larger.At(i, i) += 1.0;
            larger.At(n + k, n + k) = 1.0;
            larger.At(i, n + k) = larger.At(n + k, i) = -1.0;
        }
        stiffness = larger;
        mass = largerMass;
    }
};
