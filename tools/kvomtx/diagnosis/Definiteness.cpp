#include "Definiteness.h"

#include "Errors.h"
#include "FullMatrix.h"
#include "LargestQuotient.h"
#include "MatrixDiagnosis.h"
#include "Progress.h"
#include "ProviderMemory.h"
#include "Wording.h"

#include "KVOSrvMatrix.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvSparseFactor.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace
{

// The minor of order two that is most negative for its size: its entry is greater than the geometric mean of its diagonal ones.
struct NegativeMinor {
    int row = -1;
    int column = -1;
    double excess = 1.0 + 1e-12; // rounding of whoever wrote the matrix
};

NegativeMinor FindNegativeMinor(KVOSrvSparseRows const& matrix, std::vector<double> const& diagonal)
{
    std::vector<double> roots(diagonal.size());
    std::ranges::transform(diagonal, roots.begin(), [](double entry) { return std::sqrt(entry); });
    NegativeMinor found;
    ForEachEntry(matrix, [&](int row, int column, double value) {
        double const mean = roots[static_cast<std::size_t>(row)] * roots[static_cast<std::size_t>(column)];
        if (column < row && std::fabs(value) > found.excess * mean)
            found = {row, column, mean > 0.0 ? std::fabs(value) / mean : std::numeric_limits<double>::infinity()};
    });
    return found;
}

// ||A^-1|| squared is the greatest quotient of A^-2.
double SmallestSingularValue(KVOSrvSparseFactor& factor)
{
    constexpr int kSteps = 12; // each of four solves
    int const order = factor.Order();
    using Vector = Quotient::Vector;
    KVOSrvMatrix block(order, 1, nullptr, false, false);
    Quotient quotient;
    quotient.order = static_cast<std::size_t>(order);
    quotient.numerator = [&](Vector const& x, Vector& ax) {
        std::ranges::copy(x, block.Values());
        factor.Solve(block);
        factor.Solve(block);
        std::copy_n(block.Values(), ax.size(), ax.begin());
    };
    quotient.denominator = [](Vector const& x, Vector& mx) { mx = x; };
    quotient.ascent = [](Vector const& x, Vector const& ax, Vector const&, double theta, Vector& direction) {
        for (std::size_t i = 0; i < x.size(); ++i)
            direction[i] = ax[i] - theta * x[i];
    };
    return 1.0 / std::sqrt(LargestQuotient(quotient, kSteps));
}

} // namespace

char const* Definiteness::Text() const noexcept
{
    switch (verdict) {
    case Verdict::kPositive:
        return "positive definite";
    case Verdict::kSemidefinite:
        return "positive semidefinite";
    case Verdict::kNot:
        return "not positive semidefinite";
    case Verdict::kNotTold:
        break;
    }
    return "not told";
}

Definiteness JudgeDefiniteness(MatrixDiagnosis const& facts, KVOSrvSparseRows const& matrix)
{
    using enum Definiteness::Verdict;
    if (!facts.IsFinite())
        return {kNotTold, "there are values that are not finite", {}, {}};
    if (!facts.IsSymmetric())
        return {kNotTold, facts.SymmetryText(), {}, {}};
    if (facts.negativeDiagonal.count > 0) {
        int const row = facts.negativeDiagonal.first.front().row;
        return {kNot, "the diagonal entry " + PlaceText({row, row}) + " is negative", {}, {}};
    }
    if (NegativeMinor const minor = FindNegativeMinor(matrix, facts.diagonal); minor.row >= 0)
        return {kNot, "the entry " + PlaceText({minor.row, minor.column}) + " is too large for its diagonal entries", {}, {}};
    // What is left has a diagonal that is positive but in rows of zeros.
    int const strict = facts.dominance->strict;
    if (strict == facts.rows)
        return {kPositive, "its rows are dominated by their diagonal", {}, {}};
    if (strict + facts.dominance->weak == facts.rows)
        return {kSemidefinite, "the diagonal of each row is at least the sum of the others", {}, {}};
    return {kNotTold, "--deep factors the matrix", {}, {}};
}

Definiteness FactorForDefiniteness(MatrixDiagnosis const& facts, KVOSrvSparseMatrix const& matrix, std::int64_t memory,
                                   std::function<void(KVOSrvSparseFactor&)> const& use)
{
    using enum Definiteness::Verdict;
    Progress progress("factoring " + facts.name);
    RequireProviderMemory();
    try {
        KVOSrvFactorSettings settings;
        settings.memory = memory;
        KVOSrvSparseFactor factor(matrix, nullptr, settings);
        factor.Factorize(0.0, false);
        int const negative = factor.NegativePivots(), zero = factor.ZeroPivots();
        Definiteness found{negative > 0 ? kNot
                           : zero > 0   ? kSemidefinite
                                        : kPositive,
                           "by the inertia of the factor",
                           Definiteness::Inertia{facts.rows - negative - zero, negative, zero},
                           {}};
        found.factorEntries = factor.Account().factorEntries;
        if (zero == 0 && facts.rows > 0)
            found.smallestSingularValue = SmallestSingularValue(factor);
        if (use)
            use(factor);
        return found;
    } catch (KVOSrvModesFailure const& failure) {
        throw ToolError(failure.WhatFailed() == KVOSrvModesFailure::Disk ? ExitCode::kUnwritable : ExitCode::kCannot,
                        facts.name + ": " + failure.UserReport().c_str() +
                            (failure.WhatFailed() == KVOSrvModesFailure::Memory ? " (--memory)" : ""));
    }
}
