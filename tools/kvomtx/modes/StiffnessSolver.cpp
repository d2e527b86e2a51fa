#include "StiffnessSolver.h"

#include "LowerEntries.h"

#include "KVOSrvMatrix.h"

#include <cholmod.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace
{

// A pivot below this share of the diagonal entry it started from is rounding error: rigid body motions leave about n * 2^-53 there.
constexpr double kSmallestPivot = 1e-12;

[[noreturn]] void Refuse(int row)
{
    throw NotPositiveDefinite("the pivot of unknown " + std::to_string(row + 1) + " is not positive");
}

// The lower triangle of K + sigma M, summed by the library's assembly.
std::unique_ptr<KVOSrvSparseMatrix> LowerTriangle(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, double shift)
{
    auto sum = std::make_unique<KVOSrvSparseMatrix>(stiffness.NumberOfRows(), stiffness.NumberOfRows());
    sum->BeginAssembly();
    auto const add = [&](KVOSrvSparseMatrix const& matrix, double factor) {
        ForEachLowerEntry(matrix, [&](int row, int column, double value) {
            sum->AddData(static_cast<unsigned>(row), static_cast<unsigned>(column), factor * value);
        });
    };
    add(stiffness, 1.0);
    if (shift != 0.0)
        add(mass, shift);
    sum->EndAssembly();
    return sum;
}

// In full, with room for the pivots of its in-core factorization.
struct InCoreFactor {
    InCoreFactor(KVOSrvSparseMatrix const& lower, int n) : matrix(n, n, nullptr, true, false), pivots(static_cast<std::size_t>(n))
    {
        matrix = 0.0;
        ForEachLowerEntry(lower, [&](int i, int j, double value) {
            auto const row = static_cast<std::size_t>(i), column = static_cast<std::size_t>(j);
            At(row, column) = At(column, row) = value;
        });
    }

    double& At(std::size_t row, std::size_t column) { return matrix.Values()[row + column * pivots.size()]; }

    KVOSrvMatrix matrix;
    std::vector<int> pivots;
};

class InCoreSolver final : public StiffnessSolver
{
public:
    InCoreSolver(KVOSrvSparseMatrix const& lower, int n) : m_factor(lower, n)
    {
        std::vector<double> diagonal(static_cast<std::size_t>(n));
        for (std::size_t i = 0; i < diagonal.size(); ++i)
            diagonal[i] = m_factor.At(i, i);

        m_factor.matrix.Factorize(m_factor.pivots.data());

        // A positive definite matrix never gives a 2 x 2 pivot block, which is marked by a negative number; rows may be exchanged.
        for (int i = 0; i < n; ++i) {
            auto const k = static_cast<std::size_t>(i);
            int const exchanged = m_factor.pivots[k];
            if (exchanged <= 0)
                Refuse(i);
            std::swap(diagonal[k], diagonal[static_cast<std::size_t>(exchanged) - 1]);
            if (!(m_factor.At(k, k) > kSmallestPivot * diagonal[k]) || !(diagonal[k] > 0.0))
                Refuse(i);
        }
    }

    void Solve(double* block, int columns) override
    {
        KVOSrvMatrix rhs(m_factor.matrix.NumberOfRows(), columns, block, false, false);
        m_factor.matrix.ForwardBackwardPass(m_factor.pivots.data(), rhs, false);
    }

    std::string Description() const override { return "in-core L D L^T of order " + std::to_string(m_factor.matrix.NumberOfRows()); }

private:
    InCoreFactor m_factor;
};

struct CholmodCommon {
    CholmodCommon()
    {
        cholmod_start(&settings);
        settings.print = 0; // our own messages only
        settings.supernodal = CHOLMOD_SUPERNODAL;
    }
    CholmodCommon(CholmodCommon const&) = delete;
    CholmodCommon& operator=(CholmodCommon const&) = delete;
    ~CholmodCommon()
    {
        cholmod_free_dense(&solution, &settings);
        cholmod_free_dense(&work1, &settings);
        cholmod_free_dense(&work2, &settings);
        cholmod_free_factor(&factor, &settings);
        cholmod_finish(&settings);
    }

    cholmod_common settings{};
    cholmod_factor* factor = nullptr;
    cholmod_dense* solution = nullptr;
    cholmod_dense* work1 = nullptr;
    cholmod_dense* work2 = nullptr;
};

class CholmodSolver final : public StiffnessSolver, private CholmodCommon
{
public:
    CholmodSolver(KVOSrvSparseMatrix const& lower, int n) { Take(lower, n); }

    void Solve(double* block, int columns) override
    {
        cholmod_dense rhs{};
        rhs.nrow = rhs.d = factor->n;
        rhs.ncol = static_cast<std::size_t>(columns);
        rhs.nzmax = rhs.nrow * rhs.ncol;
        rhs.x = block;
        rhs.xtype = CHOLMOD_REAL;
        rhs.dtype = CHOLMOD_DOUBLE;
        if (!cholmod_solve2(CHOLMOD_A, factor, &rhs, nullptr, &solution, nullptr, &work1, &work2, &settings))
            Fail("solve");
        std::copy_n(static_cast<double const*>(solution->x), rhs.nzmax, block);
    }

    std::string Description() const override
    {
        return "CHOLMOD, " + std::to_string(factor->xsize / (std::size_t{1} << 17)) + " MiB of factor";
    }

private:
    [[noreturn]] void Fail(char const* step) const
    {
        if (settings.status == CHOLMOD_OUT_OF_MEMORY || settings.status == CHOLMOD_TOO_LARGE)
            throw std::runtime_error("the memory does not hold the factor of the stiffness matrix");
        throw std::runtime_error("CHOLMOD cannot " + std::string(step) + ", status " + std::to_string(settings.status));
    }

    void Take(KVOSrvSparseMatrix const& lower, int n)
    {
        // Compressed rows of the lower triangle are compressed columns of the upper one. CHOLMOD only reads them.
        KVOSrvSparseRows const rows = lower.Rows();
        auto const order = static_cast<std::size_t>(n);
        std::vector<double> diagonal(order);
        ForEachLowerEntry(lower, [&](int row, int column, double value) {
            if (row == column)
                diagonal[static_cast<std::size_t>(row)] = value;
        });

        cholmod_sparse a{};
        a.nrow = a.ncol = order;
        a.nzmax = static_cast<std::size_t>(rows.entries);
        a.p = const_cast<unsigned*>(rows.rowStart);
        a.i = const_cast<int*>(rows.columnIndices);
        a.x = const_cast<double*>(rows.values);
        a.stype = 1;
        a.itype = CHOLMOD_INT;
        a.xtype = CHOLMOD_REAL;
        a.dtype = CHOLMOD_DOUBLE;
        a.packed = 1;
        factor = cholmod_analyze(&a, &settings);
        if (factor == nullptr)
            Fail("order the stiffness matrix");
        if (!cholmod_factorize(&a, factor, &settings))
            Fail("factor the stiffness matrix");
        auto const* const permutation = static_cast<int const*>(factor->Perm);
        if (factor->minor < order)
            Refuse(permutation[factor->minor]);
        CheckPivots(permutation, diagonal);
    }

    void CheckPivots(int const* permutation, std::vector<double> const& diagonal) const
    {
        auto const* const super = static_cast<int const*>(factor->super);
        auto const* const rowOffset = static_cast<int const*>(factor->pi);
        auto const* const valueOffset = static_cast<int const*>(factor->px);
        auto const* const values = static_cast<double const*>(factor->x);
        for (std::size_t s = 0; s < factor->nsuper; ++s) {
            int const rows = rowOffset[s + 1] - rowOffset[s];
            for (int column = super[s]; column < super[s + 1]; ++column) {
                double const pivot = values[valueOffset[s] + std::ptrdiff_t{column - super[s]} * (rows + 1)];
                int const unknown = permutation[column];
                if (!(pivot * pivot > kSmallestPivot * diagonal[static_cast<std::size_t>(unknown)]))
                    Refuse(unknown);
            }
        }
    }
};

} // namespace

std::unique_ptr<StiffnessSolver> StiffnessSolver::Factor(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, double shift)
{
    int const n = stiffness.NumberOfRows();
    auto const lower = LowerTriangle(stiffness, mass, shift);
    if (n <= kLargestInCore)
        return std::make_unique<InCoreSolver>(*lower, n);
    return std::make_unique<CholmodSolver>(*lower, n);
}

std::optional<int> StiffnessSolver::CountEigenvaluesBelow(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, double bound)
{
    int const n = stiffness.NumberOfRows();
    if (n > kLargestInCore)
        return std::nullopt;
    InCoreFactor factor(*LowerTriangle(stiffness, mass, -bound), n);
    factor.matrix.Factorize(factor.pivots.data());
    int negative = 0, inBlocks = 0;
    for (std::size_t i = 0; i < factor.pivots.size(); ++i)
        if (factor.pivots[i] < 0)
            ++inBlocks; // each of the two rows of a block, which has one negative eigenvalue
        else if (factor.At(i, i) < 0.0)
            ++negative;
    return negative + inBlocks / 2;
}
