// All modes of an interval.
#include "ModesSearch.h"

#include "BlockLanczos.h"
#include "NegativeMass.h"
#include "SearchLimits.h"

#include "KVOSrvSparseFactor.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace
{

constexpr int kModesOfSlice = 64;
// Where in a slice the shift is tried: not where users put their bounds and models have their eigenvalues.
constexpr double kPlacesInSlice[] = {0.4837, 0.5171, 0.4462, 0.5523, 0.4119};

} // namespace

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
    RefuseSearch(KVOSrvModesFailure::Missed, "of " + std::to_string(inside) + " eigenvalues between " + SearchText(from) + " and " +
                                                 SearchText(to) + " only " + std::to_string(here) +
                                                 " were found; try a range with other ends");
}

void ModesSearch::OfInterval()
{
    double const from = m_settings.from.value_or(-kInfinity), to = m_settings.to.value_or(kInfinity);
    if (!(from < to) || !std::isfinite(to) || !std::isfinite(from))
        RefuseSearch(KVOSrvModesFailure::Shift, "the range is empty or has no end; give two frequencies, the lower one first");
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
        RefuseSearch(KVOSrvModesFailure::Pair, kNegativeMassText);
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
