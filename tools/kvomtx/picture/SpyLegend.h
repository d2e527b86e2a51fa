#pragma once

#include "Drawing.h"

#include <functional>
#include <string>

class MagnitudeScale;

/// What the colours of a pattern mean: a line that grows to the right.
class SpyLegend
{
public:
    /// @param begin  its left end
    SpyLegend(Drawing& drawing, Point begin) : m_drawing(drawing), m_at(begin) {}

    void Entry(Colour colour, std::string const& text, bool isHollow = false);
    /// From one entry in a pixel to one on each of its places.
    void Density(double places, std::function<Colour(double entries)> const& colourOf);
    void Magnitudes(MagnitudeScale const& scale, std::string const& text);

private:
    void Text(std::string const& text, double gap);

    Drawing& m_drawing;
    Point m_at;
};
