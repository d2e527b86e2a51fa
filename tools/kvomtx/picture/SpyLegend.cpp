#include "SpyLegend.h"

#include "MagnitudeScale.h"

#include <cmath>

namespace
{

constexpr TextStyle kWords{12.0};
constexpr TextStyle kNumber{11.0, false, Align::kCentre};

} // namespace

void SpyLegend::Text(std::string const& text, double gap)
{
    m_drawing.Text(m_at, text, kWords);
    m_at.x += m_drawing.TextWidth(text, kWords) + gap;
}

void SpyLegend::Entry(Colour colour, std::string const& text, bool isHollow)
{
    if (isHollow)
        m_drawing.Frame(m_at.x, m_at.y - 6.0, 12.0, 12.0, {colour, 2.0, {}});
    else
        m_drawing.Fill(m_at.x, m_at.y - 6.0, 12.0, 12.0, colour);
    m_at.x += 18.0;
    Text(text, 20.0);
}

void SpyLegend::Density(double places, std::function<Colour(double entries)> const& colourOf)
{
    constexpr int kLength = 240;
    constexpr double kRoom = 40.0; // of a number
    Text("entries in a pixel:", 12.0);
    for (int x = 0; x < kLength; ++x)
        m_drawing.Fill(m_at.x + x, m_at.y - 8.0, 1.0, 12.0, colourOf(std::pow(places, static_cast<double>(x) / (kLength - 1))));
    double last = -kRoom;
    for (int exponent = 0; std::pow(10.0, exponent) < places; ++exponent) {
        double const x = std::floor(exponent * std::log(10.0) / std::log(places) * (kLength - 1));
        m_drawing.Fill(m_at.x + x, m_at.y + 4.0, 1.0, 4.0, kTextColour);
        if (x - last < kRoom || kLength - x < kRoom)
            continue;
        Point const below{m_at.x + x, m_at.y + 15.0};
        if (exponent < 4)
            m_drawing.Text(below, std::to_string(std::lround(std::pow(10.0, exponent))), kNumber);
        else
            m_drawing.PowerOfTen(below, exponent, kNumber);
        last = x;
    }
    m_drawing.Text({m_at.x + kLength, m_at.y + 15.0}, "all", kNumber);
    m_at.x += kLength + 24.0;
}

void SpyLegend::Magnitudes(MagnitudeScale const& scale, std::string const& text)
{
    constexpr double kStep = 36.0;
    Text(text, 18.0);
    for (int step = 0; step <= scale.Steps(); ++step) {
        if (step < scale.Steps())
            m_drawing.Fill(m_at.x + step * kStep, m_at.y - 8.0, kStep, 12.0, scale.OfStep(step));
        m_drawing.PowerOfTen({m_at.x + step * kStep, m_at.y + 13.0}, scale.Exponent(step), kNumber);
    }
    m_at.x += scale.Steps() * kStep + 24.0;
}
