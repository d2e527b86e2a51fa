#include "ModesReport.h"

#include "Errors.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <locale>
#include <numbers>
#include <sstream>

ReferenceFrequencies::ReferenceFrequencies(std::string const& path) : m_path(path)
{
    std::ifstream file(path);
    if (!file)
        throw ToolError(ExitCode::kUnreadable, path + ": cannot be read; check the name");
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.starts_with('#') || line.find_first_not_of(" \t\r") == std::string::npos)
            continue;
        std::istringstream words(line);
        words.imbue(std::locale::classic());
        double lambda = 0.0, frequency = 0.0;
        if (!(words >> lambda >> frequency) || !std::isfinite(frequency) || frequency < 0.0)
            throw ToolError(ExitCode::kUnreadable, path + ": line " + std::to_string(number) + ": expected \"lambda frequency\"");
        m_frequencies.push_back(frequency);
    }
    if (m_frequencies.empty())
        throw ToolError(ExitCode::kUnreadable, path + ": line " + std::to_string(std::max(1, number)) +
                                                   ": expected \"lambda frequency\", found the end of the file");
}

double ReferenceFrequencies::Difference(std::size_t i, double frequency) const noexcept
{
    constexpr double kRigid = 1e-6; // of the frequencies' own unit: what is left of a rigid body mode
    double const difference = std::fabs(frequency - m_frequencies[i]);
    return m_frequencies[i] > kRigid ? difference / m_frequencies[i] : difference;
}

double ReferenceFrequencies::LargestDifference(std::vector<double> const& frequencies) const noexcept
{
    double largest = 0.0;
    for (std::size_t i = 0; i < std::min(Count(), frequencies.size()); ++i)
        largest = std::max(largest, Difference(i, frequencies[i]));
    return largest;
}

std::vector<double> FrequenciesOf(std::vector<double> const& eigenvalues, bool inRadians)
{
    std::vector<double> frequencies;
    for (double const value : eigenvalues)
        frequencies.push_back(value > 0.0 ? std::sqrt(value) / (inRadians ? 1.0 : 2.0 * std::numbers::pi) : 0.0);
    return frequencies;
}

std::pair<double, double> EigenvaluesOf(std::vector<double> const& range, bool inRadians)
{
    double const unit = inRadians ? 1.0 : 2.0 * std::numbers::pi;
    double const from = range[0] * unit, to = range[1] * unit;
    if (!(from >= 0.0) || !(from < to) || !std::isfinite(to * to))
        throw ToolError(ExitCode::kUsage, "--range needs two frequencies, the lower one first");
    return {from * from, to * to};
}

void RequireAgreement(ModesReport const& report)
{
    if (!report.reference)
        return;
    double const difference = report.reference->LargestDifference(report.frequencies);
    if (difference <= ReferenceFrequencies::kTolerance)
        return;
    char text[32];
    std::snprintf(text, sizeof text, "%.1e", difference);
    throw ToolError(ExitCode::kCannot, report.reference->Path() + ": the frequencies differ by up to " + text +
                                           " relatively; see whether it belongs to this model");
}

namespace
{

std::string Solver(ModesReport const& report)
{
    KVOSrvFactorAccount const& factor = report.account.factor;
    return report.solver + ", " + std::to_string((factor.factorEntries + (1 << 17) - 1) >> 17) + " MiB of factor" +
           (factor.onDisk ? " on disk" : "") +
           (report.ranks > 0 ? " on " + std::to_string(report.ranks) + (report.ranks > 1 ? " ranks" : " rank") : "");
}

void PrintAccount(ModesReport const& report)
{
    KVOSrvModesAccount const& account = report.account;
    KVOSrvFactorAccount const& factor = account.factor;
    std::printf("\nunknowns %lld, entries of a triangle %lld, ordered by %s in %.1f s\n", static_cast<long long>(factor.unknowns),
                static_cast<long long>(factor.entries), report.ordering.c_str(), factor.orderingSeconds);
    std::printf("factor of %lld entries, %.3g operations, %.0f MB in memory%s: %d factorizations in %.1f s (%s)\n",
                static_cast<long long>(factor.factorEntries), factor.flops, static_cast<double>(factor.memory) / 1e6,
                factor.onDisk ? ", the factor on disk" : "", factor.factorizations, factor.factorSeconds, report.solver.c_str());
    std::printf("%s: %d steps of %d columns, %d restarts, a basis of up to %d columns, %d shifts; %lld columns solved in %.1f s,\n"
                "the rest of the search %.1f s; %s\n",
                report.method.c_str(), account.steps, account.block, account.restarts, account.basis, account.shifts,
                static_cast<long long>(factor.solvedColumns), factor.solveSeconds, account.searchSeconds,
                account.certified ? "the eigenvalues were counted: none is missing" : "the eigenvalues were not counted");
}

} // namespace

