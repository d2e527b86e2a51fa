// How eigenvalues are counted, what was missed found, and both done at once.
#include "ModesSearch.h"

#include "BlockLanczos.h"
#include "SearchLimits.h"
#include "SpectrumEstimate.h"

#include "KVOSrvSparseFactor.h"

#include <algorithm>
#include <cmath>

namespace
{

constexpr int kMostBounds = 12;
constexpr int kMostGuesses = 2;
// More modes below a bound than so many times those wanted are not worth the factorization that they save.
constexpr int kMostOthers = 3;

// How many of the first Ritz values lie below the shift.
int BelowShift(BlockLanczos& lanczos, int first)
{
    auto const& ritz = lanczos.Ritz();
    return static_cast<int>(std::count_if(ritz.begin(), ritz.begin() + first, [](RitzValue const& value) { return value.theta < 0.0; }));
}

} // namespace

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
    RefuseSearch(KVOSrvModesFailure::Missed,
                 "the eigenvalues below " + SearchText(bound) + " cannot be counted; try another count or range");
}

// The lowest modes and their count from one factorization, of K - bound M, where an estimate tells of a bound that they lie below and few
// others: in terms of theta they lie beyond all others then and are found as fast as from 0. @return false where that does not work out
bool ModesSearch::FindAroundBound()
{
    try {
        if (m_phase == kBegun && !(m_settings.certify && !m_settings.shift && FactorAtBound())) {
            m_phase = kSearching;
        } else if (std::optional<Found> found = SearchAroundBound()) {
            m_found = std::move(*found);
            m_foundShift = -m_sigma;
            m_isAround = true;
            return true;
        }
    } catch (KVOSrvModesFailure const& failure) { // the search from 0 may do with less memory, and says what is wrong with the pair
        if (failure.WhatFailed() == KVOSrvModesFailure::Disk || failure.WhatFailed() == KVOSrvModesFailure::Internal ||
            failure.WhatFailed() == KVOSrvModesFailure::Kept)
            throw;
    }
    m_phase = kSearching;
    Reserve(m_settings.count + kBlock);
    return false;
}

bool ModesSearch::FactorAtBound()
{
    int const count = m_settings.count;
    double wanted = SpectrumEstimate::Safely(count);
    SpectrumEstimate const estimate(m_stiffness, m_mass, wanted);
    for (int tries = 0; tries < kMostGuesses; ++tries) {
        std::optional<double> const bound = estimate.ValueAbove(wanted);
        if (!bound || *bound < kFarShift * Margin(*bound))
            return false;
        Reserve(static_cast<int>(wanted) + kBlock);
        FactorIndefinite(*bound);
        m_bound = *bound;
        m_below = m_factor->NegativePivots();
        if (m_factor->ZeroPivots() == 0 && m_below >= count && m_below <= kMostOthers * (count + kBlock))
            return true;
        wanted *= std::clamp(SpectrumEstimate::Safely(count) / std::max(1, m_below), 0.1, 3.0);
    }
    return false;
}

std::optional<ModesSearch::Found> ModesSearch::SearchAroundBound()
{
    std::unique_ptr<BlockLanczos> lanczos = TakeKept();
    if (!lanczos) {
        m_phase = kAround;
        lanczos = Start(m_below);
    }
    lanczos->PreferNegative();
    // The search also ends where so many beyond the bound are found that no other below is to be expected any more.
    Converge(
        *lanczos, [&](int converged) { return BelowShift(*lanczos, converged) >= m_below || converged >= m_below + kModesBeyond; },
        m_below);
    double nearest = 0.0;
    for (RitzValue const& value : lanczos->Ritz())
        nearest = std::max(nearest, std::fabs(value.theta));
    int const found = BelowShift(*lanczos, Converged(*lanczos));
    if (found == 0 || std::max(kTooNear * m_bound, 4.0 * Margin(m_bound)) * nearest > 1.0)
        return std::nullopt;
    Found modes = Refine(lanczos->Vectors(0, found));
    // A bound that is many times the lowest eigenvalue leaves it too few digits, and a negative one is for the search from 0 to judge.
    double const rounding = kRoundings * kEpsilon * std::max(m_pair.largest, m_bound);
    auto const elastic = std::ranges::find_if(modes.lambda, [&](double value) { return value > rounding; });
    bool const isFar = elastic != modes.lambda.end() && m_bound > kFarShift * *elastic;
    if (isFar || !(std::ranges::max(modes.residuals) <= m_settings.tolerance) || modes.lambda.front() < -rounding ||
        modes.lambda.back() >= m_bound)
        return std::nullopt;
    return modes;
}

// Compares what was found with the number of eigenvalues below a bound behind it, and looks for what is missing. @return whether there was
// any: what was found are other columns then
bool ModesSearch::Certify()
{
    int const known = static_cast<int>(m_found.lambda.size());
    if (m_phase != kMissing && !m_isAround) {
        double const last = m_found.lambda.back();
        m_foundShift = -m_sigma;
        m_bound = last + std::max(Margin(last), std::min(0.1 * (m_next - last), 0.1 * std::max(std::fabs(last), std::fabs(m_sigma))));
        m_below = CountBelow(m_bound);
        if (m_below < known)
            RefuseSearch(KVOSrvModesFailure::Missed, "only " + std::to_string(m_below) + " of " + std::to_string(known) +
                                                         " eigenvalues below " + SearchText(m_bound) + " were counted; try another shift");
    }
    bool const areMissing = m_below > known;
    if (areMissing && m_phase != kMissing && m_isAround)
        CountBelow(m_bound); // a search that goes on has no factor yet
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
    // Those known are found at once; the search ends where the modes around the bound are found on both sides and none is new.
    int const most = known + 4 * (below - known) + 40;
    Converge(
        *lanczos, [&](int converged) { return BelowShift(*lanczos, converged) >= below || converged >= most; }, below);
    int const converged = Converged(*lanczos);
    if (BelowShift(*lanczos, converged) < below)
        RefuseSearch(KVOSrvModesFailure::Missed, "of " + std::to_string(below) + " eigenvalues below " + SearchText(m_bound) + " only " +
                                                     std::to_string(BelowShift(*lanczos, converged)) + " were found; ask for more modes");
    Panel vectors(m_order, below);
    for (int j = 0, to = 0; to < below; ++j)
        if (lanczos->Ritz()[static_cast<std::size_t>(j)].theta < 0.0)
            std::ranges::copy(lanczos->Vectors(j, 1).values, vectors.Column(to++));
    // From a bound just behind them, inverse iteration would lead to modes above it; and it may be too near to one.
    if (!m_isAround && !FactorDefinite(m_foundShift))
        RefuseSearch(KVOSrvModesFailure::Internal, "the stiffness was positive definite before and is not now");
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
