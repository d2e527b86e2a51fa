#pragma once

#include <cmath>
#include <cstdlib>
#include <string>

/// Checks of option values: empty when it is sound, else the complaint. The parser has them too, but prints their bounds in full.
inline std::string RequireAtLeastOne(std::string const& text)
{
    return std::strtoll(text.c_str(), nullptr, 10) >= 1 ? "" : text + " is less than 1";
}

inline std::string RequirePositive(std::string const& text)
{
    double const value = std::strtod(text.c_str(), nullptr);
    return value > 0.0 && std::isfinite(value) ? "" : text + " is no number greater than 0";
}

/// Of a file or folder: an empty one would be taken for none.
inline std::string RequireName(std::string const& text)
{
    return text.empty() ? "the name is empty" : "";
}