void PrintTable(ModesReport const& report)
{
    KVOSrvModesAccount const& account = report.account;
    std::printf("%s, %s: %d unknowns\n", report.stiffness.c_str(), report.mass.c_str(), report.unknowns);
    std::printf("%zu modes in %d steps with a basis of %d, %.1f s; shift %.6g; %s\n\n", report.eigenvalues.size(), account.steps,
                account.basis, report.seconds, account.shift, Solver(report).c_str());
    std::printf("  mode             lambda          %s   residual%s\n", report.inRadians ? "    omega" : "frequency",
                report.reference ? "          reference   difference" : "");
    for (std::size_t i = 0; i < report.frequencies.size(); ++i) {
        std::printf("%6zu %18.11g %18.11g    %.1e", i + 1, report.eigenvalues[i], report.frequencies[i], report.residuals[i]);
        if (report.reference && i < report.reference->Count())
            std::printf(" %18.11g      %.1e", (*report.reference)[i], report.reference->Difference(i, report.frequencies[i]));
        std::printf("\n");
    }
    if (report.participation)
        PrintParticipation(*report.participation);
    if (report.showsAccount)
        PrintAccount(report);
    std::printf("\n%s: 0 stiffness, 1 mass%s; kvomtx db export takes them out\n", report.output.c_str(),
                report.eigenvalues.empty() ? ""
                : report.participation     ? ", 2 modes (one a column), 3 eigenvalues, 4 participation factors (one direction a column)"
                                           : ", 2 modes (one a column), 3 eigenvalues");
    if (!report.picture.empty())
        std::printf("%s: picture of the convergence\n", report.picture.c_str());
}

void PrintJson(ModesReport const& report)
{
    KVOSrvModesAccount const& account = report.account;
    KVOSrvFactorAccount const& factor = account.factor;
    nlohmann::ordered_json object;
    object["stiffness"] = report.stiffness;
    object["mass"] = report.mass;
    object["unknowns"] = report.unknowns;
    object["entries"] = factor.entries; // of a triangle
    object["eigenvalues"] = report.eigenvalues;
    object["frequencies"] = report.frequencies;
    object["residuals"] = report.residuals;
    if (report.participation)
        object["participation"] = ParticipationJson(*report.participation);
    object["certified"] = account.certified;
    object["shift"] = account.shift;
    object["steps"] = account.steps;
    object["restarts"] = account.restarts;
    object["block"] = account.block;
    object["basis"] = account.basis;
    object["shifts"] = account.shifts;
    object["solver"] = Solver(report);
    if (report.ranks > 0)
        object["ranks"] = report.ranks;
    object["factor"] = {{"ordering", report.ordering},
                        {"entries", factor.factorEntries},
                        {"operations", factor.flops},
                        {"memory", factor.memory},
                        {"on_disk", factor.onDisk},
                        {"factorizations", factor.factorizations},
                        {"solved_columns", factor.solvedColumns}};
    object["seconds"] = report.seconds;
    object["seconds_of"] = {{"ordering", factor.orderingSeconds},
                            {"factoring", factor.factorSeconds},
                            {"solving", factor.solveSeconds},
                            {"search", account.searchSeconds}};
    object["output"] = report.output;
    if (!report.picture.empty())
        object["picture"] = report.picture;
    if (report.reference)
        object["largest_difference"] = report.reference->LargestDifference(report.frequencies);
    // A file name need not be valid UTF-8.
    std::printf("%s\n", object.dump(4, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}
