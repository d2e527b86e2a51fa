#pragma once

#include "ParticipationReport.h"

#include <optional>
#include <string>
#include <vector>

class KVOSrvModes;

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
    KVOSrvModes const& modes;
    std::vector<double> frequencies; ///< sqrt(lambda) / (2 pi), or sqrt(lambda); 0 where lambda is not positive: a rigid body mode
    bool inRadians = false;          ///< the frequencies are circular, in radians
    bool showsAccount = false;       ///< the table ends with what was done
    std::optional<ReferenceFrequencies> reference;
    std::optional<ParticipationReport> participation;
};

std::vector<double> FrequenciesOf(KVOSrvModes const& modes, bool inRadians);

void PrintTable(ModesReport const& report);
void PrintJson(ModesReport const& report);
