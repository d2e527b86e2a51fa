#pragma once

#include "ReducedPair.h"

#include <memory>
#include <random>
#include <vector>

class KVOSrvScratchDenseMatrix;
class KVOSrvSparseMatrix;
class StiffnessSolver;

/// The basis X of a subspace iteration and Y = M X, both n x Columns() and out of core in scratch matrices.
class SubspaceBasis
{
public:
    /// Random columns with X^T M X = 1: `columns`, or as many as the rank of M allows.
    SubspaceBasis(KVOSrvSparseMatrix const& mass, std::vector<double> const& massDiagonal, int columns);
    ~SubspaceBasis();
    SubspaceBasis(SubspaceBasis const&) = delete;
    SubspaceBasis& operator=(SubspaceBasis const&) = delete;

    int Columns() const;
    KVOSrvScratchDenseMatrix& X() const { return *m_x; }

    /// X := A^-1 Y, then its Ritz vectors: X^T M X = 1, ascending. Columns that depend on others come out as zeros, the last ones; Fill()
    /// replaces them.
    RitzPairs Advance(StiffnessSolver& solver);

    /// Gives the basis `columns` columns, the first `kept` of which stay; the others become random ones, M-orthogonal to all before them.
    /// There are fewer of them when the basis has reached the rank of M then.
    void Fill(int kept, int columns);

private:
    void Resize(int columns);
    void Combine(KVOSrvMatrix const& combinations);
    void Randomize(int first);
    KVOSrvMatrix MassGram();

    KVOSrvSparseMatrix const& m_mass;
    std::vector<double> m_scale; // of the numbers of a random column, for a mass of about 1; 0 for massless unknowns
    std::mt19937_64 m_generator{20240229};
    std::unique_ptr<KVOSrvScratchDenseMatrix> m_x;
    std::unique_ptr<KVOSrvScratchDenseMatrix> m_y;
    std::unique_ptr<KVOSrvScratchDenseMatrix> m_z; // M times the basis after a solve
};
