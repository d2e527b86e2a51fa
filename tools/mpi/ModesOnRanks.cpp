#include "ModesOnRanks.h"

#include "Errors.h"
#include "ShiftedPair.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

namespace
{

// These are what KVOSrvModes goes by, see there.
constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
constexpr double kFirstShares[] = {1e-3, 1e-1};
constexpr double kLargestShift = 1e3;
constexpr double kRoundings = 1e3;
constexpr double kFarShift = 1e3;
constexpr int kMostShifts = 8;
constexpr double kShareOfTolerance = 0.1;
constexpr double kFloor = 20.0 * kEpsilon;
constexpr double kCluster = 1e-5;
constexpr int kModesBehind = 4;
constexpr int kMostRestarts = 200;
constexpr double kPlacesInRange[] = {0.4837, 0.5171, 0.4462, 0.5523, 0.4119};

std::string Text(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

[[noreturn]] void Refuse(std::string const& reason)
{
    throw ToolError(ExitCode::kCannot, reason);
}

// A Lanczos residual below the rounding of the largest theta is none.
struct Convergence {
    double tolerance;
    double largest = 0.0;

    static PetscErrorCode Test(EPS, PetscScalar theta, PetscScalar, PetscReal residual, PetscReal* error, void* context)
    {
        auto& self = *static_cast<Convergence*>(context);
        double const size = std::fabs(theta);
        self.largest = std::max(self.largest, size);
        *error = residual <= kFloor * self.largest ? 0.0 : residual / std::max(size, std::numeric_limits<double>::min());
        return 0;
    }
};

class Search
{
public:
    Search(PairFacts const& facts, RowShare const& share, int rank, Triplets stiffness, Triplets mass, KVOSrvModesSettings const& settings)
        : m_facts(facts), m_settings(settings), m_pair(share, rank, std::move(stiffness), std::move(mass))
    {
    }

    RankModes Run()
    {
        auto const begin = std::chrono::steady_clock::now();
        m_settings.from ? OfRange() : Lowest();
        m_account.factor = m_pair.Account(m_found.solver, m_found.ordering);
        m_account.shift = m_shift;
        m_account.steps = static_cast<int>(m_account.factor.solvedColumns);
        m_account.block = 1;
        std::chrono::duration<double> const elapsed = std::chrono::steady_clock::now() - begin;
        KVOSrvFactorAccount const& factor = m_account.factor;
        m_account.searchSeconds = elapsed.count() - factor.orderingSeconds - factor.factorSeconds - factor.solveSeconds;
        m_found.account = m_account;
        return std::move(m_found);
    }

private:
    bool FactorDefinite(double shift);
    void ChooseShift();
    int CountBelow(double bound);
    double Margin(double lambda) const;

    std::vector<double> Solve(int wanted);
    bool MoveShift(std::vector<double> const& lambda, int wanted);
    std::vector<double> SearchLowest(int& taken);
    void Lowest();
    int OfInterval(double from, double to, EPS eps);
    void OfRange();
    void Take(EPS eps, std::vector<int> const& numbers);

    PairFacts const& m_facts;
    KVOSrvModesSettings const& m_settings;
    ShiftedPair m_pair;
    double m_shift = 0.0;
    bool m_definite = false;
    KVOSrvModesAccount m_account;
    RankModes m_found;
};

double Search::Margin(double lambda) const
{
    return std::max({1e-8 * std::fabs(lambda), kRoundings * kEpsilon * m_facts.largest, kRoundings * kEpsilon * std::fabs(m_pair.Sigma())});
}

bool Search::FactorDefinite(double shift)
{
    auto const inertia = m_pair.Factor(shift == 0.0 ? 0.0 : -shift);
    if (inertia && (inertia->negative > 0 || inertia->zero > 0))
        return false;
    m_shift = shift;
    m_definite = true;
    ++m_account.shifts;
    return true;
}

void Search::ChooseShift()
{
    if (m_settings.shift) {
        double const shift = *m_settings.shift;
        if (!std::isfinite(shift))
            Refuse("the shift is no number; give another --shift or leave it out");
        if (m_facts.largest > 0.0 && shift > kLargestShift * m_facts.largest)
            Refuse("the shift hides the eigenvalues, of which the diagonals show none above " + Text(m_facts.largest) +
                   "; choose a smaller --shift or leave it out");
        if (!FactorDefinite(shift))
            Refuse("stiffness + shift * mass is not positive definite; choose a greater --shift or leave it out");
        return;
    }
    if (FactorDefinite(0.0))
        return;
    double const lowest = m_facts.lowest > 0.0 ? m_facts.lowest : 1.0;
    for (double const share : kFirstShares)
        if (FactorDefinite(share * lowest))
            return;
    if (m_facts.negative > 0)
        Refuse("the stiffness matrix has negative eigenvalues (see row " + std::to_string(m_facts.negative) +
               "); give a --shift greater than the largest of them in size");
    Refuse("the stiffness matrix is indefinite and no shift helps; give a --shift greater than the largest of its negative eigenvalues "
           "in size");
}

// The lowest eigenvalues from the present factor, as many as have converged.
std::vector<double> Search::Solve(int wanted)
{
    EPS const eps = m_pair.Lowest();
    // SLEPc wants one column more than modes, also where there are no more.
    std::int64_t const columns = std::max<std::int64_t>(wanted + 1, std::min<std::int64_t>(2 * std::int64_t{wanted} + 16, m_facts.massive));
    int const basis = static_cast<int>(std::min<std::int64_t>(columns, m_facts.order));
    Convergence convergence{kShareOfTolerance * m_settings.tolerance};
    Check(EPSSetTarget(eps, m_pair.Sigma()));
    Check(EPSSetWhichEigenpairs(eps, EPS_TARGET_MAGNITUDE));
    Check(EPSSetDimensions(eps, wanted, basis, PETSC_DEFAULT));
    Check(EPSSetTolerances(eps, convergence.tolerance, kMostRestarts));
    Check(EPSSetConvergenceTestFunction(eps, Convergence::Test, &convergence, nullptr));
    Check(EPSSetFromOptions(eps));
    Check(EPSSolve(eps));
    PetscInt converged = 0, restarts = 0, held = 0;
    Check(EPSGetConverged(eps, &converged));
    Check(EPSGetIterationNumber(eps, &restarts));
    Check(EPSGetDimensions(eps, nullptr, &held, nullptr));
    m_account.restarts += restarts;
    m_account.basis = std::max(m_account.basis, static_cast<int>(held));
    std::vector<double> lambda;
    for (PetscInt i = 0; i < converged; ++i) {
        PetscScalar value = 0.0;
        Check(EPSGetEigenvalue(eps, i, &value, nullptr));
        if (std::isfinite(value) && std::fabs(value) < 1.0 / kEpsilon * std::max(m_facts.largest, 1.0)) // else of massless unknowns
            lambda.push_back(value);
    }
    return lambda;
}

// Where the shift leaves too few digits of the eigenvalues, or they are so alike under it that they do not converge: a smaller one.
bool Search::MoveShift(std::vector<double> const& lambda, int wanted)
{
    if (m_account.shifts >= kMostShifts)
        return false;
    double const before = m_shift, rounding = kRoundings * kEpsilon * m_facts.largest;
    std::vector<double> shifts;
    if (before == 0.0) { // a pivot of rounding error was taken for positive
        if (!m_settings.shift && !lambda.empty() && lambda.front() <= rounding && m_facts.lowest > kFarShift * rounding)
            for (double const share : kFirstShares)
                shifts.push_back(share * m_facts.lowest);
    } else {
        double const least = std::max(rounding, kRoundings * kEpsilon * before);
        auto const elastic = std::ranges::find_if(lambda, [&](double value) { return value > least; });
        if (elastic != lambda.end() && before > kFarShift * *elastic)
            shifts.push_back(std::max(*elastic, rounding));
        else if (static_cast<int>(lambda.size()) < wanted && 1e-3 * before > rounding)
            shifts.push_back(1e-3 * before);
    }
    for (double const shift : shifts)
        if (FactorDefinite(shift))
            return true;
    if (!shifts.empty())
        FactorDefinite(before);
    return false;
}

// @param[out] taken  the lowest of them up to a gap, where a bound for counting finds room; 0: there is none
std::vector<double> Search::SearchLowest(int& taken)
{
    int const count = m_settings.count;
    ChooseShift();
    int wanted = std::min(count + kModesBehind, m_facts.massive);
    for (;;) {
        std::vector<double> lambda = Solve(wanted);
        if (MoveShift(lambda, count))
            continue;
        int const found = static_cast<int>(lambda.size());
        if (found < count)
            Refuse("no convergence after " + std::to_string(m_account.restarts) + " restarts (" + std::to_string(found) + " of " +
                   std::to_string(count) + " modes): the eigenvalues are too close together or too far apart; try another --count");
        taken = 0;
        for (int k = count; k < found && taken == 0; ++k) {
            double const last = lambda[static_cast<std::size_t>(k) - 1], next = lambda[static_cast<std::size_t>(k)];
            if (next - last > std::max(4.0 * Margin(last), kCluster * std::fabs(last - m_pair.Sigma())))
                taken = k;
        }
        if (taken > 0 || found >= m_facts.massive || wanted >= m_facts.massive || wanted > 2 * count + kModesBehind) {
            taken = taken > 0 ? taken : found;
            return lambda;
        }
        wanted = std::min(2 * wanted, m_facts.massive);
    }
}

int Search::CountBelow(double bound)
{
    for (int tries = 0; tries < 12; ++tries) {
        auto const inertia = m_pair.Factor(bound);
        if (!inertia)
            return -1;
        if (inertia->zero == 0)
            return inertia->negative;
        bound += Margin(bound) * (1 << tries);
    }
    Refuse("the eigenvalues below " + Text(bound) + " cannot be counted; try another --count or range");
}

void Search::Lowest()
{
    int const count = m_settings.count;
    if (count > m_facts.massive)
        Refuse("the mass matrix has " + std::to_string(m_facts.massive) + " unknowns with mass: there are no " + std::to_string(count) +
               " finite modes; ask for fewer with --count");
    int taken = 0;
    std::vector<double> const lambda = SearchLowest(taken);
    auto const found = static_cast<std::size_t>(taken);
    std::vector<int> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), 0);
    Take(m_pair.Lowest(), numbers);
    if (!m_settings.certify)
        return;

