#pragma once

#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <system_error>

/// Numbers in text, the same under every locale: read with the meaning of scanf, written byte for byte as printf does in the C locale.
///
/// Reading takes one token, which starts at `text` and must end in white space before the memory does. The result points to that white
/// space, or is null when the token as a whole is no number of the kind.
namespace MatrixText
{

constexpr bool IsSpace(char c) noexcept
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// A whole number from 1 to 2^31 - 1, like "%d".
inline char* ReadIndex(char* text, int& index) noexcept
{
    text += *text == '+';
    std::int64_t value = 0;
    for (unsigned digit; (digit = static_cast<unsigned>(*text) - '0') <= 9; ++text) {
        value = 10 * value + digit;
        if (value > INT_MAX)
            return nullptr;
    }
    index = static_cast<int>(value);
    return value > 0 && IsSpace(*text) ? text : nullptr;
}

/// What from_chars and scanf read differently: hexadecimal numbers, infinities, NaN, overflow and underflow, and what ReadFortranValue()
/// takes. Ends the token with a null character for a moment.
char* ReadRareValue(char* text, double& value) noexcept;

/// A number with the letter in front of its exponent that Fortran writes in double precision: 1D0, 1.5d-3. Changes the letter for a moment.
char* ReadFortranValue(char* text, double& value) noexcept;

/// A floating-point number, like "%lf", or with an exponent of Fortran.
/// @param end  one past the memory that may be read
inline char* ReadValue(char* text, char const* end, double& value) noexcept
{
    auto const [next, error] = std::from_chars(text + (*text == '+' && text[1] != '-'), end, value);
    return error == std::errc{} && IsSpace(*next) && std::isfinite(value) ? text + (next - text) : ReadRareValue(text, value);
}

inline char* WriteInteger(char* text, int number) noexcept
{
    return std::to_chars(text, text + 11, number).ptr;
}

/// The shortest digits that read back as the same double. @return the end, at most 24 characters on
inline char* WriteShortest(char* text, double value) noexcept
{
    return std::to_chars(text, text + 24, value).ptr;
}

/// Infinities and NaN for "%18.15e": padded to the width.
char* WriteNonFinite(char* text, double value) noexcept;

/// "%18.15e"; a finite value always fills the width. @return the end, at most 24 characters on
inline char* WriteValue(char* text, double value) noexcept
{
    return std::isfinite(value) ? std::to_chars(text, text + 24, value, std::chars_format::scientific, 15).ptr
                                : WriteNonFinite(text, value);
}

} // namespace MatrixText
