#include "LineReader.h"

#include "MalformedFile.h"
#include "MatrixText.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

namespace
{

// Whether all of the word is a number; then `number` is set.
template<class Number>
std::errc Parse(std::string_view word, Number& number) noexcept
{
    if (word.starts_with('+') && !word.starts_with("+-"))
        word.remove_prefix(1);
    auto const [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    return end == word.data() + word.size() ? error : std::errc::invalid_argument;
}

} // namespace

LineReader::LineReader(char const* path) : m_file(path), m_window(m_file), m_next(m_window.Begin()) {}

bool LineReader::Next()
{
    auto const newlineFrom = [this](char* place) {
        return static_cast<char*>(std::memchr(place, '\n', static_cast<std::size_t>(m_window.End() - place)));
    };
    char* newline = newlineFrom(m_next);
    while (newline == nullptr) {
        std::ptrdiff_t const seen = m_window.End() - m_next;
        if (!m_window.Next(m_next))
            return false;
        m_next = m_window.Begin();
        newline = newlineFrom(m_next + seen);
    }
    ++m_line;
    m_word = std::exchange(m_next, newline + 1);
    m_lineEnd = newline;
    return true;
}

bool LineReader::NextData(char comment)
{
    while (Next()) {
        char const* const first = std::find_if_not(m_word, m_lineEnd, MatrixText::IsSpace);
        if (first != m_lineEnd && *first != comment)
            return true;
    }
    return false;
}

std::string_view LineReader::Word() noexcept
{
    while (m_word != m_lineEnd && MatrixText::IsSpace(*m_word))
        ++m_word;
    char const* const begin = m_word;
    while (m_word != m_lineEnd && !MatrixText::IsSpace(*m_word))
        ++m_word;
    return {begin, static_cast<std::size_t>(m_word - begin)};
}

std::int64_t LineReader::TakeInteger(char const* what)
{
    std::string_view const word = Word();
    std::int64_t number;
    if (Parse(word, number) != std::errc{})
        RefuseWord(what, word);
    return number;
}

double LineReader::TakeValue(char const* what)
{
    std::string_view const word = Word();
    double number;
    std::errc const error = Parse(word, number);
    // Beyond the range of doubles: infinite or 0, as everywhere.
    if (error == std::errc::result_out_of_range)
        MatrixText::ReadRareValue(m_word - word.size(), number);
    else if (error != std::errc{} && MatrixText::ReadFortranValue(m_word - word.size(), number) == nullptr)
        RefuseWord(what, word);
    return number;
}

std::int64_t LineReader::TakeIntegerIn(std::int64_t first, std::int64_t last, char const* what)
{
    std::string_view const word = Word();
    std::int64_t number;
    if (Parse(word, number) != std::errc{} || number < first || number > last)
        RefuseWord(std::string(what) + " from " + std::to_string(first) + " to " + std::to_string(last), word);
    return number;
}

void LineReader::RequireEndOfLine()
{
    if (std::string_view const word = Word(); !word.empty())
        RefuseWord("the end of the line", word);
}

bool LineReader::IsAtEnd() const noexcept
{
    return std::all_of(m_word, m_lineEnd, MatrixText::IsSpace);
}

void LineReader::RefuseWord(std::string const& expected, std::string_view found) const
{
    Refuse("expected " + expected + ", found " + (found.empty() ? "the end of the line" : Quoted(found)));
}

void LineReader::Refuse(std::string const& what) const
{
    throw MalformedFile::AtLine(std::max<std::int64_t>(1, m_line), what);
}
