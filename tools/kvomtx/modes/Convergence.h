#pragma once

#include <cstddef>
#include <limits>
#include <vector>

/// Judges from the Ritz values of a subspace iteration which of the wanted eigenvalues are found.
///
/// A Ritz value falls towards its eigenvalue, every step taking the factor (lambda + shift)^2 over that of the first eigenvalue outside of
/// the basis from the error. So what a step took tells what is left. A value is found when little is left for it to fall and when no value
/// above, of a mode that the basis met late, is falling so fast that it may come below it. A value that no longer falls has met its
/// rounding error; it is found if what is left then is small or no more than the rounding of the pair itself.
class Convergence
{
public:
    /// @param tolerance  of what is left, relative to the eigenvalue; relative to lambda + shift for a rigid body mode
    /// @param largest    size of the largest eigenvalues of the pair
    Convergence(int count, double tolerance, double largest);

    /// Takes the values of a step.
    /// @param shifted   lambda + shift, ascending; if there are fewer than wanted, none counts as found
    /// @param complete  the basis holds all modes that there are
    void Take(std::vector<double> const& shifted, double shift, bool complete);

    /// Before a step of another shift: its values are not compared with the last ones.
    void Restart();

    int Found() const noexcept { return m_found; }
    /// lambda + shift in the last step, of the wanted modes and those above.
    std::vector<double> const& Shifted() const noexcept { return m_values; }
    /// About how far the lowest value still has to fall; infinity where that is not known yet.
    double LeftOfLowest() const noexcept { return m_leftOfLowest; }
    /// Per step and wanted mode: the change of lambda + shift, relative.
    std::vector<std::vector<double>> const& History() const noexcept { return m_history; }

private:
    // Of a value: its change in a step, and what is left by the factor that was seen and by that of the theory.
    struct Fall {
        double change;
        double observed;
        double predicted;
    };

    Fall FallOf(std::size_t i, std::vector<double> const& shifted, bool complete) const;
    bool IsFound(std::size_t mode, Fall const& fall, double value, double shift, double lowestOther);

    std::size_t m_count;
    double m_tolerance;
    double m_largest;
    int m_found = 0;
    double m_leftOfLowest = std::numeric_limits<double>::infinity();
    std::vector<double> m_values;  // of the last step
    std::vector<double> m_changes; // to those
    std::vector<int> m_stagnant;   // steps in which a value that is nearly found did not fall
    std::vector<std::vector<double>> m_history;
};
