#pragma once

#include <cmath>
#include <cstdint>
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

/// Of "600M" and the like: a number of bytes, or of thousands (K), millions (M) or thousands of millions (G) of them; 0 when it is none.
inline std::int64_t BytesOf(std::string const& text)
{
    char* end = nullptr;
    double const number = std::strtod(text.c_str(), &end), unit = *end == 'K' ? 1e3 : *end == 'M' ? 1e6 : *end == 'G' ? 1e9 : 1.0;
    double const bytes = number * unit;
    if (unit > 1.0)
        ++end;
    return *end == '\0' && bytes >= 1.0 && bytes < 1e18 ? static_cast<std::int64_t>(bytes) : 0;
}

inline std::string RequireBytes(std::string const& text)
{
    return BytesOf(text) > 0 ? "" : text + " is no number of bytes, such as 600M or 2G";
}

/// Of a file or folder: an empty one would be taken for none.
inline std::string RequireName(std::string const& text)
{
    return text.empty() ? "the name is empty" : "";
}
