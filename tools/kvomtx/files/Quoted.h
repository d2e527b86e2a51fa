#pragma once

#include <algorithm>
#include <string>
#include <string_view>

/// A word of a file for a message: its beginning in quotation marks, what cannot be printed as ?.
inline std::string Quoted(std::string_view word)
{
    constexpr std::size_t kShown = 24;
    std::string text(word.substr(0, kShown));
    std::ranges::replace_if(
        text, [](char c) { return c < ' ' || c > '~'; }, '?');
    return "\"" + text + (word.size() > kShown ? "...\"" : "\"");
}
