#include "ModesSearch.h"

#include "BlockLanczos.h"
#include "NegativeMass.h"
#include "ReducedPair.h"
#include "SearchFile.h"
#include "SearchLimits.h"
#include "StateWords.h"

#include "KVOSrvModesFailure.h"
#include "KVOSrvSparseFactor.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numeric>
#include <string>
#include <utility>

namespace
{

// Shares of the lowest quotient of the diagonals that are tried as a shift when the stiffness is singular.
constexpr double kFirstShares[] = {1e-3, 1e-1};
// A shift so many times the largest quotient of the diagonals leaves too few digits of the stiffness to go on from.
constexpr double kLargestShift = 1e3;
// Modes whose lambda - sigma is so many times their spread converge slowly.
constexpr double kAlike = 100.0;
constexpr int kMostShifts = 8;
// What a Lanczos residual is held to, as a share of the tolerance: refining and rounding take the rest.
constexpr double kShareOfTolerance = 0.1;
// Rounding leaves about so much of the largest theta in every residual.
constexpr double kFloor = 20.0 * kEpsilon;
// Modes that are closer, as a share of lambda - sigma, are refined together.
constexpr double kCluster = 1e-5;
constexpr int kMostRefinements = 4;
constexpr int kMostRestarts = 200;
constexpr int kRestartsPerShift = 2;

Panel Times(KVOSrvSparseMatrix const& matrix, Panel const& block)
{
    Panel product(block.rows, block.columns);
    matrix.Multiply(block.values.data(), block.columns, product.values.data(), false);
    return product;
}

} // namespace

