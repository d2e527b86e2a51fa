#include "DiagnosisText.h"

#include "MatrixDiagnosis.h"
#include "Wording.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{

void Line(char const* name, std::string const& text)
{
    std::printf("  %-18s %s\n", name, text.c_str());
}

std::string OnlyOf(Found<int> const& rows, Found<int> const& columns)
{
    if (rows.count == 0 && columns.count == 0)
        return "none";
    return Joined("rows ", NumberList(rows), "; columns ", NumberList(columns));
}

void PrintSize(MatrixDiagnosis const& facts)
{
    double const places = static_cast<double>(facts.rows) * facts.columns;
    Line("size", Count(facts.rows) + " x " + Count(facts.columns) + ", " + facts.SymmetryText());
    std::string entries = Count(facts.entries);
    if (places > 0)
        entries += ", " + NumberText(100.0 * static_cast<double>(facts.entries) / places) + "% of all places; " + Count(facts.fewestInRow) +
                   " to " + Count(facts.mostInRow) + " a row";
    Line("entries", entries + (facts.isDense ? "; zeros " : "; stored zeros ") + Count(facts.zeros));
    if (facts.largest < facts.smallest)
        return;
    std::string values = NumberText(facts.smallest) + " to " + NumberText(facts.largest);
    if (std::isfinite(facts.smallestSize))
        values += ", the smallest in size but 0 " + NumberText(facts.smallestSize);
    Line("values", values);
}

void PrintMagnitudes(Magnitudes const& magnitudes)
{
    constexpr int kMostBars = 10, kWidth = 40;
    int const first = magnitudes.First(), last = magnitudes.Last();
    if (first > last)
        return;
    int const decades = (last - first) / kMostBars + 1; // of a bar
    std::vector<std::int64_t> counts;
    for (int decade = first; decade <= last; ++decade) {
        if ((decade - first) % decades == 0)
            counts.push_back(0);
        counts.back() += magnitudes.Count(decade);
    }
    std::int64_t const most = *std::ranges::max_element(counts);
    for (std::size_t k = 0; k < counts.size(); ++k) {
        int const length = static_cast<int>(std::ceil(static_cast<double>(counts[k]) / static_cast<double>(most) * kWidth));
        char from[32];
        std::snprintf(from, sizeof from, "1e%d and up", first + static_cast<int>(k) * decades);
        std::printf("  %-18s %-14s %10lld%s%s\n", k == 0 ? "magnitudes" : "", from, static_cast<long long>(counts[k]),
                    length > 0 ? "  " : "", std::string(static_cast<std::size_t>(length), '#').c_str());
    }
}

void PrintFound(MatrixDiagnosis const& facts)
{
    Line("NaN", PlaceList(facts.nan));
    Line("infinite", PlaceList(facts.infinite));
    Line("empty", OnlyOf(facts.emptyRows, facts.emptyColumns));
    Line("zeros only", OnlyOf(facts.zeroRows, facts.zeroColumns));
    if (facts.IsSquare()) {
        Line("zero diagonal", PlaceList(facts.zeroDiagonal));
        Line("negative diagonal", PlaceList(facts.negativeDiagonal));
        Line("asymmetry", AsymmetryText(*facts.asymmetry));
    }
    if (!facts.isDense)
        Line("repeated entries", RepeatedText(facts.repeated));
}

std::string PiecesText(Pieces const& pieces, bool isSquare)
{
    std::string text = pieces.count == 1 ? "all is connected" : Count(pieces.count) + " pieces";
    if (pieces.count < 2)
        return text;
    std::size_t const shown = std::min(pieces.largest.size(), kShownAtMost);
    for (std::size_t k = 0; k < shown; ++k) {
        Pieces::Size const& size = pieces.largest[k];
        text += Joined(k == 0 ? " of " : ", ", Count(size.rows), isSquare ? "" : Joined(" x ", Count(size.columns)));
    }
    return text + (pieces.count > static_cast<std::int64_t>(shown) ? ", ..." : "") + (isSquare ? " unknowns" : "");
}

void PrintStructure(MatrixDiagnosis const& facts)
{
    std::string bandwidth = Count(facts.lowerBandwidth) + " below the diagonal, " + Count(facts.upperBandwidth) + " above";
    if (facts.reordered)
        bandwidth += "; reordered " + Count(facts.reordered->bandwidth);
    Line("bandwidth", bandwidth);
    if (facts.envelope)
        Line("profile",
             Count(facts.envelope->profile) + " places" + (facts.reordered ? Joined("; reordered ", Count(facts.reordered->profile)) : ""));
    if (facts.pieces)
        Line("connection", PiecesText(*facts.pieces, facts.IsSquare()));
    if (facts.structuralRank) {
        int const full = std::min(facts.rows, facts.columns), rank = *facts.structuralRank;
        Line("structural rank", Count(rank) + (rank == full ? ", full" : Joined(", ", Count(full - rank), " less than full")));
    }
}

void PrintNumbers(MatrixDiagnosis const& facts)
{
    if (!facts.norms) {
        Line("norms", "not told: there are values that are not finite");
        return;
    }
    if (facts.dominance && facts.dominance->weakestRow >= 0)
        Line("dominant diagonal",
             Count(facts.dominance->strict) + " of " + Counted(facts.rows, "row") +
                 (std::isfinite(facts.dominance->weakest) ? Joined("; weakest row ", Count(facts.dominance->weakestRow + 1), ", ",
                                                                   NumberText(facts.dominance->weakest), " of the others' sum")
                                                          : "; there is nothing beside the diagonal"));
    std::string norms = Joined("1: ", NumberText(facts.norms->one), ", inf: ", NumberText(facts.norms->infinity),
                               ", Frobenius: ", NumberText(facts.norms->frobenius));
    if (facts.norms->two)
        norms += ", 2: about " + NumberText(*facts.norms->two);
    Line("norms", norms);
    if (!facts.IsSquare() || facts.isDense)
        return;
    Definiteness const& found = facts.definiteness;
    Line("definiteness", std::string(found.Text()) + ": " + found.why);
    if (found.inertia)
        Line("inertia", Count(found.inertia->positive) + " positive, " + Count(found.inertia->negative) + " negative, " +
                            Count(found.inertia->zero) + " zero; factor of " + Count(found.factorEntries) + " entries");
    if (found.smallestSingularValue)
        Line("condition",
             Joined(facts.norms->two ? Joined("about ", NumberText(*facts.norms->two / *found.smallestSingularValue), "; ") : "",
                    "smallest singular value about ", NumberText(*found.smallestSingularValue)));
    else if (found.inertia && found.inertia->zero > 0)
        Line("condition", "singular");
}

} // namespace

void PrintDiagnosis(MatrixDiagnosis const& facts)
{
    std::printf("%s: %s\n", facts.name.c_str(), facts.storage.c_str());
    PrintSize(facts);
    PrintMagnitudes(facts.magnitudes);
    PrintFound(facts);
    PrintStructure(facts);
    PrintNumbers(facts);
    if (!facts.leftOut.empty())
        Line("left out", facts.leftOut);
}
