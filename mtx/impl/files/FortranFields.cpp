#include "FortranFields.h"

#include "MatrixText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <optional>

namespace
{

constexpr std::string_view kExponents = "eEdD";

std::string_view Trimmed(std::string_view text)
{
    while (!text.empty() && MatrixText::IsSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && MatrixText::IsSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

std::int64_t CountWords(std::string_view line)
{
    std::int64_t words = 0;
    bool inWord = false;
    for (char const c : line) {
        bool const isSpace = MatrixText::IsSpace(c);
        words += !isSpace && !inWord;
        inWord = !isSpace;
    }
    return words;
}

char UpperCase(char c)
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
}

/// What is left of a format, capitals without blanks.
struct FormatText {
    explicit FormatText(std::string_view whole)
    {
        for (char const c : whole)
            if (!MatrixText::IsSpace(c))
                text += UpperCase(c);
    }
    bool Take(char c)
    {
        bool const isNext = next < text.size() && text[next] == c;
        next += isNext;
        return isNext;
    }
    std::optional<int> TakeNumber(int largest)
    {
        int number = 0;
        char const* const begin = text.data() + next;
        auto const [end, error] = std::from_chars(begin, text.data() + text.size(), number);
        if (error != std::errc{} || number > largest)
            return std::nullopt;
        next += static_cast<std::size_t>(end - begin);
        return number;
    }
    char TakeLetter() { return next < text.size() ? text[next++] : '\0'; }

    std::string text;
    std::size_t next = 0;
};

// The sign of an exponent of three digits, in front of which Fortran leaves out the letter: 1.5-105.
std::size_t PlaceOfBareExponent(std::string_view field)
{
    std::size_t const sign = field.find_last_of("+-");
    bool const isBare =
        sign != std::string_view::npos && sign > 0 && (field[sign - 1] == '.' || (field[sign - 1] >= '0' && field[sign - 1] <= '9'));
    return isBare ? sign : std::string_view::npos;
}

} // namespace

bool FortranFormat::Parse(std::string_view whole)
{
    constexpr int kMostPerLine = 10000, kLargestScale = 30;
    FormatText text(whole);
    if (!text.Take('('))
        return false;
    auto number = text.TakeNumber(kMostPerLine);
    if (number && text.Take('P')) {
        scale = *number;
        text.Take(',');
        number = text.TakeNumber(kMostPerLine);
    }
    perLine = number.value_or(1);
    kind = text.TakeLetter();
    if (kind == 'E' && !text.Take('S'))
        text.Take('N');
    width = text.TakeNumber(kWidest).value_or(0);
    decimals = text.Take('.') ? text.TakeNumber(kWidest).value_or(-1) : 0;
    if (kind != 'I' && text.Take('E') && !text.TakeNumber(kWidest))
        return false;
    text.Take(',');
    return std::string_view("IEDFG").find(kind) != std::string_view::npos && perLine > 0 && width > 0 && decimals >= 0 && scale >= 0 &&
           scale <= kLargestScale && text.Take(')') && text.next == text.text.size();
}

FortranFields::FortranFields(char const* path, FortranFormat const& format, std::int64_t before, std::int64_t numbers)
    : m_lines(path), m_format(format), m_left(numbers), m_taken(format.perLine)
{
    for (std::int64_t line = 0; line < before && m_lines.Next(); ++line) {
    }
}

void FortranFields::NextLine(char const* what)
{
    if (!m_lines.Next())
        m_lines.Refuse(std::string("the file ends here, expected ") + what);
    m_taken = 0;
    std::int64_t const numbers = std::min<std::int64_t>(m_format.perLine, m_left);
    m_left -= numbers;
    m_byWords = CountWords(m_lines.Rest()) == numbers;
}

std::string_view FortranFields::NextField(char const* what)
{
    if (m_taken == m_format.perLine)
        NextLine(what);
    auto const begin = static_cast<std::size_t>(m_taken++) * static_cast<std::size_t>(m_format.width);
    if (m_byWords) {
        std::string_view const word = m_lines.Word();
        if (word.size() > FortranFormat::kWidest)
            m_lines.RefuseWord(what, word);
        return word;
    }
    std::string_view const line = m_lines.Rest();
    return begin < line.size() ? Trimmed(line.substr(begin, static_cast<std::size_t>(m_format.width))) : std::string_view();
}

std::int64_t FortranFields::TakeInteger(std::int64_t first, std::int64_t last, char const* what)
{
    std::string_view const field = NextField(what);
    std::int64_t number = 0;
    auto const [end, error] = std::from_chars(field.data() + field.starts_with('+'), field.data() + field.size(), number);
    if (error != std::errc{} || end != field.data() + field.size() || number < first || number > last)
        m_lines.RefuseWord(std::string(what) + " from " + std::to_string(first) + " to " + std::to_string(last), field);
    return number;
}

double FortranFields::TakeValue(char const* what)
{
    if (m_format.kind == 'I')
        return static_cast<double>(TakeInteger(INT64_MIN, INT64_MAX, what));
    std::string_view const field = NextField(what);
    char text[FortranFormat::kWidest + 2];
    char* end = std::ranges::copy(field, text).out;
    bool hasExponent = field.find_first_of(kExponents) != std::string_view::npos;
    if (std::size_t const sign = PlaceOfBareExponent(field); !hasExponent && sign != std::string_view::npos) {
        std::copy_backward(text + sign, end, end + 1);
        text[sign] = 'e';
        ++end;
        hasExponent = true;
    }
    *end = '\n';
    double value = 0.0;
    if (field.empty() || MatrixText::ReadValue(text, end + 1, value) != end)
        m_lines.RefuseWord(what, field);
    // Without a point Fortran puts one in front of the last digits; without an exponent it divides by a power of 10. Other programs write
    // such numbers and do not mean that.
    bool const isClear = (field.find('.') != std::string_view::npos || m_format.decimals == 0) && (hasExponent || m_format.scale == 0);
    if (!isClear && value != 0.0 && std::isfinite(value))
        m_lines.RefuseWord(
            std::string(what) + " with a point" + (m_format.scale != 0 ? " and an exponent" : "") + ", as its format asks for", field);
    return value;
}
