#pragma once

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

class KVOSrvSparseMatrix;

/// The matrix K + sigma M is not safely positive definite.
class NotPositiveDefinite : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The factored matrix A = K + sigma M, symmetric positive definite, of order n.
class StiffnessSolver
{
public:
    /// Up to this order the factorization is the library's in-core one; above it is CHOLMOD's.
    static constexpr int kLargestInCore = 3000;

    /// @throws NotPositiveDefinite when a pivot is not clearly positive against the diagonal entry it started from
    static std::unique_ptr<StiffnessSolver> Factor(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, double shift);

    /// How many eigenvalues of K x = lambda M x are below `bound`: the negative pivots of K - bound M (Sylvester's law of inertia). None up
    /// to order kLargestInCore only: CHOLMOD's fast factorization has positive pivots.
    static std::optional<int> CountEigenvaluesBelow(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, double bound);

    virtual ~StiffnessSolver() = default;
    StiffnessSolver(StiffnessSolver const&) = delete;
    StiffnessSolver& operator=(StiffnessSolver const&) = delete;

    /// Replaces the n x columns block, column-major, by A^-1 times it.
    virtual void Solve(double* block, int columns) = 0;

    /// How A was factored, for reports.
    virtual std::string Description() const = 0;

protected:
    StiffnessSolver() = default;
};
