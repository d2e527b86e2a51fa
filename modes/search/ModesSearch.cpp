#include "ModesSearch.h"

#include "BlockLanczos.h"
#include "NegativeMass.h"
#include "ReducedPair.h"
#include "SearchFile.h"
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

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
// Shares of the lowest quotient of the diagonals that are tried as a shift when the stiffness is singular.
constexpr double kFirstShares[] = {1e-3, 1e-1};
// A shift so many times the largest quotient of the diagonals leaves too few digits of the stiffness to go on from.
constexpr double kLargestShift = 1e3;
// Eigenvalues less than this many roundings of the largest one are nothing but rounding: a rigid body mode.
constexpr double kRoundings = 1e3;
// A shift so many times the lowest eigenvalue that is not 0 leaves it too few digits.
constexpr double kFarShift = 1e3;
// Modes whose lambda - sigma is so many times their spread converge slowly.
constexpr double kAlike = 100.0;
constexpr int kMostShifts = 8;
// Columns of a step: solves for four cost about as much a column as for eight, and fewer of them are needed in all.
constexpr int kBlock = 4;
// What a Lanczos residual is held to, as a share of the tolerance: refining and rounding take the rest.
constexpr double kShareOfTolerance = 0.1;
// Rounding leaves about so much of the largest theta in every residual.
constexpr double kFloor = 20.0 * kEpsilon;
// Modes that are closer, as a share of lambda - sigma, are refined together.
constexpr double kCluster = 1e-5;
constexpr int kMostRefinements = 4;
constexpr int kMostRestarts = 200;
constexpr int kRestartsPerShift = 2;
constexpr int kModesBeyond = 40;
constexpr int kMostBounds = 12;
constexpr int kModesOfSlice = 64;
// Where in a slice the shift is tried: not where users put their bounds and models have their eigenvalues.
constexpr double kPlacesInSlice[] = {0.4837, 0.5171, 0.4462, 0.5523, 0.4119};
// A mode that is nearer to the shift than this share of the slice leaves the others too few digits.
constexpr double kTooNear = 1e-5;

std::string Text(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

Panel Times(KVOSrvSparseMatrix const& matrix, Panel const& block)
{
    Panel product(block.rows, block.columns);
    matrix.Multiply(block.values.data(), block.columns, product.values.data(), false);
    return product;
}

[[noreturn]] void Refuse(KVOSrvModesFailure::Kind kind, std::string const& reason, int line = __builtin_LINE())
{
    KVOSrvModesFailure(kind, reason).Throw("modes/ModesSearch", line);
}

} // namespace

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
    m_report({doing, m_account.steps, found, wanted, share});
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

// A bound that meets an eigenvalue is moved up, past it.
int ModesSearch::CountBelow(double& bound)
{
    for (int tries = 0; tries < kMostBounds; ++tries) {
        Tell("counting", m_settings.count, m_settings.count, 1.0);
        m_factor->Factorize(-bound, false);
        m_sigma = bound;
        m_definite = false;
        if (m_factor->ZeroPivots() == 0)
            return m_factor->NegativePivots();
        bound += Margin(bound) * (1 << tries);
    }
    Refuse(KVOSrvModesFailure::Missed, "the eigenvalues below " + Text(bound) + " cannot be counted; try another --count or range");
}