    double const last = lambda[found - 1], sigma = m_pair.Sigma();
    double const next = found < lambda.size() ? lambda[found] : std::numeric_limits<double>::infinity();
    double const bound = last + std::max(Margin(last), std::min(0.1 * (next - last), 0.1 * std::max(std::fabs(last), std::fabs(sigma))));
    int const below = CountBelow(bound);
    if (below < 0)
        return; // the solver that was chosen does not tell
    if (below < taken)
        Refuse("only " + std::to_string(below) + " of " + std::to_string(taken) + " eigenvalues below " + Text(bound) +
               " were counted; try another --shift");
    if (below > taken) { // one of several equal ones may escape a Krylov space; slices count
        HeldEps eps;
        Check(EPSCreate(PETSC_COMM_WORLD, eps.New()));
        if (OfInterval(sigma, bound, eps) < below)
            Refuse("of " + std::to_string(below) + " eigenvalues below " + Text(bound) +
                   " not all were found; ask for more modes with --count");
        FactorDefinite(m_shift);
        Take(eps, numbers);
    }
    m_account.certified = true;
}

// All between the ends, by slices whose eigenvalues are counted. @return how many
int Search::OfInterval(double from, double to, EPS eps)
{
    m_pair.OfInterval(eps);
    Check(EPSSetInterval(eps, from, to));
    Check(EPSSetTolerances(eps, kShareOfTolerance * m_settings.tolerance, kMostRestarts));
    Check(EPSSetFromOptions(eps));
    Check(EPSSolve(eps));
    PetscInt converged = 0, counted = 0, shifts = 0, columns = 0;
    PetscReal* places = nullptr;
    PetscInt* inertias = nullptr;
    Check(EPSGetConverged(eps, &converged));
    Check(EPSKrylovSchurGetInertias(eps, &shifts, &places, &inertias));
    counted = inertias[shifts - 1] - inertias[0];
    m_account.shifts += shifts;
    Check(PetscFree(places));
    Check(PetscFree(inertias));
    Check(EPSKrylovSchurGetDimensions(eps, nullptr, &columns, nullptr));
    m_account.basis = std::max(m_account.basis, static_cast<int>(columns));
    if (converged != counted)
        Refuse("of " + std::to_string(counted) + " eigenvalues between " + Text(from) + " and " + Text(to) + " only " +
               std::to_string(converged) + " were found; try a range with other ends");
    return converged;
}

