#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

class KVOSrvSparseMatrix;

/// About how many eigenvalues of K x = lambda M x lie below a value, told without a factorization: by the quadrature that some Lanczos
/// steps with K and the lumped mass yield from random columns (Lin, Saad, Yang, SIAM Review 58, 2016).
///
/// The steps that it takes to see the lowest eigenvalues grow with the root of the largest quotient over them. They are few for solids
/// meshed evenly; where they would be many, as for shells or in graded models, that is seen early and nothing is estimated.
class SpectrumEstimate
{
public:
    /// @param wanted  the least that will be asked for
    SpectrumEstimate(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, double wanted);

    /// A value that about so many eigenvalues lie below; none where that cannot be told.
    std::optional<double> ValueAbove(double eigenvalues) const;
    /// How many more than expected may have to be asked for, so that at least so many lie below in all but one case of forty or so.
    static double Safely(int eigenvalues);

private:
    struct Node {
        double value;
        double below; // eigenvalues
    };
    // Of random columns that take their steps at once, in one pass over the matrix. The share of the eigenvalues that one of them sees has
    // a variance of 2 / their number.
    static constexpr std::size_t kColumns = 8;
    using Columns = std::array<double, kColumns>;

    static Columns Dot(std::vector<double> const& a, std::vector<double> const& b);
    int Order() const { return static_cast<int>(m_scale.size()); }
    void Multiply(KVOSrvSparseMatrix const& stiffness);
    bool Step(KVOSrvSparseMatrix const& stiffness);
    void Evaluate();
    double Below(double value) const;
    double NodesBelow(double value, double eigenvalues) const;

    std::vector<double> m_scale;                        // of unknowns, to a lumped mass of 1
    std::vector<double> m_columns, m_before, m_product; // row by row
    Columns m_coupling{};
    std::vector<std::vector<double>> m_diagonals, m_couplings; // of what the steps from every column project
    std::vector<std::vector<Node>> m_nodes;
    bool m_resolved = false;
};
