#include "DiagnosisJson.h"

#include "MatrixDiagnosis.h"
#include "PairDiagnosis.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{

using Json = nlohmann::ordered_json;

// JSON has no infinities and no NaN: a range without values is null, a value is its text.
Json Number(double value)
{
    return std::isfinite(value) ? Json(value) : Json();
}

Json Value(double value)
{
    return std::isfinite(value) ? Json(value) : Json(std::isnan(value) ? "nan" : value > 0.0 ? "inf" : "-inf");
}

Json LineOf(std::int64_t line)
{
    return line > 0 ? Json(line) : Json();
}

Json ToJson(int number)
{
    return number + 1;
}

Json ToJson(EntryPlace const& place)
{
    return {{"row", place.row + 1}, {"column", place.column + 1}, {"value", Value(place.value)}, {"line", LineOf(place.line)}};
}

Json ToJson(RepeatedEntry const& one)
{
    Json object = ToJson(one.place);
    object["again_line"] = LineOf(one.againLine);
    return object;
}

template<class T>
Json ToJson(Found<T> const& found)
{
    Json first = Json::array();
    for (T const& one : found.first)
        first.push_back(ToJson(one));
    return {{"count", found.count}, {"first", std::move(first)}};
}

Json ToJson(Asymmetry const& found)
{
    return {{"largest", Number(found.largest)},
            {"row", found.row + 1},
            {"column", found.column + 1},
            {"value", Value(found.value)},
            {"mirror", Value(found.mirror)},
            {"line", LineOf(found.line)},
            {"mirror_line", LineOf(found.mirrorLine)},
            {"pairs", found.pairs}};
}

Json ToJson(Envelope const& envelope)
{
    return {{"bandwidth", envelope.bandwidth}, {"profile", envelope.profile}};
}

Json ToJson(Pieces const& pieces)
{
    Json largest = Json::array();
    for (Pieces::Size const& size : pieces.largest)
        largest.push_back({{"rows", size.rows}, {"columns", size.columns}});
    return {{"count", pieces.count}, {"largest", std::move(largest)}};
}

Json ToJson(Dominance const& dominance)
{
    return {{"strict_rows", dominance.strict},
            {"weak_rows", dominance.weak},
            {"weakest_row", dominance.weakestRow + 1},
            {"weakest", Number(dominance.weakest)}};
}

Json ToJson(Norms const& norms)
{
    return {{"one", Number(norms.one)},
            {"infinity", Number(norms.infinity)},
            {"frobenius", Number(norms.frobenius)},
            {"two_estimate", norms.two ? Number(*norms.two) : Json()}};
}

Json ToJson(Definiteness const& found)
{
    Json object{{"verdict", found.Text()}, {"why", found.why}, {"inertia", nullptr}};
    if (found.inertia)
        object["inertia"] = {{"positive", found.inertia->positive}, {"negative", found.inertia->negative}, {"zero", found.inertia->zero}};
    object["smallest_singular_value"] = found.smallestSingularValue ? Number(*found.smallestSingularValue) : Json();
    object["factor_entries"] = found.factorEntries;
    return object;
}

Json ToJson(DiagonalQuotient const& quotient)
{
    return {{"value", quotient.value}, {"unknown", quotient.unknown + 1}};
}

template<class T>
Json ToJson(std::optional<T> const& fact)
{
    return fact ? ToJson(*fact) : Json();
}

Json ToJson(Magnitudes const& magnitudes)
{
    Json decades = Json::array();
    for (int decade = magnitudes.First(); decade <= magnitudes.Last(); ++decade)
        decades.push_back({{"decade", decade}, {"count", magnitudes.Count(decade)}});
    return decades;
}

Json ToJson(MatrixDiagnosis const& facts)
{
    Json object;
    object["matrix"] = facts.name;
    object["format"] = facts.storage;
    object["rows"] = facts.rows;
    object["columns"] = facts.columns;
    object["entries"] = facts.entries;
    object["stored_zeros"] = facts.zeros;
    object["not_finite"] = facts.nan.count + facts.infinite.count;
    object["symmetry"] = facts.SymmetryText();
    object["lower_bandwidth"] = facts.lowerBandwidth;
    object["upper_bandwidth"] = facts.upperBandwidth;
    object["smallest_value"] = Number(facts.smallest);
    object["largest_value"] = Number(facts.largest);
    object["smallest_nonzero_size"] = Number(facts.smallestSize);
    object["trivial_rows"] = facts.emptyRows.count;
    object["zero_rows"] = facts.zeroRows.count;
    object["trivial_columns"] = facts.emptyColumns.count;
    object["fewest_entries_in_row"] = facts.fewestInRow;
    object["most_entries_in_row"] = facts.mostInRow;
    object["magnitudes"] = ToJson(facts.magnitudes);
    object["found"] = {{"nan", ToJson(facts.nan)},
                       {"infinite", ToJson(facts.infinite)},
                       {"empty_row", ToJson(facts.emptyRows)},
                       {"empty_column", ToJson(facts.emptyColumns)},
                       {"zero_row", ToJson(facts.zeroRows)},
                       {"zero_column", ToJson(facts.zeroColumns)},
                       {"zero_diagonal", ToJson(facts.zeroDiagonal)},
                       {"negative_diagonal", ToJson(facts.negativeDiagonal)},
                       {"repeated", facts.repeated ? ToJson(*facts.repeated) : Json()}};
    object["asymmetry"] = ToJson(facts.asymmetry);
    object["envelope"] = ToJson(facts.envelope);
    object["reordered"] = ToJson(facts.reordered);
    object["pieces"] = ToJson(facts.pieces);
    object["structural_rank"] = facts.structuralRank ? Json(*facts.structuralRank) : Json();
    object["dominance"] = ToJson(facts.dominance);
    object["norms"] = ToJson(facts.norms);
    object["definiteness"] = ToJson(facts.definiteness);
    object["left_out"] = facts.leftOut;
    return object;
}

// An infinite one is told as such.
Json Eigenvalue(std::optional<double> const& value)
{
    return value ? Value(*value) : Json();
}

void Print(Json const& object)
{
    std::printf("%s\n", object.dump(4, ' ', false, Json::error_handler_t::replace).c_str());
}

} // namespace

void PrintDiagnosisJson(MatrixDiagnosis const& facts)
{
    Print(ToJson(facts));
}

void PrintPairJson(PairDiagnosis const& pair)
{
    Json object;
    object["stiffness"] = ToJson(pair.stiffness);
    object["mass"] = ToJson(pair.mass);
    object["misfit"] = pair.misfit;
    object["found"] = {{"empty_unknown", ToJson(pair.withNeither)},
                       {"without_mass", ToJson(pair.withoutMass)},
                       {"without_stiffness", ToJson(pair.withoutStiffness)}};
    object["least_diagonal_quotient"] = ToJson(pair.least);
    object["greatest_diagonal_quotient"] = ToJson(pair.greatest);
    object["lowest_eigenvalue"] = Eigenvalue(pair.lowest);
    object["highest_eigenvalue"] = Eigenvalue(pair.highest);
    object["spectrum_not_told"] = pair.why;
    Print(object);
}
