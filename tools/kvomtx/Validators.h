#pragma once

#include <cstdlib>
#include <string>

/// Checks of option values: empty when it is sound, else the complaint. The parser has them too, but prints their bounds in full.
inline std::string RequireAtLeastOne(std::string const& text)
{
    return std::strtoll(text.c_str(), nullptr, 10) >= 1 ? "" : text + " is less than 1";
}

inline std::string RequirePositive(std::string const& text)
{
    return std::strtod(text.c_str(), nullptr) > 0.0 ? "" : text + " is not greater than 0";
}