void ModesSearch::ChooseShift()
{
    if (m_settings.shift) {
        double const shift = *m_settings.shift;
        if (!std::isfinite(shift))
            Refuse(KVOSrvModesFailure::Shift, "the shift is no number; give another --shift or leave it out");
        if (m_pair.largest > 0.0 && shift > kLargestShift * m_pair.largest)
            Refuse(KVOSrvModesFailure::Shift, "the shift hides the eigenvalues, of which the diagonals show none above " +
                                                  Text(m_pair.largest) + "; choose a smaller --shift or leave it out");
        if (!FactorDefinite(shift))
            Refuse(KVOSrvModesFailure::Shift,
                   "stiffness + shift * mass is not positive definite; choose a greater --shift or leave it out");
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
        Refuse(KVOSrvModesFailure::Pair, "the stiffness matrix has negative eigenvalues (see row " + std::to_string(m_pair.negative) +
                                             "); give a --shift greater than the largest of them in size");
    Refuse(KVOSrvModesFailure::Pair, "the stiffness matrix is indefinite and no shift helps; give a --shift greater than the largest of "
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
    double const floor = kFloor * std::fabs(ritz.front().theta);
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
                    Refuse(KVOSrvModesFailure::Missed,
                           "no convergence after " + std::to_string(m_account.steps) + " steps (" + std::to_string(converged) + " of " +
                               std::to_string(wanted) +
                               " modes): the eigenvalues are too close together or too far apart; try another --count");
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
        Refuse(KVOSrvModesFailure::Pair, "the mass matrix is of rank " + std::to_string(lanczos.Columns()) + ": there are no " +
                                             std::to_string(wanted) + " finite modes; ask for fewer with --count");
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

// Inverse iterations with a Rayleigh-Ritz step each, until the residuals are small or nothing but rounding.
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
        double worst = 0.0, largest = 0.0;
        if (pass > 0) {
            found.residuals = ResidualsOf(vectors, massVectors, shifted, solved);
            for (double const value : shifted)
                largest = std::max(largest, 1.0 / std::fabs(value));
            for (std::size_t j = 0; j < shifted.size(); ++j) {
                double const grading = largest * std::fabs(shifted[j]),
                             floor = kRoundings * kEpsilon * (m_definite ? std::sqrt(grading) : grading);
                worst = std::max(worst, found.residuals[j] / std::max(m_settings.tolerance, floor));
            }
            if (worst <= 1.0 || pass >= kMostRefinements)
                break;
        }
        massSolved = Times(m_mass, solved);
        Panel const stiffness = TransposeTimes(solved, massVectors), mass = TransposeTimes(solved, massSolved);
        RitzPairs ritz = m_definite ? SolveDefinitePair(stiffness, mass) : SolveIndefinitePair(stiffness, mass);
        if (ritz.indefinite)
            Refuse(KVOSrvModesFailure::Pair, kNegativeMassText);
        if (ritz.combinations.columns < vectors.columns)
            Refuse(KVOSrvModesFailure::Pair,
                   "the eigenvalues are too far apart for one computation: " + std::to_string(ritz.combinations.columns) + " of " +
                       std::to_string(vectors.columns) + " modes can be told from rounding; ask for fewer with --count");
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
    if (m_phase == kSearching)
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
        if (m_phase == kSearching) {
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
        Refuse(KVOSrvModesFailure::Pair, "the mass matrix has " + std::to_string(m_pair.Massive()) + " unknowns with mass: there are no " +
                                             std::to_string(count) + " finite modes; ask for fewer with --count");
    Reserve(count + kBlock);
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

// Compares what was found with the number of eigenvalues below a bound behind it, and looks for what is missing. @return whether there was
// any: what was found are other columns then
bool ModesSearch::Certify()
{
    int const known = static_cast<int>(m_found.lambda.size());
    if (m_phase != kMissing) {
        double const last = m_found.lambda.back();
        m_foundShift = -m_sigma;
        m_bound = last + std::max(Margin(last), std::min(0.1 * (m_next - last), 0.1 * std::max(std::fabs(last), std::fabs(m_sigma))));
        m_below = CountBelow(m_bound);
        if (m_below < known)
            Refuse(KVOSrvModesFailure::Missed, "only " + std::to_string(m_below) + " of " + std::to_string(known) + " eigenvalues below " +
                                                   Text(m_bound) + " were counted; try another --shift");
    }
    bool const areMissing = m_below > known;
    if (areMissing)
        FindMissing();
    m_account.certified = true;
    m_sigma = -m_foundShift; // what is reported is what the modes were found with
    return areMissing;
}

// From K - bound M, which is factored: random columns outside of what is known, until as many lie below the bound as were counted.
void ModesSearch::FindMissing()
{
    int const known = static_cast<int>(m_found.lambda.size()), below = m_below;
    std::unique_ptr<BlockLanczos> const lanczos = m_phase == kMissing ? TakeKept() : OutsideOfFound();
    m_phase = kMissing;
    auto const belowBound = [&](int converged) {
        return static_cast<int>(std::count_if(lanczos->Ritz().begin(), lanczos->Ritz().begin() + converged,
                                              [](RitzValue const& value) { return value.theta < 0.0; }));
    };
    // Those known are found at once; the search ends where the modes around the bound are found on both sides and none is new.
    int const most = known + 4 * (below - known) + 40;
    Converge(
        *lanczos, [&](int converged) { return belowBound(converged) >= below || converged >= most; }, below);
    int const converged = Converged(*lanczos);
    if (belowBound(converged) < below)
        Refuse(KVOSrvModesFailure::Missed, "of " + std::to_string(below) + " eigenvalues below " + Text(m_bound) + " only " +
                                               std::to_string(belowBound(converged)) + " were found; ask for more modes with --count");
    Panel vectors(m_order, below);
    for (int j = 0, to = 0; to < below; ++j)
        if (lanczos->Ritz()[static_cast<std::size_t>(j)].theta < 0.0)
            std::ranges::copy(lanczos->Vectors(j, 1).values, vectors.Column(to++));
    // From the bound, inverse iteration would lead to modes above it; and it may be too near to one.
    if (!FactorDefinite(m_foundShift))
        Refuse(KVOSrvModesFailure::Internal, "the stiffness was positive definite before and is not now");
    m_found = Refine(std::move(vectors));
    m_keptModes += known;
}

std::unique_ptr<BlockLanczos> ModesSearch::OutsideOfFound()
{
    int const known = static_cast<int>(m_found.lambda.size()), missing = m_below - known;
    std::vector<double> theta;
    for (double const lambda : m_found.lambda)
        theta.push_back(1.0 / (lambda - m_bound));
    int const block = std::max(kBlock, std::min(missing, 32));
    m_restarts = 0;
    ++m_bases;
    auto lanczos = std::make_unique<BlockLanczos>(*m_factor, m_mass, m_pair.massDiagonal, block,
                                                  std::min(m_pair.Massive() + block, known + 2 * missing + 24 * block),
                                                  static_cast<unsigned>(m_account.steps) + 2);
    lanczos->Lock(m_found.modes, theta);
    return lanczos;
}

// The modes between two bounds, of which there are so many.
ModesSearch::Found ModesSearch::OfSlice(double from, double to, int inside)
{
    double const width = to - from;
    int here = 0;
    for (; m_place < static_cast<int>(std::size(kPlacesInSlice)); ++m_place) {
        std::unique_ptr<BlockLanczos> lanczos = TakeKept();
        if (!lanczos) {
            FactorIndefinite(from + kPlacesInSlice[m_place] * width);
            if (m_factor->ZeroPivots() > 0)
                continue;
            lanczos = Start(inside);
        }
        auto const found = [&](int converged) {
            return static_cast<int>(
                std::count_if(lanczos->Ritz().begin(), lanczos->Ritz().begin() + converged, [&](RitzValue const& value) {
                    double const lambda = m_sigma + 1.0 / value.theta;
                    return lambda > from && lambda < to;
                }));
        };
        // Enough where all are found, or so many others beyond that none is to be expected any more.
        Converge(
            *lanczos, [&](int converged) { return found(converged) >= inside || converged > inside + kModesBeyond; }, inside);
        int const converged = Converged(*lanczos);
        here = found(converged);
        if (here != inside || kTooNear * width > 1.0 / std::fabs(lanczos->Ritz().front().theta))
            continue;
        // With those outside that are nearer to the shift: inverse iteration would lead to them.
        int all = 0;
        while (found(all) < inside)
            ++all;
        Found const part = Refine(lanczos->Vectors(0, all));
        Found kept;
        kept.modes = Panel(m_order, 0);
        for (int j = 0; j < all; ++j)
            if (auto const k = static_cast<std::size_t>(j); part.lambda[k] > from && part.lambda[k] < to) {
                kept.lambda.push_back(part.lambda[k]);
                kept.residuals.push_back(part.residuals[k]);
                kept.modes.values.insert(kept.modes.values.end(), part.modes.Column(j), part.modes.Column(j) + m_order);
                ++kept.modes.columns;
            }
        if (kept.modes.columns == inside)
            return kept;
    }
    Refuse(KVOSrvModesFailure::Missed, "of " + std::to_string(inside) + " eigenvalues between " + Text(from) + " and " + Text(to) +
                                           " only " + std::to_string(here) + " were found; try a range with other ends");
}

void ModesSearch::OfInterval()
{
    double const from = m_settings.from.value_or(-kInfinity), to = m_settings.to.value_or(kInfinity);
    if (!(from < to) || !std::isfinite(to) || !std::isfinite(from))
        Refuse(KVOSrvModesFailure::Shift, "the range is empty or has no end; give two frequencies, the lower one first");
    struct Bound {
        double lambda;
        int below;
    };
    // What was counted and found before a search went on is met again in the same order.
    std::size_t counts = 0;
    auto const count = [&](double lambda) {
        if (counts == m_bounds.size()) {
            m_belowBounds.push_back(CountBelow(lambda));
            m_bounds.push_back(lambda);
            Keep(nullptr, nullptr);
        }
        Bound const counted{m_bounds[counts], m_belowBounds[counts]};
        ++counts;
        return counted;
    };
    Bound const first = count(from - Margin(from)), last = count(to + Margin(to));
    int const wanted = last.below - first.below;
    if (wanted > m_pair.Massive())
        Refuse(KVOSrvModesFailure::Pair, kNegativeMassText);
    Reserve(wanted / 5 + std::min(wanted, kModesOfSlice)); // all are held, those of a slice refined
    m_found.modes.rows = m_order;
    int slices = 0;
    auto const slice = [&](auto const& self, Bound const& a, Bound const& b, int depth) -> void {
        int const inside = b.below - a.below;
        if (inside == 0)
            return;
        double const middle = 0.5 * a.lambda + 0.5 * b.lambda;
        if (inside > kModesOfSlice && depth < 60) {
            Bound const cut = count(middle);
            self(self, a, cut, depth + 1);
            self(self, cut, b, depth + 1);
            return;
        }
        if (++slices <= m_slices)
            return;
        Found part = OfSlice(a.lambda, b.lambda, inside);
        m_found.lambda.insert(m_found.lambda.end(), part.lambda.begin(), part.lambda.end());
        m_found.residuals.insert(m_found.residuals.end(), part.residuals.begin(), part.residuals.end());
        m_found.modes.values.insert(m_found.modes.values.end(), part.modes.values.begin(), part.modes.values.end());
        m_found.modes.columns += inside;
        m_slices = slices;
        m_place = 0;
        Keep(nullptr, &part.modes);
    };
    slice(slice, first, last, 0);
    m_account.certified = true;
    m_phase = kDone;
    Keep(nullptr, nullptr);
}
