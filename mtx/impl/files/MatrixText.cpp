#include "MatrixText.h"

#include <algorithm>
#include <cstring>
#include <locale.h>
#include <stdlib.h>

namespace
{

char* EndOf(char* token) noexcept
{
    while (!MatrixText::IsSpace(*token))
        ++token;
    return token;
}

char* ReadByLibrary(char* text, char* end, double& value) noexcept
{
    static locale_t const cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
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

} // namespace

char* MatrixText::ReadRareValue(char* text, double& value) noexcept
{
    char* const next = ReadFortranValue(text, value);
    return next != nullptr ? next : ReadByLibrary(text, EndOf(text), value);
}

char* MatrixText::ReadFortranValue(char* text, double& value) noexcept
{
    char* const end = EndOf(text);
    char* const letter = std::find_if(text, end, [](char c) { return c == 'd' || c == 'D'; });
    if (letter == end)
        return nullptr;
    char const kept = *letter;
    *letter = 'e';
    auto const [next, error] = std::from_chars(text + (*text == '+' && text[1] != '-'), end, value);
    bool const isNumber = next == end && (error == std::errc{} || ReadByLibrary(text, end, value) == end); // or beyond the range
    *letter = kept;
    return isNumber ? end : nullptr;
}

char* MatrixText::WriteNonFinite(char* text, double value) noexcept
{
    constexpr std::ptrdiff_t kWidth = 18;
    char const* const word = std::isnan(value) ? (std::signbit(value) ? "-nan" : "nan") : (value < 0 ? "-inf" : "inf");
    auto const length = static_cast<std::ptrdiff_t>(std::strlen(word));
    std::copy_n(word, length, std::fill_n(text, kWidth - length, ' '));
    return text + kWidth;
}
