#include "Convergence.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace
{

constexpr double kUnknown = std::numeric_limits<double>::infinity();
constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
// Factors of the error closer to 1 are not told from it by the Ritz values of a step.
constexpr double kSlowest = 1.0 - 1e-9;
// The predicted factor is too small while the highest Ritz value is still too high, and the observed one is none among rounding errors:
// up to here it is believed.
constexpr double kBelieved = 0.9;
// An eigenvalue of less than this share of the shift is no other than 0: a rigid body mode.
constexpr double kRigidShare = 1e-10;
// Rounding moves a value up as often as down; this many times up are no accident.
constexpr int kStagnantSteps = 3;
// What may be left when rounding has ended the fall: ten digits of the eigenvalue are good, else the rounding of K in its largest
// eigenvalue, a hundred times as products and solves sum up.
constexpr double kGoodShare = 1e-10;
constexpr double kRoundings = 100.0;

} // namespace

Convergence::Convergence(int count, double tolerance, double largest)
    : m_count(static_cast<std::size_t>(count)), m_tolerance(tolerance), m_largest(largest), m_stagnant(m_count)
{
}

void Convergence::Restart()
{
    m_values.clear();
    m_changes.clear();
    m_leftOfLowest = kUnknown;
    std::ranges::fill(m_stagnant, 0);
}

void Convergence::Take(std::vector<double> const& shifted, double shift, bool complete)
{
    m_found = 0;
    m_history.emplace_back(m_count, kUnknown);
    if (shifted.size() < m_count)
        return Restart();
    std::vector<Fall> falls;
    for (std::size_t i = 0; i < shifted.size(); ++i)
        falls.push_back(FallOf(i, shifted, complete));
    // How far down one of the values above the wanted ones may get.
    double lowestOther = kUnknown;
    for (std::size_t i = m_count; i < shifted.size() && !complete; ++i)
        lowestOther = std::min(lowestOther, shifted[i] - falls[i].observed);

    for (std::size_t i = 0; i < m_count; ++i) {
        m_history.back()[i] = falls[i].change / shifted[i];
        m_found += IsFound(i, falls[i], shifted[i], shift, lowestOther);
    }
    m_leftOfLowest = std::max(falls.front().observed, falls.front().predicted);
    m_values = shifted;
    m_changes.clear();
    for (Fall const& fall : falls)
        m_changes.push_back(fall.change);
}

Convergence::Fall Convergence::FallOf(std::size_t i, std::vector<double> const& shifted, bool complete) const
{
    if (i >= m_values.size())
        return {kUnknown, kUnknown, kUnknown};
    double const change = std::fabs(shifted[i] - m_values[i]);
    double const least = std::max(change, kEpsilon * shifted[i]);
    if (complete)
        return {change, least, least};
    double const observed = change < kBelieved * m_changes[i] && std::isfinite(m_changes[i]) ? change / m_changes[i] : kBelieved;
    double const ratio = shifted[i] / shifted.back(), predicted = std::min(ratio * ratio, kSlowest);
    // The sum of the changes to come; values that are all alike, multiple eigenvalues, have nowhere to go.
    auto const sum = [&, spread = shifted.back() - shifted.front()](double factor) {
        return std::max(least, std::min(spread, least * factor / (1.0 - factor)));
    };
    return {change, sum(observed), sum(predicted)};
}

bool Convergence::IsFound(std::size_t mode, Fall const& fall, double value, double shift, double lowestOther)
{
    double const lambda = std::fabs(value - shift), below = value - lowestOther;
    if (std::max({fall.observed, fall.predicted, below}) <= m_tolerance * (lambda > kRigidShare * value ? lambda : value))
        return true;
    bool const small = std::max(fall.predicted, below) <= std::max(kGoodShare * lambda, kRoundings * kEpsilon * m_largest);
    if (!small)
        m_stagnant[mode] = 0;
    else if (value >= m_values[mode])
        ++m_stagnant[mode];
    return m_stagnant[mode] >= kStagnantSteps;
}