void Search::OfRange()
{
    double const from = *m_settings.from - Margin(*m_settings.from), to = *m_settings.to + Margin(*m_settings.to);
    HeldEps eps;
    Check(EPSCreate(PETSC_COMM_WORLD, eps.New()));
    int const count = OfInterval(from, to, eps);
    // For the residuals: no eigenvalue is to lie near.
    for (double const place : kPlacesInRange) {
        auto const inertia = m_pair.Factor(from + place * (to - from));
        if (!inertia || inertia->zero == 0)
            break;
    }
    m_shift = -m_pair.Sigma();
    std::vector<std::pair<double, int>> order;
    for (int i = 0; i < count; ++i) {
        PetscScalar value = 0.0;
        Check(EPSGetEigenvalue(eps, i, &value, nullptr));
        order.emplace_back(value, i);
    }
    std::ranges::sort(order);
    std::vector<int> numbers;
    for (auto const& [value, number] : order)
        numbers.push_back(number);
    Take(eps, numbers);
    m_account.certified = true;
}

// Scales them, and measures what KVOSrvModes calls the residual, by one solve each from the present factor.
void Search::Take(EPS eps, std::vector<int> const& numbers)
{
    m_found = {};
    HeldVec x, massX, solved, image;
    Check(MatCreateVecs(m_pair.Mass(), x.New(), massX.New()));
    Check(MatCreateVecs(m_pair.Mass(), solved.New(), image.New()));
    double const sigma = m_pair.Sigma();
    for (int const number : numbers) {
        PetscScalar lambda = 0.0, norm = 0.0, square = 0.0;
        Check(EPSGetEigenpair(eps, number, &lambda, nullptr, x, nullptr));
        Check(MatMult(m_pair.Mass(), x, massX));
        Check(VecDot(x, massX, &norm));
        if (!(norm > 0.0))
            Refuse("the mass matrix has negative eigenvalues, or a mode has no mass; see whether it is the model's");
        Check(VecScale(x, 1.0 / std::sqrt(norm)));
        Check(VecScale(massX, 1.0 / std::sqrt(norm)));
        m_pair.Solve(massX, solved);
        Check(VecAYPX(solved, sigma - lambda, x)); // d = x - (lambda - sigma) A^-1 M x
        if (m_definite) {
            Check(MatMult(m_pair.Stiffness(), x, image));
            Check(VecAXPY(image, -lambda, massX)); // A d
        } else {
            Check(MatMult(m_pair.Mass(), solved, image));
        }
        Check(VecDot(solved, image, &square));
        m_found.eigenvalues.push_back(lambda);
        m_found.residuals.push_back(std::sqrt(std::fabs(m_definite ? square / (lambda - sigma) : square)));
        PetscScalar const* values = nullptr;
        PetscInt rows = 0;
        Check(VecGetLocalSize(x, &rows));
        Check(VecGetArrayRead(x, &values));
        m_found.rows.insert(m_found.rows.end(), values, values + rows);
        Check(VecRestoreArrayRead(x, &values));
    }
}

} // namespace

RankModes FindModes(PairFacts const& facts, RowShare const& share, int rank, Triplets stiffness, Triplets mass,
                    KVOSrvModesSettings const& settings)
{
    return Search(facts, share, rank, std::move(stiffness), std::move(mass), settings).Run();
}
