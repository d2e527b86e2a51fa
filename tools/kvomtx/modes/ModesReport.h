#pragma once

#include "ParticipationReport.h"

#include "KVOSrvModes.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Frequencies to compare with, lowest first.
class ReferenceFrequencies
{
public:
    /// Largest relative difference that counts as equal.
    static constexpr double kTolerance = 1e-8;

    /// Reads lines of "lambda frequency"; lines that begin with # are comments.
    /// @throws ToolError kUnreadable with the line
    explicit ReferenceFrequencies(std::string const& path);

    std::string const& Path() const noexcept { return m_path; }
    std::size_t Count() const noexcept { return m_frequencies.size(); }
    double operator[](std::size_t i) const noexcept { return m_frequencies[i]; }
    /// |frequency - reference| over the reference, or over 1 where that is smaller than the rounding of a rigid body mode.
    double Difference(std::size_t i, double frequency) const noexcept;
    /// Of the modes that both have.
    double LargestDifference(std::vector<double> const& frequencies) const noexcept;

private:
    std::string m_path;
    std::vector<double> m_frequencies;
};

/// What was computed, from what, and where it went.
struct ModesReport {
    std::string stiffness;
    std::string mass;
    std::string output;
    std::string picture; ///< empty: none
    int unknowns = 0;
    double seconds = 0.0;
    std::vector<double> eigenvalues; ///< ascending
    std::vector<double> residuals;   ///< of each
    KVOSrvModesAccount account;
    std::vector<double> frequencies; ///< sqrt(lambda) / (2 pi), or sqrt(lambda); 0 where lambda is not positive: a rigid body mode
    bool inRadians = false;          ///< the frequencies are circular, in radians
    bool showsAccount = false;       ///< the table ends with what was done
    std::optional<ReferenceFrequencies> reference;
    std::optional<ParticipationReport> participation;
    int ranks = 0;                        ///< processes that shared the search; 0: it was that of the library
    std::string solver = "MUMPS";         ///< of linear systems
    std::string ordering = "METIS";       ///< of the unknowns
    std::string method = "block Lanczos"; ///< of the search
};

std::vector<double> FrequenciesOf(std::vector<double> const& eigenvalues, bool inRadians);
/// The eigenvalues that belong to the ends of a range of frequencies.
/// @throws ToolError kUsage when these are no range
std::pair<double, double> EigenvaluesOf(std::vector<double> const& range, bool inRadians);
/// @throws ToolError kCannot where the frequencies differ from the reference, if there is one
void RequireAgreement(ModesReport const& report);

void PrintTable(ModesReport const& report);
void PrintJson(ModesReport const& report);
