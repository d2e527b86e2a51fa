#pragma once

#include "Drawing.h"

#include <vector>

/// Colours for magnitudes, a step for each decade, or for several where there are too many to tell apart. The larger the darker, so that
/// the steps keep their order in grey.
class MagnitudeScale
{
public:
    /// @param smallest,largest  finite and greater than 0; the steps reach from the one to the other
    MagnitudeScale(double smallest, double largest);

    int Steps() const noexcept { return m_steps; }
    /// The power of ten that a step begins with; that of Steps() is the end.
    int Exponent(int step) const noexcept { return m_lowest + step * m_decadesOfStep; }
    Colour OfStep(int step) const;
    Colour Of(double magnitude) const;

private:
    int m_lowest;
    int m_decadesOfStep = 1;
    int m_steps;
};
