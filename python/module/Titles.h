#pragma once

#include <string>

/// The title of a distribution, empty without one.
template<class Distribution>
std::string TitleOf(Distribution const&)
{
    return {};
}
