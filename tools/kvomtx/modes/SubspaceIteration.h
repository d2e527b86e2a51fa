#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

class KVOSrvDenseMatrix;
class KVOSrvSparseMatrix;

struct SubspaceSettings {
    int count = 10;              ///< modes wanted, the lowest
    std::optional<double> shift; ///< none: 0 where the stiffness is positive definite, else chosen
    double tolerance = 1e-11;    ///< of what an eigenvalue still has to fall when it counts as found, see Convergence
    int largestIterations = 300;
};

/// Where an iteration stands.
struct SubspaceProgress {
    int iteration;
    int converged;        ///< of the wanted modes
    double largestChange; ///< of their lambda + shift, relative
};

struct SubspaceResult {
    std::vector<double> lambda;               ///< ascending
    std::vector<double> residuals;            ///< per mode, see Solve()
    std::vector<std::vector<double>> history; ///< per iteration and wanted mode: the relative change of the eigenvalue
    std::unique_ptr<KVOSrvDenseMatrix> modes; ///< n x count, column i the mode of lambda[i], scaled to x^T M x = 1
    double shift = 0.0;
    int iterations = 0;
    int subspace = 0;
    std::string solver;
};

/// The iteration cannot give what was asked for; the text says why and what to do.
class SubspaceFailure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The lowest eigenpairs of K x = lambda M x by block subspace iteration with a Rayleigh-Ritz step (Bathe and Wilson), the basis out of
/// core in scratch matrices.
///
/// One step, with A = K + shift M factored once: X := A^-1 Y, Z := M X, the reduced pair X^T Y and X^T Z, its eigenvectors Q, then
/// X := X Q and Y := Z Q. The pair is solved as M against K, so that massless unknowns (a singular M) do no harm; columns that
/// depend on others are replaced by random ones. The shift begins with the one given or chosen; where it makes the modes look alike it
/// is moved to just below them, and a basis that is too narrow for a cluster of eigenvalues is widened.
///
/// Up to the order of the in-core factorization the eigenvalues below the last one are counted at the end, so that none is missed.
///
/// Residual of a mode: |K x - lambda M x| over |M x|, both in the norm of A^-1, over the greater of lambda and lambda + shift. It bounds
/// the distance of lambda to the nearest eigenvalue, relative to the same.
///
/// @param stiffness,mass  symmetric, of one order n
/// @param report          called after every iteration; what it throws ends the iteration
/// @throws SubspaceFailure  fewer finite modes than asked for, not positive definite with the shift given, a mass matrix with
///                          negative eigenvalues, no convergence
SubspaceResult SolveSubspace(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, SubspaceSettings const& settings,
                             std::function<void(SubspaceProgress const&)> const& report);
