#pragma once

#include "KVOExport.h"
#include "mem_Allocator.h"

#include <cstdint>
#include <memory>

class KVOSrvMatrix;
class KVOSrvSparseMatrix;

/// What a factorization may take, and what is known of the matrix.
struct KVOSrvFactorSettings {
    /// Bytes that the factorization and what it needs of the matrices may take in memory, beside them; 0: no limit.
    /// Where the factor does not fit it is kept on the disk.
    std::int64_t memory = 0;
    /// Keeps the factor on the disk in any case.
    bool onDisk = false;
    /// Folder of the factor's files; null: KVOSrvUtilities::GetTempDirectory(). They go with the object.
    char const* folder = nullptr;
};

/// What a factorization took.
struct KVOSrvFactorAccount {
    std::int64_t unknowns = 0;      ///< the order
    std::int64_t entries = 0;       ///< of the lower triangle of the matrix
    std::int64_t factorEntries = 0; ///< of the factor
    double flops = 0.0;             ///< of the last factorization; before the first one what the order lets expect
    std::int64_t memory = 0;        ///< bytes taken while factoring
    bool onDisk = false;            ///< the last factor is kept there
    int orderings = 0;              ///< of the unknowns
    int factorizations = 0;         ///< one for each shift
    std::int64_t solvedColumns = 0; ///< right-hand sides
    double orderingSeconds = 0.0;   ///< for the order and the plan of the elimination
    double factorSeconds = 0.0;     ///< of all factorizations
    double solveSeconds = 0.0;      ///< of all solves
};

/// The symmetric factor A = L D L^T, D of 1 x 1 and 2 x 2 blocks, of A = K + shift M with sparse symmetric K and M.
///
/// The unknowns are put in order once, by nested dissection of the graph of K and M (METIS); every shift is factored in
/// that order, by the multifrontal method (MUMPS; Amestoy, Duff, Koster, L'Excellent, SIAM J. Matrix Anal. Appl. 23,
/// 2001). A is scaled by powers of two to a diagonal of about 1 before. One factorization or solve at a time runs in a
/// process: objects of other threads wait.
class KVO_EXPORT KVOSrvSparseFactor : public mem_AllocationOperators
{
public:
    /// Orders the unknowns. The matrices belong to the caller and outlive the factor, unchanged.
    /// @param stiffness  K: square, symmetric, assembled; half or full storage, of which the lower triangle is read
    /// @param mass       M, of the order of K; null: none
    /// @throws KVOSrvMtxIllegalInput "KVOSrvSparseFactor" when they are not square or of one order
    KVOSrvSparseFactor(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const* mass,
                       KVOSrvFactorSettings const& settings = {});
    KVOSrvSparseFactor(KVOSrvSparseFactor const&) = delete;
    KVOSrvSparseFactor& operator=(KVOSrvSparseFactor const&) = delete;
    ~KVOSrvSparseFactor();

    /// Factors K + shift M; an earlier factor goes.
    /// @param positiveDefinite  the matrix is taken for it: no rows are exchanged, which is faster. Where it is not,
    ///                          NegativePivots() or ZeroPivots() tells, and with ZeroPivots() there is no factor; a
    ///                          pivot that is nothing but rounding error may pass for positive
    /// @throws KVOSrvModesFailure  a limit of memory that is too small (the text names the least that would do), a
    ///                             full disk
    void Factorize(double shift, bool positiveDefinite);

    /// So many bytes of the limit are the caller's, from the next factorization on.
    void Reserve(std::int64_t bytes) noexcept;

    /// Replaces the columns of `block`, order x any number, full, by A^-1 times them. Null pivots count as infinite:
    /// their unknowns come out as 0.
    /// @throws KVOSrvMtxIllegalInput "Solve" when nothing is factored or the block has other rows
    void Solve(KVOSrvMatrix& block);

    /// Rows, and columns, of A.
    int Order() const noexcept;
    /// How many eigenvalues of A are negative (Sylvester's law of inertia).
    int NegativePivots() const noexcept;
    /// Pivots that are nothing but rounding error, 1e-12 of the diagonal entry they started from.
    int ZeroPivots() const noexcept;
    /// What was done until now.
    KVOSrvFactorAccount const& Account() const noexcept;

private:
    class Repr;
    std::unique_ptr<Repr> m_repr;
};
