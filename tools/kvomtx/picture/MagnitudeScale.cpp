#include "MagnitudeScale.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace
{

int Decade(double magnitude)
{
    return static_cast<int>(std::floor(std::log10(magnitude)));
}

} // namespace

MagnitudeScale::MagnitudeScale(double smallest, double largest) : m_lowest(Decade(smallest))
{
    constexpr int kMostSteps = 10;
    int const decades = Decade(largest) - m_lowest + 1;
    m_decadesOfStep = (decades + kMostSteps - 1) / kMostSteps;
    m_steps = (decades + m_decadesOfStep - 1) / m_decadesOfStep;
}

Colour MagnitudeScale::OfStep(int step) const
{
    // From yellow over red to a dark violet; the brightness falls evenly, from 205 to 15 of 255.
    constexpr std::array<Colour, 5> kStops{{{253, 205, 90}, {240, 130, 70}, {195, 60, 100}, {110, 20, 110}, {25, 5, 60}}};
    double const t = m_steps > 1 ? static_cast<double>(step) / (m_steps - 1) * (kStops.size() - 1) : kStops.size() - 1.0;
    auto const below = std::min(static_cast<std::size_t>(t), kStops.size() - 2);
    double const share = t - static_cast<double>(below);
    auto const mix = [share](int from, int to) { return static_cast<std::uint8_t>(from + std::lround(share * (to - from))); };
    Colour const &from = kStops[below], &to = kStops[below + 1];
    return {mix(from.red, to.red), mix(from.green, to.green), mix(from.blue, to.blue)};
}

Colour MagnitudeScale::Of(double magnitude) const
{
    return OfStep(std::clamp((Decade(magnitude) - m_lowest) / m_decadesOfStep, 0, m_steps - 1));
}
