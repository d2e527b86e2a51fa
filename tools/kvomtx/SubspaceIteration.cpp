#include "SubspaceIteration.h"

#include "ReducedPair.h"
#include "StiffnessSolver.h"

#include "KVOSrvDenseMatrixSet.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <utility>

namespace
{

// Rows of a chunk, so that one of a basis of some dozens of columns has some megabytes.
constexpr int kChunkRows = 16384;
// Relative changes below this that no longer shrink are rounding error: the eigenvalue has all the digits the pair gives. A pair whose
// eigenvalues span more orders of magnitude gives fewer, see RoundingChange().
constexpr double kRoundingChange = 2e-11;
constexpr double kLargestRoundingChange = 1e-7;
// Shifts that are tried one after another while the lowest elastic eigenvalue is still far below.
constexpr int kMostShifts = 4;
constexpr int kIterationsPerShift = 4;
constexpr int kStagnantSteps = 3;

KVOSrvMatrix Full(int rows, int columns)
{
    return KVOSrvMatrix(rows, columns, nullptr, false, false);
}

std::unique_ptr<KVOSrvScratchDenseMatrix> Basis(int n, int columns)
{
    return std::make_unique<KVOSrvScratchDenseMatrix>(n, columns, std::min(n, kChunkRows), columns);
}

std::vector<double> Diagonal(KVOSrvSparseMatrix const& matrix)
{
    std::vector<double> diagonal(static_cast<std::size_t>(matrix.NumberOfRows()));
    int count = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const entries(matrix.GetEntries(count));
    for (int k = 0; k < count; ++k)
        if (entries[static_cast<std::size_t>(k)].row == entries[static_cast<std::size_t>(k)].column)
            diagonal[entries[static_cast<std::size_t>(k)].row] = entries[static_cast<std::size_t>(k)].value;
    return diagonal;
}

// The unknowns whose row of the mass matrix holds more than zeros: there are at most so many finite eigenvalues.
int CountMassive(KVOSrvSparseMatrix const& mass)
{
    std::vector<bool> massive(static_cast<std::size_t>(mass.NumberOfRows()));
    int count = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const entries(mass.GetEntries(count));
    for (std::size_t k = 0; k < static_cast<std::size_t>(count); ++k)
        if (entries[k].value != 0.0)
            massive[entries[k].row] = true;
    return static_cast<int>(std::ranges::count(massive, true));
}

class Iteration
{
public:
    Iteration(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, SubspaceSettings const& settings)
        : m_stiffness(stiffness), m_mass(mass), m_settings(settings), m_n(stiffness.NumberOfRows())
    {
        int const massive = CountMassive(mass);
        if (settings.count > massive)
            throw SubspaceFailure("the mass matrix has " + std::to_string(massive) + " unknowns with mass: there are no " +
                                  std::to_string(settings.count) + " finite modes; ask for fewer with --count");
        m_q = static_cast<int>(
            std::min<std::int64_t>({std::max<std::int64_t>(2 * std::int64_t{settings.count}, settings.count + 8), massive, m_n}));
        m_largest = QuotientsOfDiagonals().second;
        ChooseShift();
        m_x = Basis(m_n, m_q);
        m_y = Basis(m_n, m_q);
        m_z = Basis(m_n, m_q);
        StartVectors();
    }

    SubspaceResult Run(std::function<void(SubspaceProgress const&)> const& report);

private:
    std::pair<double, double> QuotientsOfDiagonals() const;
    void ChooseShift();
    void StartVectors();
    void SolveBlock();
    RitzPairs Reduce();
    double LowestElastic(std::vector<double> const& shifted) const;
    double RoundingChange(double shifted) const;
    bool MoveShift(double shift);
    std::vector<double> Residuals(std::vector<double> const& lambda);

