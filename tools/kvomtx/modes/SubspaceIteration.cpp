#include "SubspaceIteration.h"

#include "Convergence.h"
#include "ModelPair.h"
#include "StiffnessSolver.h"
#include "SubspaceBasis.h"

#include "KVOSrvMatrix.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <utility>

namespace
{

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
// Shares of the lowest quotient of the diagonals that are tried as a shift when the stiffness is singular.
constexpr double kFirstShares[] = {1e-3, 1e-1};
// A shift so many times the largest quotient of the diagonals leaves too few digits of the stiffness to go on from.
constexpr double kLargestShift = 1e3;
// Modes whose lambda + shift is more than so many times as far from 0 as from one another converge slowly: the factor of the error is
// then above ((2 + 1/2) / (2 + 1))^2 for the middle one of the basis.
constexpr double kAlike = 2.0;
// Where a better shift puts the lowest eigenvalue, as a share of the spread of the basis: closer gains little.
constexpr double kMargin = 0.1;
constexpr int kMostShifts = 8;
constexpr int kIterationsPerShift = 4;  // until the Ritz values tell where the modes are
constexpr int kIterationsPerBasis = 30; // a basis that takes longer is too narrow for its cluster of eigenvalues

std::string Text(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

class Iteration
{
public:
    Iteration(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, SubspaceSettings const& settings)
        : m_stiffness(stiffness), m_mass(mass), m_settings(settings), m_pair(stiffness, mass), m_n(stiffness.NumberOfRows()),
          m_convergence(settings.count, settings.tolerance, m_pair.largest)
    {
        if (settings.count > m_pair.Massive())
            throw SubspaceFailure("the mass matrix has " + std::to_string(m_pair.Massive()) + " unknowns with mass: there are no " +
                                  std::to_string(settings.count) + " finite modes; ask for fewer with --count");
        ChooseShift();
        std::int64_t const columns = std::max<std::int64_t>(2 * std::int64_t{settings.count}, settings.count + 8);
        m_columns = static_cast<int>(std::min<std::int64_t>(columns, m_pair.Massive()));
        m_basis = std::make_unique<SubspaceBasis>(mass, m_pair.massDiagonal, m_columns);
        RequireColumns();
    }

    SubspaceResult Run(std::function<void(SubspaceProgress const&)> const& report);

private:
    void ChooseShift();
    void GiveShift(double shift);
    bool MoveShift(double shift);
    void RequireColumns();
    // There are no more modes than columns: the basis has the rank of the mass.
    bool HoldsAll() const { return m_basis->Columns() < m_columns || m_columns == m_pair.Massive(); }
    void Improve(std::vector<double> const& shifted);
    void ImproveShift(std::vector<double> const& shifted);
    SubspaceResult Result(int iterations);
    void RequireNoneMissed(std::vector<double> const& lambda) const;
    std::vector<double> Residuals(std::vector<double> const& lambda);

    KVOSrvSparseMatrix const& m_stiffness;
    KVOSrvSparseMatrix const& m_mass;
    SubspaceSettings const& m_settings;
    ModelPair const m_pair;
    int m_n;
    double m_shift = 0.0;
    std::unique_ptr<StiffnessSolver> m_solver;
    int m_columns = 0; // that the basis is to have
    std::unique_ptr<SubspaceBasis> m_basis;
    Convergence m_convergence;
    double m_margin = kMargin;
    int m_shifts = 1;
    int m_iterationsOfShift = 0;
    int m_iterationsOfBasis = 0;
};

void Iteration::GiveShift(double shift)
{
    if (!std::isfinite(shift))
        throw SubspaceFailure("the shift is no number; give another --shift or leave it out");
    if (m_pair.largest > 0.0 && shift > kLargestShift * m_pair.largest)
        throw SubspaceFailure("the shift hides the eigenvalues, of which the diagonals show none above " + Text(m_pair.largest) +
                              "; choose a smaller --shift or leave it out");
    try {
        m_solver = StiffnessSolver::Factor(m_stiffness, m_mass, shift);
        m_shift = shift;
    } catch (NotPositiveDefinite const& exception) {
        throw SubspaceFailure("stiffness + shift * mass is not positive definite (" + std::string(exception.what()) +
                              "); choose a greater --shift or leave it out");
    }
}

void Iteration::ChooseShift()
{
    if (m_settings.shift)
        return GiveShift(*m_settings.shift);
    if (MoveShift(0.0))
        return;
    // Rigid body motions: go on with a shift. Any will do where no unknown with mass has a stiffness, as all modes are rigid then.
    double const lowest = m_pair.lowest > 0.0 ? m_pair.lowest : 1.0;
    for (double const share : kFirstShares)
        if (MoveShift(share * lowest))
            return;
    if (m_pair.negative > 0)
        throw SubspaceFailure("the stiffness matrix has negative eigenvalues (see row " + std::to_string(m_pair.negative) +
                              "); give a --shift greater than the largest of them in size");
    throw SubspaceFailure("the stiffness matrix is singular or indefinite and no shift helps: some unknowns have neither stiffness nor "
                          "mass, or the stiffness has negative eigenvalues; give a --shift greater than the largest of them in size");
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

void Iteration::RequireColumns()
{
    if (m_basis->Columns() < m_settings.count)
        throw SubspaceFailure("the mass matrix is of rank " + std::to_string(m_basis->Columns()) + ": there are no " +
                              std::to_string(m_settings.count) + " finite modes; ask for fewer with --count");
}

SubspaceResult Iteration::Run(std::function<void(SubspaceProgress const&)> const& report)
{
    for (int iteration = 1;; ++iteration) {
        RitzPairs const ritz = m_basis->Advance(*m_solver);
        if (ritz.indefinite)
            throw SubspaceFailure("the mass matrix has negative eigenvalues; give one that is positive, or zero for massless unknowns");
        int const rank = static_cast<int>(ritz.shifted.size());
        m_convergence.Take(ritz.shifted, m_shift, HoldsAll() && rank == m_basis->Columns());

        int const found = m_convergence.Found();
        std::vector<double> const& changes = m_convergence.History().back();
        report({iteration, found, *std::ranges::max_element(changes)});
        if (found == m_settings.count)
            return Result(iteration);
        if (iteration == m_settings.largestIterations)
            throw SubspaceFailure("no convergence after " + std::to_string(iteration) + " iterations (" + std::to_string(found) + " of " +
                                  std::to_string(m_settings.count) +
                                  " modes): the eigenvalues are too close together or too far apart for this method; try another --count");
        Improve(ritz.shifted);
    }
}

void Iteration::Improve(std::vector<double> const& shifted)
{
    if (++m_iterationsOfShift >= kIterationsPerShift && m_shifts < kMostShifts && !shifted.empty())
        ImproveShift(shifted);
    bool const all = HoldsAll();
    if (++m_iterationsOfBasis >= kIterationsPerBasis && !all) {
        m_iterationsOfBasis = 0;
        m_columns = static_cast<int>(std::min<std::int64_t>(2 * std::int64_t{m_columns}, m_pair.Massive()));
    }
    int const kept = static_cast<int>(shifted.size());
    if (kept < (all ? m_basis->Columns() : m_columns)) {
        m_basis->Fill(kept, m_columns);
        RequireColumns();
    }
}

// A shift far from eigenvalues that are close to one another makes all of them look alike: move it to them.
void Iteration::ImproveShift(std::vector<double> const& shifted)
{
    double const lowest = shifted.front() - m_shift, spread = shifted.back() - shifted.front();
    double const rounding = 1e3 * kEpsilon * m_pair.largest;
    if (shifted.front() <= kAlike * spread || spread <= rounding)
        return;
    // Not past the lowest eigenvalue, which is still below its estimate: that would cost a factorization for nothing.
    double const share = m_convergence.LeftOfLowest() <= m_margin * spread ? m_margin : 1.0;
    double shift = std::max(share * spread, rounding) - lowest;
    if (shift < 0.0 && m_shift > std::fabs(lowest))
        shift = kMargin * std::fabs(lowest); // the estimates are rough under a shift that great: come closer first
    ++m_shifts;
    m_iterationsOfShift = m_iterationsOfBasis = 0;
    if (MoveShift(shift))
        m_convergence.Restart();
    else
        m_margin = 1.0;
}

SubspaceResult Iteration::Result(int iterations)
{
    SubspaceResult result;
    result.history = m_convergence.History();
    result.iterations = iterations;
    result.shift = m_shift;
    result.subspace = m_basis->Columns();
    result.solver = m_solver->Description();
    for (std::size_t i = 0; i < static_cast<std::size_t>(m_settings.count); ++i)
        result.lambda.push_back(m_convergence.Shifted()[i] - m_shift);
    result.residuals = Residuals(result.lambda);
    m_solver.reset(); // the next factor takes its place
    RequireNoneMissed(result.lambda);
    result.modes = m_basis->X().View(0, m_n - 1, 0, m_settings.count - 1);
    return result;
}

// Random columns hold every mode, and one that were missed all the same would be seen here: the eigenvalues below the last one are counted.
void Iteration::RequireNoneMissed(std::vector<double> const& lambda) const
{
    double const margin = std::max(1e-8 * std::fabs(lambda.back()), 1e4 * kEpsilon * std::max(m_pair.largest, std::fabs(m_shift)));
    std::optional<int> const below = StiffnessSolver::CountEigenvaluesBelow(m_stiffness, m_mass, lambda.back() - margin);
    auto const found = std::ranges::count_if(lambda, [&](double value) { return value < lambda.back(); });
    if (below && *below > found)
        throw SubspaceFailure("of " + std::to_string(*below) + " eigenvalues below " + Text(lambda.back()) + " only " +
                              std::to_string(found) + " were found; ask for more modes with --count");
}

std::vector<double> Iteration::Residuals(std::vector<double> const& lambda)
{
    auto const n = static_cast<std::size_t>(m_n);
    std::vector<double> residuals;
    KVOSrvMatrix x(m_n, 1, nullptr, false, false);
    KVOSrvMatrix massX(m_n, 1, nullptr, false, false);
    std::vector<double> difference(n);
    std::vector<double> solved(n);
    for (std::size_t i = 0; i < lambda.size(); ++i) {
        int const column = static_cast<int>(i);
        m_basis->X().GetColumns(column, column, x);
        m_mass.Multiply(x.Values(), 1, massX.Values(), false);
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
        residuals.push_back(std::sqrt(std::max(0.0, error)) / (std::max(lambda[i], lambda[i] + m_shift) * std::sqrt(energy)));
    }
    return residuals;
}

} // namespace

SubspaceResult SolveSubspace(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, SubspaceSettings const& settings,
                             std::function<void(SubspaceProgress const&)> const& report)
{
    return Iteration(stiffness, mass, settings).Run(report);
}
