#include "MatrixText.h"

#include <algorithm>
#include <cstring>
#include <locale.h>
#include <stdlib.h>

char* MatrixText::ReadRareValue(char* text, double& value) noexcept
{
    static locale_t const cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
    char* end = text;
    while (!IsSpace(*end))
        ++end;
    // strtod alone takes the NaN with characters in brackets, scanf does not.
    if (cLocale == nullptr || std::find(text, end, '(') != end)
        return nullptr;
    char const space = *end;
    *end = '\0';
    char* next = nullptr;
    value = strtod_l(text, &next, cLocale);
    *end = space;
    return next == end && end != text ? end : nullptr;
}

char* MatrixText::WriteNonFinite(char* text, double value) noexcept
{
    constexpr std::ptrdiff_t kWidth = 18;
    char const* const word = std::isnan(value) ? (std::signbit(value) ? "-nan" : "nan") : (value < 0 ? "-inf" : "inf");
    auto const length = static_cast<std::ptrdiff_t>(std::strlen(word));
    std::copy_n(word, length, std::fill_n(text, kWidth - length, ' '));
    return text + kWidth;
}
