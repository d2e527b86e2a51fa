#pragma once

#include "LineReader.h"

#include <cstdint>
#include <string>
#include <string_view>

/// How Fortran writes numbers of one kind: so many in a line, in fields of one width.
struct FortranFormat {
    char kind = 'I'; // I, or any of E, D, F, G
    int scale = 0;   // 1 in (1P,4D20.12)
    int perLine = 1;
    int width = 1;
    int decimals = 0;

    static constexpr int kWidest = 128;

    /// Of a text as (16I5) or (1P,4D20.12). @return false when it is none such
    bool Parse(std::string_view text);
    std::int64_t LinesOf(std::int64_t numbers) const noexcept { return (numbers + perLine - 1) / perLine; }
};

/// The numbers of a text from some line on, all by one format. What is refused is a MalformedFile with the line.
///
/// A line with as many words as it should have numbers is read by words: scipy writes fields one narrower than its formats say. In others
/// numbers stand without a blank between them.
class FortranFields
{
public:
    /// @param before  lines in front @param numbers  how many there are
    FortranFields(char const* path, FortranFormat const& format, std::int64_t before, std::int64_t numbers);

    /// Takes the next number, by a format of integers. @param what  for the message, as "a row"
    std::int64_t TakeInteger(std::int64_t first, std::int64_t last, char const* what);
    /// Takes the next number of any kind.
    double TakeValue(char const* what);
    /// The lines, behind the last one from which a number was taken.
    LineReader& Lines() noexcept { return m_lines; }

private:
    std::string_view NextField(char const* what);
    void NextLine(char const* what);

    LineReader m_lines;
    FortranFormat m_format;
    std::int64_t m_left; // behind the line
    int m_taken;         // of the line
    bool m_byWords = false;
};
