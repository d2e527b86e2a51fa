#include "PairDiagnosis.h"

#include "Examine.h"
#include "LargestQuotient.h"
#include "Progress.h"

#include "KVOSrvMatrix.h"
#include "KVOSrvSparseFactor.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

namespace
{

using Vector = Quotient::Vector;

std::string SizeOf(MatrixDiagnosis const& facts)
{
    return std::to_string(facts.rows) + " x " + std::to_string(facts.columns);
}

std::string Misfit(MatrixDiagnosis const& stiffness, MatrixDiagnosis const& mass)
{
    if (stiffness.isDense || mass.isDense)
        return "a dense matrix is examined by itself only";
    if (!stiffness.IsSquare() || !mass.IsSquare() || stiffness.rows != mass.rows)
        return "K is " + SizeOf(stiffness) + " and M " + SizeOf(mass);
    return {};
}

void CompareUnknowns(PairDiagnosis& pair)
{
    for (int unknown = 0; unknown < pair.stiffness.rows; ++unknown) {
        auto const k = static_cast<std::size_t>(unknown);
        bool const hasStiffness = pair.stiffness.holdsValue[k] != 0, hasMass = pair.mass.holdsValue[k] != 0;
        if (!hasStiffness || !hasMass)
            (hasStiffness ? pair.withoutMass : hasMass ? pair.withoutStiffness : pair.withNeither).Add(unknown);
        double const quotient = pair.stiffness.diagonal[k] / pair.mass.diagonal[k];
        if (!(pair.mass.diagonal[k] > 0.0) || !std::isfinite(quotient))
            continue;
        if (!pair.least || quotient < pair.least->value)
            pair.least = DiagonalQuotient{quotient, unknown};
        if (!pair.greatest || quotient > pair.greatest->value)
            pair.greatest = DiagonalQuotient{quotient, unknown};
    }
}

std::string WhySpectrumIsNotTold(PairDiagnosis const& pair)
{
    for (MatrixDiagnosis const* const facts : {&pair.stiffness, &pair.mass}) {
        if (!facts->IsFinite())
            return facts->name + " holds values that are not finite";
        if (!facts->IsSymmetric())
            return facts->name + " is not symmetric";
    }
    if (pair.mass.definiteness.verdict == Definiteness::Verdict::kNot)
        return pair.mass.name + " is not positive semidefinite";
    if (!pair.greatest)
        return "no diagonal entry of " + pair.mass.name + " is positive";
    return {};
}

auto Product(KVOSrvSparseMatrix const& matrix)
{
    return [&matrix](Vector const& x, Vector& y) { matrix.Multiply(x.data(), 1, y.data(), false); };
}

// The ascent is the gradient over the diagonal of M, which takes the units of unknowns away.
double HighestEigenvalue(PairDiagnosis const& pair, KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, bool isDeep)
{
    int const steps = isDeep ? 300 : 60;
    if (pair.withoutMass.count > 0)
        return std::numeric_limits<double>::infinity();
    Vector const& diagonal = pair.mass.diagonal;
    Quotient quotient;
    quotient.order = diagonal.size();
    quotient.numerator = Product(stiffness);
    quotient.denominator = Product(mass);
    quotient.ascent = [&diagonal](Vector const&, Vector const& ax, Vector const& mx, double theta, Vector& direction) {
        for (std::size_t i = 0; i < ax.size(); ++i)
            direction[i] = diagonal[i] > 0.0 ? (ax[i] - theta * mx[i]) / diagonal[i] : 0.0;
    };
    return LargestQuotient(quotient, steps);
}

// 1 / lambda is the greatest quotient of M K^-1 M and M.
double LowestEigenvalue(KVOSrvSparseFactor& factor, KVOSrvSparseMatrix const& mass)
{
    constexpr int kSteps = 20;
    int const order = factor.Order();
    KVOSrvMatrix block(order, 1, nullptr, false, false);
    Vector solved(static_cast<std::size_t>(order));
    Quotient quotient;
    quotient.order = solved.size();
    quotient.denominator = Product(mass);
    auto const solve = [&](Vector const& mx) {
        std::ranges::copy(mx, block.Values());
        factor.Solve(block);
        std::copy_n(block.Values(), solved.size(), solved.begin());
    };
    quotient.numerator = [&](Vector const& x, Vector& ax) {
        quotient.denominator(x, ax);
        solve(ax);
        quotient.denominator(solved, ax);
    };
    quotient.ascent = [&](Vector const& x, Vector const&, Vector const& mx, double theta, Vector& direction) {
        solve(mx);
        for (std::size_t i = 0; i < x.size(); ++i)
            direction[i] = solved[i] - theta * x[i];
    };
    return 1.0 / LargestQuotient(quotient, kSteps);
}

bool CanBeFactored(MatrixDiagnosis const& facts)
{
    return facts.IsFinite() && facts.IsSymmetric();
}

} // namespace

PairDiagnosis ExaminePair(MatrixName const& stiffnessName, MatrixName const& massName, ExamineLimits const& limits)
{
    ExaminedMatrix stiffness = Examine(stiffnessName, {limits.memory, limits.isDeep, false});
    ExaminedMatrix mass = Examine(massName, {limits.memory, limits.isDeep, false});
    PairDiagnosis pair;
    pair.stiffness = std::move(stiffness.diagnosis);
    pair.mass = std::move(mass.diagnosis);
    pair.misfit = Misfit(pair.stiffness, pair.mass);
    if (!pair.misfit.empty())
        return pair;
    Progress const progress("examining the pair");
    CompareUnknowns(pair);
    if (limits.isDeep && CanBeFactored(pair.mass))
        pair.mass.definiteness = FactorForDefiniteness(pair.mass, *mass.matrix, limits.memory);
    pair.why = WhySpectrumIsNotTold(pair);
    if (pair.why.empty())
        pair.highest = HighestEigenvalue(pair, *stiffness.matrix, *mass.matrix, limits.isDeep);
    if (limits.isDeep && CanBeFactored(pair.stiffness))
        pair.stiffness.definiteness =
            FactorForDefiniteness(pair.stiffness, *stiffness.matrix, limits.memory, [&](KVOSrvSparseFactor& factor) {
                if (pair.why.empty() && factor.NegativePivots() == 0)
                    pair.lowest = factor.ZeroPivots() > 0 ? 0.0 : LowestEigenvalue(factor, *mass.matrix);
            });
    return pair;
}