std::string SearchText(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

void RefuseSearch(KVOSrvModesFailure::Kind kind, std::string const& reason, int line)
{
    KVOSrvModesFailure(kind, reason).Throw("modes/ModesSearch", line);
}

ModesSearch::ModesSearch(KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, ModelPair pair,
                         KVOSrvModesSettings const& settings, Report report)
    : m_stiffness(stiffness), m_mass(mass), m_settings(settings), m_report(std::move(report)), m_pair(std::move(pair)),
      m_order(stiffness.NumberOfRows())
{
    if (settings.keep != nullptr)
        OpenKept();
    if (m_phase == kDone)
        return;
    Tell("ordering", 0, settings.count, 0.0);
    KVOSrvFactorSettings factor;
    factor.memory = settings.memory;
    factor.folder = settings.folder;
    m_factor = std::make_unique<KVOSrvSparseFactor>(stiffness, &mass, factor);
}

ModesSearch::~ModesSearch() = default;

ModesSearch::Found ModesSearch::Run()
{
    auto const begin = std::chrono::steady_clock::now();
    if (m_phase != kDone) {
        if (m_settings.from || m_settings.to)
            OfInterval();
        else
            Lowest();
        m_account.factor = m_factor->Account();
    }
    m_account.factor.unknowns = m_order;
    m_account.shift = m_sigma == 0.0 ? 0.0 : -m_sigma;
    double const elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    m_account.searchSeconds = elapsed - m_account.factor.factorSeconds - m_account.factor.solveSeconds;
    return std::move(m_found);
}

// What the search holds in memory, most of it while it refines so many modes, and the right-hand sides that the factor takes at a time.
void ModesSearch::Reserve(int modes)
{
    constexpr int kPanels = 5, kColumnsAtATime = 64;
    std::int64_t const columns = std::int64_t{kPanels} * std::max(modes, 2 * kBlock) + std::min(modes, kColumnsAtATime);
    m_factor->Reserve(columns * m_order * std::int64_t{sizeof(double)});
}

void ModesSearch::Tell(char const* doing, int found, int wanted, double share)
{
    m_report({doing, m_account.steps, found, wanted, share, 0, nullptr, m_factor ? m_factor->Account().flops : 0.0});
}

void ModesSearch::TellResiduals(BlockLanczos& lanczos, int found, int wanted)
{
    std::vector<double> residuals;
    double done = 0.0;
    for (RitzValue const& value : lanczos.Ritz())
        if (static_cast<int>(residuals.size()) < wanted)
            residuals.push_back(lanczos.IsComplete() ? 0.0 : value.residual / std::fabs(value.theta));
    for (double const residual : residuals)
        done += std::clamp(std::log(std::max(residual, kEpsilon)) / std::log(kShareOfTolerance * m_settings.tolerance), 0.0, 1.0);
    m_report({"searching", m_account.steps, found, wanted, done / wanted, static_cast<int>(residuals.size()), residuals.data()});
}

bool ModesSearch::FactorDefinite(double shift)
{
    Tell("factoring", 0, m_settings.count, 0.0);
    m_factor->Factorize(shift, true);
    if (m_factor->NegativePivots() > 0 || m_factor->ZeroPivots() > 0)
        return false;
    m_sigma = shift == 0.0 ? 0.0 : -shift;
    m_definite = true;
    ++m_account.shifts;
    return true;
}

void ModesSearch::FactorIndefinite(double sigma)
{
    Tell("factoring", 0, m_settings.count, 0.0);
    m_factor->Factorize(-sigma, false);
    m_sigma = sigma;
    m_definite = false;
    ++m_account.shifts;
}

void ModesSearch::ChooseShift()
{
    if (m_settings.shift) {
        double const shift = *m_settings.shift;
        if (!std::isfinite(shift))
            RefuseSearch(KVOSrvModesFailure::Shift, "the shift is no number; give another shift or leave it out");
        if (m_pair.largest > 0.0 && shift > kLargestShift * m_pair.largest)
            RefuseSearch(KVOSrvModesFailure::Shift, "the shift hides the eigenvalues, of which the diagonals show none above " +
                                                        SearchText(m_pair.largest) + "; choose a smaller shift or leave it out");
        if (!FactorDefinite(shift))
            RefuseSearch(KVOSrvModesFailure::Shift,
                         "stiffness + shift * mass is not positive definite; choose a greater shift or leave it out");
        return;
    }
    if (FactorDefinite(0.0))
        return;
    // Rigid body motions: go on with a shift. Any will do where no unknown with mass has a stiffness, as all modes are rigid then.
    double const lowest = m_pair.lowest > 0.0 ? m_pair.lowest : 1.0;
    for (double const share : kFirstShares)
        if (FactorDefinite(share * lowest))
            return;
    if (m_pair.negative > 0)
        RefuseSearch(KVOSrvModesFailure::Pair, "the stiffness matrix has negative eigenvalues (see row " + std::to_string(m_pair.negative) +
                                                   "); give a shift greater than the largest of them in size");
    RefuseSearch(KVOSrvModesFailure::Pair,
                 "the stiffness matrix is indefinite and no shift helps; give a shift greater than the largest of "
                 "its negative eigenvalues in size");
}

std::unique_ptr<BlockLanczos> ModesSearch::Start(int wanted)
{
    int const block = std::min(kBlock, std::max(1, m_pair.Massive()));
    // A basis of twice the modes and some steps keeps restarts rare.
    std::int64_t const capacity =
        std::min<std::int64_t>(2 * std::int64_t{wanted} + 16 * std::int64_t{block}, std::int64_t{m_pair.Massive()} + block);
    m_account.block = block;
    m_restarts = 0;
    ++m_bases;
    return std::make_unique<BlockLanczos>(*m_factor, m_mass, m_pair.massDiagonal, block, static_cast<int>(capacity));
}

// How many of the largest theta are found, without a gap.
int ModesSearch::Converged(BlockLanczos& lanczos) const
{
    auto const& ritz = lanczos.Ritz();
    if (lanczos.IsComplete())
        return static_cast<int>(ritz.size());
    double largest = 0.0;
    for (RitzValue const& value : ritz)
        largest = std::max(largest, std::fabs(value.theta));
    double const floor = kFloor * largest;
    auto const isFound = [&](RitzValue const& value) {
        return value.residual <= std::max(kShareOfTolerance * m_settings.tolerance * std::fabs(value.theta), floor);
    };
    return static_cast<int>(std::ranges::find_if_not(ritz, isFound) - ritz.begin());
}

// Where modes lie much closer together than to the shift, they are slow to tell apart: a nearer one that leaves K - sigma M positive
// definite, none where there is nothing to gain.
std::optional<double> ModesSearch::NearerShift(BlockLanczos& lanczos, int wanted) const
{
    auto const& ritz = lanczos.Ritz();
    if (!m_definite || m_account.shifts >= kMostShifts || static_cast<int>(ritz.size()) < wanted)
        return std::nullopt;
    double const first = 1.0 / ritz.front().theta, spread = 1.0 / ritz[static_cast<std::size_t>(wanted - 1)].theta - first;
    double const rounding = kRoundings * kEpsilon * m_pair.largest;
    if (!(first > kAlike * spread) || !(spread > rounding))
        return std::nullopt;
    return std::max(spread, rounding) - (m_sigma + first);
}

void ModesSearch::Converge(BlockLanczos& lanczos, std::function<bool(int)> const& isEnough, int wanted)
{
    for (;;) {
        if (lanczos.Columns() > 0) {
            int const converged = Converged(lanczos);
            TellResiduals(lanczos, std::min(converged, wanted), wanted);
            if (lanczos.IsComplete() || isEnough(converged))
                return;
            KeepIfDue(lanczos);
            if (!lanczos.HasRoom()) {
                if (m_restarts > 0 && m_restarts % kRestartsPerShift == 0 && NearerShift(lanczos, wanted))
                    return;
                if (++m_restarts > kMostRestarts)
                    RefuseSearch(KVOSrvModesFailure::Missed,
                                 "no convergence after " + std::to_string(m_account.steps) + " steps (" + std::to_string(converged) +
                                     " of " + std::to_string(wanted) +
                                     " modes): the eigenvalues are too close together or too far apart; try another count");
                // What has converged, and of the rest a share that leaves room for some steps.
                int const room = lanczos.Capacity() - lanczos.Block() * 4;
                lanczos.Restart(std::max(1, std::min({lanczos.Columns() - 1, std::max(converged, wanted) + 2 * lanczos.Block(), room})));
                ++m_account.restarts;
            }
        }
        lanczos.Step();
        ++m_account.steps;
        m_account.basis = std::max(m_account.basis, lanczos.Columns());
    }
}

void ModesSearch::RequireRank(BlockLanczos const& lanczos, int wanted) const
{
    if (lanczos.IsComplete() && lanczos.Columns() < wanted)
        RefuseSearch(KVOSrvModesFailure::Pair, "the mass matrix is of rank " + std::to_string(lanczos.Columns()) + ": there are no " +
                                                   std::to_string(wanted) + " finite modes; ask for fewer");
}

std::vector<double> ModesSearch::LambdaOf(BlockLanczos& lanczos, int count) const
{
    std::vector<double> lambda;
    for (RitzValue const& value : lanczos.Ritz())
        if (static_cast<int>(lambda.size()) < count)
            lambda.push_back(m_sigma + 1.0 / value.theta);
    return lambda;
}

// Moves the shift where it leaves too few digits of the eigenvalues, or where the search stopped for a nearer one. @return whether it did
bool ModesSearch::MoveShift(BlockLanczos& lanczos)
{
    if (m_account.shifts >= kMostShifts)
        return false;
    int const count = m_settings.count;
    double const before = -m_sigma, rounding = kRoundings * kEpsilon * m_pair.largest;
    std::vector<double> shifts;
    if (Converged(lanczos) < count) {
        shifts.push_back(*NearerShift(lanczos, count));
    } else {
        std::vector<double> const lambda = LambdaOf(lanczos, count);
        if (m_sigma == 0.0) { // a pivot of rounding error was taken for positive
            if (!m_settings.shift && lambda.front() <= rounding && m_pair.lowest > kFarShift * rounding)
                for (double const share : kFirstShares)
                    shifts.push_back(share * m_pair.lowest);
        } else {
            double const least = std::max(rounding, kRoundings * kEpsilon * before);
            auto const elastic = std::ranges::find_if(lambda, [&](double value) { return value > least; });
            if (elastic != lambda.end() && before > kFarShift * *elastic)
                shifts.push_back(std::max(*elastic, rounding));
        }
    }
    for (double const shift : shifts)
        if (FactorDefinite(shift))
            return true;
    if (!shifts.empty())
        FactorDefinite(before);
    return false;
}

// In the norm of A = K - sigma M where it is positive definite, else in that of M, of d = x - (lambda - sigma) A^-1 M x.
std::vector<double> ModesSearch::ResidualsOf(Panel const& vectors, Panel const& massVectors, std::vector<double> const& shifted,
                                             Panel const& solved) const
{
    Panel difference = vectors;
    for (int j = 0; j < vectors.columns; ++j)
        for (int i = 0; i < vectors.rows; ++i)
            difference.At(i, j) -= shifted[static_cast<std::size_t>(j)] * solved.At(i, j);
    Panel image = m_definite ? Times(m_stiffness, vectors) : Times(m_mass, difference);
    std::vector<double> residuals;
    for (int j = 0; j < vectors.columns; ++j) {
        double const value = shifted[static_cast<std::size_t>(j)], lambda = m_sigma + value;
        for (int i = 0; m_definite && i < vectors.rows; ++i)
            image.At(i, j) -= lambda * massVectors.At(i, j); // A d
        double const square = std::inner_product(difference.Column(j), difference.Column(j) + m_order, image.Column(j), 0.0);
        residuals.push_back(std::sqrt(std::fabs(m_definite ? square / value : square)));
    }
    return residuals;
}

// lambda - sigma by the Rayleigh quotients of K and M.
std::vector<double> ModesSearch::Quotients(Panel const& vectors, Panel const& massVectors) const
{
    Panel const images = Times(m_stiffness, vectors);
    std::vector<double> shifted;
    for (int j = 0; j < vectors.columns; ++j) {
        double const* const vector = vectors.Column(j);
        shifted.push_back(std::inner_product(vector, vector + m_order, images.Column(j), 0.0) /
                              std::inner_product(vector, vector + m_order, massVectors.Column(j), 0.0) -
                          m_sigma);
    }
    return shifted;
}

// The worst residual, as a share of what is allowed: the tolerance, or what is nothing but rounding.
double ModesSearch::WorstOf(std::vector<double> const& residuals, std::vector<double> const& shifted) const
{
    double worst = 0.0, largest = 0.0;
    for (double const value : shifted)
        largest = std::max(largest, 1.0 / std::fabs(value));
    for (std::size_t j = 0; j < shifted.size(); ++j) {
        double const grading = largest * std::fabs(shifted[j]), floor = kRoundings * kEpsilon * (m_definite ? std::sqrt(grading) : grading);
        worst = std::isfinite(residuals[j]) ? std::max(worst, residuals[j] / std::max(m_settings.tolerance, floor)) : kInfinity;
    }
    return worst;
}

// Inverse iterations with a Rayleigh-Ritz step each, until the residuals are small or nothing but rounding. From a shift among the
// eigenvalues none is made where they are already: it would bring in what lies nearer to the shift.
ModesSearch::Found ModesSearch::Refine(Panel vectors)
{
    Found found;
    Panel massVectors = Times(m_mass, vectors);
    std::vector<double> shifted;
    for (int pass = 0;; ++pass) {
        Panel solved = massVectors;
        KVOSrvMatrix view = solved.View();
        m_factor->Solve(view);
        Panel massSolved;
        if (pass == 0 && !m_definite)
            shifted = Quotients(vectors, massVectors);
        if (!shifted.empty()) {
            found.residuals = ResidualsOf(vectors, massVectors, shifted, solved);
            if (WorstOf(found.residuals, shifted) <= 1.0 || pass >= kMostRefinements)
                break;
        }
        massSolved = Times(m_mass, solved);
        Panel const stiffness = TransposeTimes(solved, massVectors), mass = TransposeTimes(solved, massSolved);
        RitzPairs ritz = m_definite ? SolveDefinitePair(stiffness, mass) : SolveIndefinitePair(stiffness, mass);
        if (ritz.indefinite)
            RefuseSearch(KVOSrvModesFailure::Pair, kNegativeMassText);
        if (ritz.combinations.columns < vectors.columns)
            RefuseSearch(KVOSrvModesFailure::Pair,
                         "the eigenvalues are too far apart for one computation: " + std::to_string(ritz.combinations.columns) + " of " +
                             std::to_string(vectors.columns) + " modes can be told from rounding; ask for fewer");
        shifted = ritz.shifted;
        vectors = Times(solved, ritz.combinations);
        massVectors = Times(m_mass, vectors);
    }
    // Ascending lambda.
    std::vector<int> order(shifted.size());
    std::iota(order.begin(), order.end(), 0);
    std::ranges::sort(order, {}, [&](int i) { return shifted[static_cast<std::size_t>(i)]; });
    Found sorted;
    sorted.modes = Panel(m_order, vectors.columns);
    for (std::size_t j = 0; j < order.size(); ++j) {
        auto const from = static_cast<std::size_t>(order[j]);
        sorted.lambda.push_back(m_sigma + shifted[from]);
        sorted.residuals.push_back(found.residuals[from]);
        std::copy_n(vectors.Column(order[j]), m_order, sorted.modes.Column(static_cast<int>(j)));
    }
    return sorted;
}

// Bounds closer than this to an eigenvalue may count it on either side.
double ModesSearch::Margin(double lambda) const
{
    return std::max({1e-8 * std::fabs(lambda), kRoundings * kEpsilon * m_pair.largest, kRoundings * kEpsilon * std::fabs(m_sigma)});
}

Panel ModesSearch::SearchLowest()
{
    int const count = m_settings.count;
    std::unique_ptr<BlockLanczos> lanczos = TakeKept();
    if (!lanczos)
        ChooseShift();
    if (m_phase <= kSearching)
        do {
            if (!lanczos)
                lanczos = Start(count);
            Converge(
                *lanczos, [&](int converged) { return converged >= count; }, count);
            RequireRank(*lanczos, count);
            if (MoveShift(*lanczos))
                lanczos.reset();
        } while (!lanczos);

    // The bound of the count must not lie in a cluster, and modes of one cannot be told from those that are left out: find all up to the
    // next gap, or most of them.
    auto const upToGap = [&](int converged) {
        std::vector<double> const lambda = LambdaOf(*lanczos, converged + 1);
        for (auto k = static_cast<std::size_t>(count); k <= static_cast<std::size_t>(converged); ++k)
            if (lambda.size() <= k ||
                lambda[k] - lambda[k - 1] > std::max(4.0 * Margin(lambda[k - 1]), kCluster * std::fabs(lambda[k - 1] - m_sigma)))
                return static_cast<int>(k);
        return 0;
    };
    if (m_settings.certify && !lanczos->IsComplete()) {
        if (m_phase <= kSearching) {
            m_phase = kBeyond;
            m_restarts = 0;
            lanczos->Reserve(std::min(m_pair.Massive() + lanczos->Block(), lanczos->Capacity() + count));
        }
        Converge(
            *lanczos, [&](int converged) { return upToGap(converged) > 0 || converged >= 2 * count; }, count);
    }
    int const converged = Converged(*lanczos), gap = upToGap(converged), taken = gap > 0 ? gap : std::min(converged, 2 * count);
    std::vector<double> const lambda = LambdaOf(*lanczos, taken + 1);
    m_next = taken < static_cast<int>(lambda.size()) ? lambda[static_cast<std::size_t>(taken)] : kInfinity;
    m_isComplete = lanczos->IsComplete();
    return lanczos->Vectors(0, taken);
}

void ModesSearch::Lowest()
{
    int const count = m_settings.count;
    if (count > m_pair.Massive())
        RefuseSearch(KVOSrvModesFailure::Pair, "the mass matrix has " + std::to_string(m_pair.Massive()) +
                                                   " unknowns with mass: there are no " + std::to_string(count) +
                                                   " finite modes; ask for fewer");
    Reserve(count + kBlock);
    if (m_phase <= kAround && FindAroundBound()) {
        m_phase = kCounting;
        Keep(nullptr, &m_found.modes);
    }
    if (m_phase < kCounting) {
        m_found = Refine(SearchLowest());
        m_phase = kCounting;
        Keep(nullptr, &m_found.modes);
    }
    bool const areOthers = m_settings.certify && !m_isComplete && Certify();
    auto const size = static_cast<std::size_t>(count);
    m_found.lambda.resize(size);
    m_found.residuals.resize(size);
    m_found.modes.Cut(count);
    m_phase = kDone;
    Keep(nullptr, areOthers ? &m_found.modes : nullptr);
}
