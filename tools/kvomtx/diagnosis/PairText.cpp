#include "PairText.h"

#include "PairDiagnosis.h"
#include "Wording.h"

#include <cmath>
#include <cstdio>
#include <numbers>

namespace
{

constexpr std::size_t kShownHere = 1; // beside each other there is room for less

void Both(char const* name, std::string const& stiffness, std::string const& mass)
{
    std::printf("  %-18s %-34s %s\n", name, stiffness.c_str(), mass.c_str());
}

// tell(facts) of both matrices
template<class Tell>
void Both(char const* name, PairDiagnosis const& pair, Tell const& tell)
{
    Both(name, tell(pair.stiffness), tell(pair.mass));
}

void PrintMatrices(PairDiagnosis const& pair)
{
    using Facts = MatrixDiagnosis;
    Both("", "stiffness", "mass");
    Both("size", pair, [](Facts const& facts) { return Count(facts.rows) + " x " + Count(facts.columns) + ", " + facts.SymmetryText(); });
    Both("entries", pair, [](Facts const& facts) { return Count(facts.entries) + "; stored zeros " + Count(facts.zeros); });
    Both("values", pair, [](Facts const& facts) {
        return facts.largest < facts.smallest ? "none" : NumberText(facts.smallest) + " to " + NumberText(facts.largest);
    });
    Both("NaN", pair, [](Facts const& facts) { return PlaceList(facts.nan, kShownHere); });
    Both("infinite", pair, [](Facts const& facts) { return PlaceList(facts.infinite, kShownHere); });
    Both("empty rows", pair, [](Facts const& facts) { return NumberList(facts.emptyRows, kShownHere); });
    Both("rows of zeros", pair, [](Facts const& facts) { return NumberList(facts.zeroRows, kShownHere); });
    Both("zero diagonal", pair, [](Facts const& facts) { return PlaceList(facts.zeroDiagonal, kShownHere); });
    Both("negative diagonal", pair, [](Facts const& facts) { return PlaceList(facts.negativeDiagonal, kShownHere); });
    Both("asymmetry", pair, [](Facts const& facts) {
        return !facts.asymmetry || facts.asymmetry->pairs == 0
                   ? "none"
                   : Counted(facts.asymmetry->pairs, "pair") + ", (" + Count(facts.asymmetry->row + 1) + ", " +
                         Count(facts.asymmetry->column + 1) + ") most";
    });
    Both("repeated entries", pair, [](Facts const& facts) { return facts.repeated ? Count(facts.repeated->count) : "not told"; });
    Both("bandwidth", pair, [](Facts const& facts) { return Count(std::max(facts.lowerBandwidth, facts.upperBandwidth)); });
    Both("connection", pair, [](Facts const& facts) { return facts.pieces ? Counted(facts.pieces->count, "piece") : "not told"; });
    Both("structural rank", pair, [](Facts const& facts) { return facts.structuralRank ? Count(*facts.structuralRank) : "not told"; });
    Both("2-norm", pair,
         [](Facts const& facts) { return facts.norms && facts.norms->two ? "about " + NumberText(*facts.norms->two) : "not told"; });
    Both("definiteness", pair, [](Facts const& facts) { return std::string(facts.definiteness.Text()); });
    Both("inertia", pair, [](Facts const& facts) {
        auto const& inertia = facts.definiteness.inertia;
        return inertia ? Count(inertia->positive) + " +, " + Count(inertia->negative) + " -, " + Count(inertia->zero) + " zero"
                       : "with --deep";
    });
}

std::string EigenvalueText(double value)
{
    if (std::isinf(value))
        return "infinite";
    if (value == 0.0)
        return "0, K is singular";
    return "about " + NumberText(value) +
           (value >= 0.0 ? ", frequency " + NumberText(std::sqrt(value) / (2.0 * std::numbers::pi)) : std::string());
}

void Line(char const* name, std::string const& text)
{
    std::printf("  %-18s %s\n", name, text.c_str());
}

void PrintUnknowns(PairDiagnosis const& pair)
{
    Line("neither of both", NumberList(pair.withNeither, 3 * kShownAtMost));
    Line("stiffness only", NumberList(pair.withoutMass, 3 * kShownAtMost));
    Line("mass only", NumberList(pair.withoutStiffness, 3 * kShownAtMost));
    if (!pair.why.empty()) {
        Line("spectrum", "not told: " + pair.why);
        return;
    }
    std::string const lowest = pair.lowest                           ? EigenvalueText(*pair.lowest)
                               : pair.stiffness.definiteness.inertia ? "not told: K is not positive semidefinite"
                                                                     : "not told: --deep factors K";
    Line("lowest eigenvalue", lowest + "; at most k/m of unknown " + Count(pair.least->unknown + 1) + ", " + NumberText(pair.least->value));
    Line("highest eigenvalue", EigenvalueText(*pair.highest) + "; at least k/m of unknown " + Count(pair.greatest->unknown + 1) + ", " +
                                   NumberText(pair.greatest->value));
}

} // namespace

void PrintPair(PairDiagnosis const& pair)
{
    std::printf("%s and %s: %s and %s\n", pair.stiffness.name.c_str(), pair.mass.name.c_str(), pair.stiffness.storage.c_str(),
                pair.mass.storage.c_str());
    PrintMatrices(pair);
    if (!pair.misfit.empty())
        Line("no pair", pair.misfit);
    else
        PrintUnknowns(pair);
    for (MatrixDiagnosis const* const facts : {&pair.stiffness, &pair.mass})
        if (!facts->leftOut.empty())
            Line("left out", facts->name + ": " + facts->leftOut);
}
