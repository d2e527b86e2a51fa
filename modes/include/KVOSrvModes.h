#pragma once

#include "KVOExport.h"
#include "KVOSrvSparseFactor.h"
#include "mem_Allocator.h"

#include <cstdint>
#include <memory>
#include <optional>

class KVOSrvDenseMatrix;
class KVOSrvSparseMatrix;

/// What is wanted of a pair, and what it may take.
struct KVOSrvModesSettings {
    int count = 10;               ///< modes wanted, the lowest; not read where there is a range
    std::optional<double> from;   ///< with `to`: all modes whose eigenvalue lies between them, instead of the lowest
    std::optional<double> to;     ///< see `from`
    std::optional<double> shift;  ///< K + shift M is factored first; none: 0 where K is positive definite, else chosen
    double tolerance = 1e-10;     ///< largest residual, see KVOSrvModes
    bool certify = true;          ///< counts the eigenvalues below the last one, which may take one factorization more
    std::int64_t memory = 0;      ///< bytes that factor and search may take beside matrices and ordering; 0: none
    char const* folder = nullptr; ///< of scratch files; null: KVOSrvUtilities::GetTempDirectory()
    /// Database file that the search is kept in, every few steps, so that it can go on after the end of its process: at
    /// most a twentieth of the time goes there. It is made, and must not be there, unless `resume` is set. It stays the
    /// caller's to remove, also when the search has ended well; one that fails before its first step removes it. Null:
    /// nothing is kept.
    char const* keep = nullptr;
    /// Goes on with the search in the file `keep`, and keeps it there: the factor is computed again, and the result is
    /// that of one that was never interrupted, to the bit where the provider gives the same bits for the same product.
    /// Matrices and settings are those that it was begun with, but for `memory` and `folder`. One that has ended
    /// answers at once.
    bool resume = false;
};

/// Where a search stands.
struct KVOSrvModesProgress {
    char const* doing;                 ///< "ordering", "factoring", "searching", "counting"
    int step = 0;                      ///< of the search
    int found = 0;                     ///< modes
    int wanted = 0;                    ///< of them
    double share = 0.0;                ///< about what is done, 0 to 1
    int residualCount = 0;             ///< of `residuals`
    double const* residuals = nullptr; ///< while searching: of the approximate modes, relative to 1 / (lambda - sigma)
    double flops = 0.0;                ///< while factoring and counting: about what the factorization takes
};

/// What a search took.
struct KVOSrvModesAccount {
    KVOSrvFactorAccount factor; ///< of ordering, factorizations and solves
    double shift = 0.0;         ///< the last one: K + shift M was factored
    int shifts = 0;             ///< factored to search with
    int steps = 0;              ///< blocks that were solved for
    int restarts = 0;           ///< of the basis
    int block = 0;              ///< columns of a step
    int basis = 0;              ///< most columns held at once
    bool certified = false;     ///< the eigenvalues were counted: none is missing
    double searchSeconds = 0.0; ///< without ordering, factoring and solving
};

/// The lowest eigenpairs of K x = lambda M x, or all of an interval; K and M symmetric, M positive semidefinite.
///
/// Thick-restart block Lanczos with shift-invert (see docs/modes.md), its basis in a scratch matrix. Massless unknowns
/// and rigid body modes are no hindrance. The eigenvalues below a bound behind the last mode are counted by the
/// inertia of K - bound M (Sylvester): a mode that was missed is looked for, and one that is not found is an error.
/// Where the spectrum can be estimated, the count comes first, and its factor serves the search, too.
///
/// Residual of a mode: |x - (lambda - sigma) A^-1 M x| with A = K - sigma M, sigma minus the shift: in the norm of A
/// over that of x where A is positive definite, else, in an interval or below a bound, in the norm of M, in which x has
/// norm 1. It bounds the distance of 1 / (lambda - sigma) to that of the nearest eigenvalue, relatively.
class KVO_EXPORT KVOSrvModes : public mem_AllocationOperators
{
public:
    /// Called between the steps of a search; what it throws ends the search and leaves nothing behind. One
    /// factorization or solve is waited for.
    using Report = void (*)(void* context, KVOSrvModesProgress const& progress);

    /// Computes the modes.
    /// @param stiffness,mass  of one order, assembled; they are read only
    /// @throws KVOSrvMtxIllegalInput "KVOSrvModes" when they are not square or of one order, or the count is below 1
    /// @throws KVOSrvModesFailure  see its kinds
    KVOSrvModes(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass,
                KVOSrvModesSettings const& settings, Report report = nullptr, void* context = nullptr);
    KVOSrvModes(KVOSrvModes const&) = delete;
    KVOSrvModes& operator=(KVOSrvModes const&) = delete;
    ~KVOSrvModes();

    /// Modes that were found.
    int Count() const noexcept;
    double const* Eigenvalues() const noexcept; ///< Count() of them, ascending
    double const* Residuals() const noexcept;   ///< of each
    /// Order x Count(), a mode a column, scaled to x^T M x = 1; on a scratch file that goes with this object. Not when
    /// there are none.
    KVOSrvDenseMatrix const& Modes() const;
    /// What was done.
    KVOSrvModesAccount const& Account() const noexcept;

private:
    struct Repr;
    std::unique_ptr<Repr> m_repr;
};