    KVOSrvSparseMatrix const& m_stiffness;
    KVOSrvSparseMatrix const& m_mass;
    SubspaceSettings const& m_settings;
    int m_n;
    int m_q = 0;
    double m_shift = 0.0;
    bool m_chosen = false;  // the shift is ours, and not zero
    double m_largest = 0.0; // about the largest eigenvalue
    std::unique_ptr<StiffnessSolver> m_solver;
    std::unique_ptr<KVOSrvScratchDenseMatrix> m_x; // basis
    std::unique_ptr<KVOSrvScratchDenseMatrix> m_y; // M times the basis before the solve
    std::unique_ptr<KVOSrvScratchDenseMatrix> m_z; // M times the basis after it
};

// The diagonal entries of stiffness over mass are Rayleigh quotients: the lowest of them bounds the lowest eigenvalue from above, the
// largest the largest from below.
std::pair<double, double> Iteration::QuotientsOfDiagonals() const
{
    std::vector<double> const k = Diagonal(m_stiffness);
    std::vector<double> const m = Diagonal(m_mass);
    std::pair<double, double> range(std::numeric_limits<double>::infinity(), 0.0);
    for (std::size_t i = 0; i < k.size(); ++i)
        if (m[i] > 0.0 && k[i] > 0.0)
            range = {std::min(range.first, k[i] / m[i]), std::max(range.second, k[i] / m[i])};
    return range;
}

void Iteration::ChooseShift()
{
    if (m_settings.shift) {
        m_shift = *m_settings.shift;
        try {
            m_solver = StiffnessSolver::Factor(m_stiffness, m_mass, m_shift);
        } catch (NotPositiveDefinite const& exception) {
            throw SubspaceFailure("stiffness + shift * mass is not positive definite (" + std::string(exception.what()) +
                                  "); choose a greater --shift or leave it out");
        }
        return;
    }
    try {
        m_solver = StiffnessSolver::Factor(m_stiffness, m_mass, 0.0);
        return;
    } catch (NotPositiveDefinite const&) {
        // Rigid body motions: continue with a shift.
    }
    double const lowest = QuotientsOfDiagonals().first;
    if (!std::isfinite(lowest))
        throw SubspaceFailure("no unknown has both stiffness and mass");
    m_chosen = true;
    for (double share : {1e-3, 1e-1}) {
        m_shift = share * lowest;
        try {
            m_solver = StiffnessSolver::Factor(m_stiffness, m_mass, m_shift);
            return;
        } catch (NotPositiveDefinite const&) {
            continue;
        }
    }
    throw SubspaceFailure("the stiffness matrix is singular or indefinite and no shift helps: some unknowns have neither stiffness nor "
                          "mass, or the stiffness has negative eigenvalues; give a --shift greater than the largest of them in size");
}

void Iteration::StartVectors()
{
    std::mt19937_64 generator(20240229);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    KVOSrvMatrix column = Full(m_n, 1);
    for (int j = 0; j < m_q; ++j) {
        std::generate_n(column.Values(), m_n, [&] { return uniform(generator); });
        m_x->SetColumns(j, j, column);
    }
    m_mass.MultiplyDense(*m_x, *m_y, false);
}

void Iteration::SolveBlock()
{
    int const width = m_y->MaxNumberOfColumnsInBlock();
    KVOSrvMatrix block = Full(m_n, width);
    for (int b = 0; b < m_y->NumberOfColumnBlocks(); ++b) {
        int const first = m_y->FirstColumnInBlock(b);
        int const last = first + m_y->NumberOfColumnsInBlock(b) - 1;
        m_y->GetColumns(first, last, block);
        m_solver->Solve(block.Values(), last - first + 1);
        m_x->SetColumns(first, last, block);
    }
}

RitzPairs Iteration::Reduce()
{
    // One walk over the basis for both Gram matrices: [Y Z]^T X.
    KVOSrvDenseMatrix const* members[] = {m_y.get(), m_z.get()};
    KVOSrvDenseMatrixSet const set(members, 2);
    KVOSrvMatrix gram = Full(2 * m_q, m_q);
    set.TransposeMultiply(m_x.get(), gram, 0);
    KVOSrvMatrix stiffness = Full(m_q, m_q);
    KVOSrvMatrix mass = Full(m_q, m_q);
    gram.GetRows(0, m_q - 1, stiffness);
    gram.GetRows(m_q, 2 * m_q - 1, mass);
    return SolveReduced(stiffness, mass);
}

// The lowest estimate that is not a rigid body motion: clearly above the shift's own share.
double Iteration::LowestElastic(std::vector<double> const& shifted) const
{
    for (double const value : shifted)
        if (value - m_shift > 1e-3 * m_shift)
            return value - m_shift;
    return 0.0;
}

// Rounding of the stiffness matrix moves an eigenvalue by about that of the largest one.
double Iteration::RoundingChange(double shifted) const
{
    double const rounding = 4.0 * std::numeric_limits<double>::epsilon() * m_largest / shifted;
    return std::clamp(rounding, kRoundingChange, kLargestRoundingChange);
}

bool Iteration::MoveShift(double shift)
{
    try {
        auto solver = StiffnessSolver::Factor(m_stiffness, m_mass, shift);
        m_solver = std::move(solver);
        m_shift = shift;
        return true;
    } catch (NotPositiveDefinite const&) {
        return false;
    }
}

SubspaceResult Iteration::Run(std::function<void(SubspaceProgress const&)> const& report)
{
    SubspaceResult result;
    auto const count = static_cast<std::size_t>(m_settings.count);
    std::vector<double> before;
    std::vector<int> stagnant(count);
    int shifts = 1;
    int iterationsOfShift = 0;
    for (int iteration = 1;; ++iteration) {
        SolveBlock();
        m_mass.MultiplyDense(*m_x, *m_z, false);
        RitzPairs const ritz = Reduce();
        m_x->MultiplyAssign(ritz.combinations);
        m_z->MultiplyAssign(ritz.combinations);
        std::swap(m_y, m_z);

        if (ritz.shifted.size() < count)
            throw SubspaceFailure("there are only " + std::to_string(ritz.shifted.size()) +
                                  " finite modes (the mass matrix is singular); ask for fewer with --count");
        std::vector<double> change(count, std::numeric_limits<double>::infinity());
        std::vector<double> lambda(count);
        for (std::size_t i = 0; i < count; ++i) {
            lambda[i] = ritz.shifted[i] - m_shift;
            if (!before.empty())
                change[i] = std::fabs(ritz.shifted[i] - before[i]) / ritz.shifted[i];
        }
        before.assign(ritz.shifted.begin(), ritz.shifted.begin() + m_settings.count);
        int converged = 0;
        for (std::size_t i = 0; i < count; ++i) {
            bool const shrinks = result.history.empty() || change[i] < 0.9 * result.history.back()[i];
            stagnant[i] = change[i] <= RoundingChange(ritz.shifted[i]) && !shrinks ? stagnant[i] + 1 : 0;
            if (change[i] <= m_settings.tolerance || stagnant[i] >= kStagnantSteps)
                ++converged;
        }
        result.history.push_back(change);
        report({iteration, converged, m_shift, lambda, *std::max_element(change.begin(), change.end())});

        if (converged == m_settings.count) {
            result.iterations = iteration;
            break;
        }
        if (iteration == m_settings.largestIterations)
            throw SubspaceFailure("no convergence after " + std::to_string(iteration) + " iterations (" + std::to_string(converged) +
                                  " of " + std::to_string(count) + " modes); the tolerance may be below the rounding error of this pair");

        // A shift far above the lowest elastic eigenvalue makes all of them look alike: move it there once it is known roughly.
        double const elastic = LowestElastic(ritz.shifted);
        if (m_chosen && shifts < kMostShifts && ++iterationsOfShift >= kIterationsPerShift && elastic > 0.0 && elastic < 0.1 * m_shift) {
            ++shifts;
            iterationsOfShift = 0;
            if (MoveShift(elastic))
                before.clear(); // a change from here on is one of lambda + another shift
        }
    }

    result.shift = m_shift;
    result.subspace = m_q;
    result.solver = m_solver->Description();
    for (std::size_t i = 0; i < count; ++i)
        result.lambda.push_back(before[i] - m_shift);
    result.residuals = Residuals(result.lambda);
    result.modes.reset(m_x->Submatrix(0, m_n - 1, 0, m_settings.count - 1));
    return result;
}

std::vector<double> Iteration::Residuals(std::vector<double> const& lambda)
{
    // M x of the final basis stands in m_y.
    auto const n = static_cast<std::size_t>(m_n);
    std::vector<double> residuals;
    KVOSrvMatrix x = Full(m_n, 1);
    KVOSrvMatrix massX = Full(m_n, 1);
    std::vector<double> difference(n);
    std::vector<double> solved(n);
    for (std::size_t i = 0; i < lambda.size(); ++i) {
        int const column = static_cast<int>(i);
        m_x->GetColumns(column, column, x);
        m_y->GetColumns(column, column, massX);
        m_stiffness.Multiply(x.Values(), 1, difference.data(), false);
        double energy = 0.0;
        std::vector<double> reference(massX.Values(), massX.Values() + n);
        m_solver->Solve(reference.data(), 1);
        for (std::size_t k = 0; k < n; ++k) {
            difference[k] -= lambda[i] * massX.Values()[k];
            energy += massX.Values()[k] * reference[k];
        }
        solved = difference;
        m_solver->Solve(solved.data(), 1);
        double error = 0.0;
        for (std::size_t k = 0; k < n; ++k)
            error += difference[k] * solved[k];
        residuals.push_back(std::sqrt(std::max(0.0, error)) / ((lambda[i] + m_shift) * std::sqrt(energy)));
    }
    return residuals;
}

} // namespace

SubspaceResult SolveSubspace(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, SubspaceSettings const& settings,
                             std::function<void(SubspaceProgress const&)> const& report)
{
    return Iteration(stiffness, mass, settings).Run(report);
}
