#include "ModesReport.h"

#include "Errors.h"
#include "SubspaceIteration.h"

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

std::vector<double> FrequenciesOf(std::vector<double> const& lambda)
{
    std::vector<double> frequencies;
    for (double const value : lambda)
        frequencies.push_back(value > 0.0 ? std::sqrt(value) / (2.0 * std::numbers::pi) : 0.0);
    return frequencies;
}

void PrintTable(ModesReport const& report)
{
    SubspaceResult const& result = report.result;
    std::printf("%s, %s: %d unknowns\n", report.stiffness.c_str(), report.mass.c_str(), report.unknowns);
    std::printf("%d modes in %d iterations of a subspace of %d, %.1f s; shift %.6g; %s\n\n", static_cast<int>(result.lambda.size()),
                result.iterations, result.subspace, report.seconds, result.shift, result.solver.c_str());
    std::printf("  mode             lambda          frequency   residual%s\n", report.reference ? "          reference   difference" : "");
    for (std::size_t i = 0; i < result.lambda.size(); ++i) {
        std::printf("%6zu %18.11g %18.11g    %.1e", i + 1, result.lambda[i], report.frequencies[i], result.residuals[i]);
        if (report.reference && i < report.reference->Count())
            std::printf(" %18.11g      %.1e", (*report.reference)[i], report.reference->Difference(i, report.frequencies[i]));
        std::printf("\n");
    }
    std::printf("\n%s: 0 stiffness, 1 mass, 2 modes (one a column), 3 eigenvalues; kvomtx db export takes them out\n",
                report.output.c_str());
    if (!report.picture.empty())
        std::printf("%s: picture of the convergence\n", report.picture.c_str());
}

void PrintJson(ModesReport const& report)
{
    SubspaceResult const& result = report.result;
    nlohmann::ordered_json object;
    object["stiffness"] = report.stiffness;
    object["mass"] = report.mass;
    object["unknowns"] = report.unknowns;
    object["eigenvalues"] = result.lambda;
    object["frequencies"] = report.frequencies;
    object["residuals"] = result.residuals;
    object["shift"] = result.shift;
    object["iterations"] = result.iterations;
    object["subspace"] = result.subspace;
    object["solver"] = result.solver;
    object["seconds"] = report.seconds;
    object["output"] = report.output;
    if (!report.picture.empty())
        object["picture"] = report.picture;
    if (report.reference)
        object["largest_difference"] = report.reference->LargestDifference(report.frequencies);
    // A file name need not be valid UTF-8.
    std::printf("%s\n", object.dump(4, ' ', false, nlohmann::ordered_json::error_handler_t::replace).c_str());
}
