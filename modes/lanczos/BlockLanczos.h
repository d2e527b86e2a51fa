#pragma once

#include "LanczosBasis.h"
#include "Panel.h"

#include <cstdint>
#include <random>
#include <vector>

class KVOSrvSparseFactor;
class KVOSrvSparseMatrix;
class StateWords;

/// An approximate eigenpair of Op = (K - sigma M)^-1 M.
struct RitzValue {
    double theta = 0.0;    ///< 1 / (lambda - sigma)
    double residual = 0.0; ///< |Op x - theta x| in the norm of M, of an x of norm 1
};

/// Thick-restart block Lanczos of Op = (K - sigma M)^-1 M in the inner product of M, with full reorthogonalization, the basis out of core
/// (Grimes, Lewis, Simon, SIAM J. Matrix Anal. Appl. 15, 1994; Wu, Simon, SIAM J. Matrix Anal. Appl. 22, 2000).
///
/// With the basis V, V^T M V = 1, and the block F behind it: Op V = V T + F B. Every column of T is formed by projection on all of V, so
/// random columns may be put in at any time: where F vanishes, and where a mode is looked for that the basis does not know.
class BlockLanczos
{
public:
    /// @param factor        K - sigma M, factored; it and the mass outlive the object
    /// @param massDiagonal  of M: random columns are scaled by it, 0 for massless unknowns
    /// @param block         columns of a step
    /// @param capacity      columns of V
    /// @param seed          of the random columns: where a mode was missed, others must do
    BlockLanczos(KVOSrvSparseFactor& factor, KVOSrvSparseMatrix const& mass, std::vector<double> const& massDiagonal, int block,
                 int capacity, unsigned seed = 1);
    /// One that was kept: from the words that Exchange() wrote, without V, whose columns follow by AppendKept().
    BlockLanczos(KVOSrvSparseFactor& factor, KVOSrvSparseMatrix const& mass, std::vector<double> const& massDiagonal, StateWords& kept);

    /// Writes all there is but V. It goes on from there to the bit.
    void Exchange(StateWords& words);
    void AppendKept(KVOSrvMatrix const& columns) { m_basis.Append(columns); }
    void ReadBasis(int first, KVOSrvMatrix& columns) const { m_basis.Read(first, columns); }

    /// Puts eigenvectors that are known, M-orthonormal, into V, which is empty yet, and F outside of them.
    void Lock(Panel const& vectors, std::vector<double> const& theta);
    /// Takes F into V and forms the next one. Not when IsComplete(); there must be room for a block in V.
    void Step();
    /// From now on those with a negative theta, which lie below sigma, are the first Ritz pairs; not kept by Exchange().
    void PreferNegative();
    /// Ritz pairs of V, the largest |theta| first.
    std::vector<RitzValue> const& Ritz();
    /// The Ritz vectors first .. first + count - 1.
    Panel Vectors(int first, int count);
    /// Makes the first `kept` Ritz vectors the basis.
    void Restart(int kept);
    /// Random columns instead of F, `block` of them: what Op V has outside of V is given up, so keep what has converged only.
    void Refresh(int block);

    /// No column was left that does not depend on the others: V holds all modes.
    bool IsComplete() const noexcept { return m_next.columns == 0; }
    int Columns() const noexcept { return m_basis.Columns(); }
    int Capacity() const { return m_basis.Capacity(); }
    int Block() const noexcept { return m_block; }
    bool HasRoom() const { return Columns() + m_next.columns <= Capacity(); }
    void Reserve(int capacity);

private:
    // A block is V inside + F outside.
    struct Parts {
        Panel inside, outside;
    };

    void AddRandom(int columns);
    Panel MassTimes(Panel const& block) const;
    Panel TakeOut(Panel& block, Panel& massBlock) const;
    Parts Extend(Panel block);
    void Decompose();
    void ExchangeRest(StateWords& words);

    KVOSrvSparseFactor& m_factor;
    KVOSrvSparseMatrix const& m_mass;
    std::vector<double> m_scale; // of the numbers of a random column
    int m_order;
    int m_block;
    std::mt19937_64 m_generator;
    LanczosBasis m_basis;
    std::vector<std::vector<double>> m_projected; // T, column by column
    Panel m_next;                                 // F
    Panel m_massNext;                             // M F
    Panel m_coupling;                             // B
    bool m_decomposed = false;
    bool m_prefersNegative = false;
    std::vector<RitzValue> m_ritz;
    Panel m_combinations; // of V: the Ritz vectors
};
