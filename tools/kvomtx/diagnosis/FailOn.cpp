#include "FailOn.h"

#include "Errors.h"
#include "MatrixDiagnosis.h"
#include "PairDiagnosis.h"
#include "Wording.h"

#include <algorithm>
#include <sstream>

namespace
{

constexpr std::size_t kTold = 1; // of what was found; the diagnosis shows more

struct MatrixWord {
    char const* word;
    char const* meaning;
    /// What is wrong; empty when nothing is.
    std::string (*complaint)(MatrixDiagnosis const& facts);
};

struct PairWord {
    char const* word;
    char const* meaning;
    std::string (*complaint)(PairDiagnosis const& pair);
};

template<class T, class Tell>
std::string Of(Found<T> const& found, Tell const& tell)
{
    return found.count > 0 ? tell(found, kTold) : "";
}

std::string WithoutFullRank(MatrixDiagnosis const& facts)
{
    if (!facts.structuralRank)
        return "not told";
    int const full = std::min(facts.rows, facts.columns);
    return *facts.structuralRank == full ? "" : Joined(Count(*facts.structuralRank), " of ", Count(full));
}

std::string NotDefinite(MatrixDiagnosis const& facts)
{
    return facts.definiteness.verdict == Definiteness::Verdict::kPositive
               ? ""
               : Joined(facts.definiteness.Text(), facts.definiteness.why.empty() ? "" : Joined(", ", facts.definiteness.why));
}

std::string Indefinite(MatrixDiagnosis const& facts)
{
    return facts.definiteness.verdict == Definiteness::Verdict::kSemidefinite ? "" : NotDefinite(facts);
}

constexpr MatrixWord kMatrixWords[] = {
    {"nan", "a value is NaN", [](MatrixDiagnosis const& facts) { return Of(facts.nan, PlaceList); }},
    {"infinite", "a value is infinite", [](MatrixDiagnosis const& facts) { return Of(facts.infinite, PlaceList); }},
    {"empty-row", "a row has no entry", [](MatrixDiagnosis const& facts) { return Of(facts.emptyRows, NumberList); }},
    {"empty-column", "a column has no entry", [](MatrixDiagnosis const& facts) { return Of(facts.emptyColumns, NumberList); }},
    {"zero-row", "a row has entries, but zeros only", [](MatrixDiagnosis const& facts) { return Of(facts.zeroRows, NumberList); }},
    {"zero-column", "a column has entries, but zeros only", [](MatrixDiagnosis const& facts) { return Of(facts.zeroColumns, NumberList); }},
    {"zero-diagonal", "a diagonal entry is 0 or missing", [](MatrixDiagnosis const& facts) { return Of(facts.zeroDiagonal, PlaceList); }},
    {"negative-diagonal", "a diagonal entry is negative",
     [](MatrixDiagnosis const& facts) { return Of(facts.negativeDiagonal, PlaceList); }},
    {"asymmetric", "not symmetric up to 1e-12 of the largest value",
     [](MatrixDiagnosis const& facts) {
         return facts.IsSymmetric() ? std::string() : facts.asymmetry ? AsymmetryText(*facts.asymmetry) : facts.SymmetryText();
     }},
    {"repeated", "the file holds an entry more than once",
     [](MatrixDiagnosis const& facts) {
         return facts.repeated && facts.repeated->count == 0 ? std::string() : RepeatedText(facts.repeated, kTold);
     }},
    {"disconnected", "there are parts that nothing connects",
     [](MatrixDiagnosis const& facts) {
         return facts.pieces && facts.pieces->count > 1 ? Counted(facts.pieces->count, "piece") : std::string();
     }},
    {"rank-deficient", "the structural rank is not full", WithoutFullRank},
    {"indefinite", "not shown to be positive semidefinite (mostly needs --deep)", Indefinite},
    {"not-definite", "not shown to be positive definite (mostly needs --deep)", NotDefinite},
};

constexpr PairWord kPairWords[] = {
    {"misfit", "K and M are not square and of one order", [](PairDiagnosis const& pair) { return pair.misfit; }},
    {"empty-unknown", "an unknown has neither stiffness nor mass",
     [](PairDiagnosis const& pair) { return Of(pair.withNeither, NumberList); }},
    {"massless", "an unknown has no mass",
     [](PairDiagnosis const& pair) {
         return Of(pair.withNeither, NumberList) + (pair.withNeither.count * pair.withoutMass.count > 0 ? "; " : "") +
                Of(pair.withoutMass, NumberList);
     }},
};

template<class Take>
void ForEachWord(std::string const& words, Take const& take)
{
    std::istringstream stream(words);
    for (std::string word; std::getline(stream, word, ',');)
        take(word);
}

template<class Words, class Subject>
void Complain(std::string& complaints, std::string const& asked, Words const& known, Subject const& subject)
{
    ForEachWord(asked, [&](std::string const& word) {
        for (auto const& one : known)
            if (std::string const complaint = word == one.word ? one.complaint(subject) : ""; !complaint.empty())
                complaints += Joined(complaints.empty() ? "" : "; ", word, ": ", complaint);
    });
}

void RequireEmpty(std::string const& complaints, std::string const& name)
{
    if (!complaints.empty())
        throw ToolError(ExitCode::kCannot, name + ": " + complaints);
}

} // namespace

std::string RequireFailWords(std::string const& text)
{
    std::string known, complaint = text.empty() ? "no word" : "";
    auto const add = [&known](char const* word) { known += Joined(known.empty() ? "" : ", ", word); };
    for (MatrixWord const& one : kMatrixWords)
        add(one.word);
    for (PairWord const& one : kPairWords)
        add(one.word);
    ForEachWord(text, [&](std::string const& word) {
        auto const is = [&word](auto const& one) { return word == one.word; };
        if (complaint.empty() && std::ranges::none_of(kMatrixWords, is) && std::ranges::none_of(kPairWords, is))
            complaint = Joined("\"", word, "\"");
    });
    return complaint.empty() ? "" : complaint + " is not known; words are " + known;
}

std::string DescribeFailWords()
{
    std::string text;
    auto const add = [&text](auto const& one) {
        std::string const word = one.word;
        text += Joined("  ", word, std::string(20 - word.size(), ' '), one.meaning, "\n");
    };
    std::ranges::for_each(kMatrixWords, add);
    text += "of a pair, where those above hold for both matrices:\n";
    std::ranges::for_each(kPairWords, add);
    return text;
}

void RequireWordsOfOne(std::string const& words)
{
    ForEachWord(words, [](std::string const& word) {
        if (std::ranges::any_of(kPairWords, [&word](PairWord const& one) { return word == one.word; }))
            throw ToolError(ExitCode::kUsage, "--fail-on " + word + " is of a pair; give K and M");
    });
}

void RequireNone(std::string const& words, MatrixDiagnosis const& facts)
{
    std::string complaints;
    Complain(complaints, words, kMatrixWords, facts);
    RequireEmpty(complaints, facts.name);
}

void RequireNone(std::string const& words, PairDiagnosis const& pair)
{
    std::string all;
    for (MatrixDiagnosis const* const facts : {&pair.stiffness, &pair.mass}) {
        std::string complaints;
        Complain(complaints, words, kMatrixWords, *facts);
        if (!complaints.empty())
            all += Joined(all.empty() ? "" : "; ", facts->name, ": ", complaints);
    }
    std::string complaints;
    Complain(complaints, words, kPairWords, pair);
    if (!complaints.empty())
        all += Joined(all.empty() ? "" : "; ", "the pair: ", complaints);
    if (!all.empty())
        throw ToolError(ExitCode::kCannot, all);
}
