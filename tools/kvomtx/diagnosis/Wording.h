#pragma once

#include "Found.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>

struct Asymmetry;

/// Of what was found, so many are shown to a person.
constexpr std::size_t kShownAtMost = 3;

/// One text of several. Sums that begin with a literal make g++ 12 warn of copies within the string library.
template<class... Parts>
std::string Joined(Parts const&... parts)
{
    std::string text;
    ((text += parts), ...);
    return text;
}

std::string Count(std::int64_t count);
/// "1 row", "2 rows"
std::string Counted(std::int64_t count, char const* one);
/// Of at most six digits.
std::string NumberText(double value);
/// As "(3, 4) line 17".
std::string PlaceText(EntryPlace const& place);

/// "none", or "5: 3, 17, 20 and 2 more". @param show  the text of one
template<class T, class Show>
std::string ListText(Found<T> const& found, Show const& show, std::size_t most = kShownAtMost)
{
    if (found.count == 0)
        return "none";
    std::string text = Count(found.count);
    std::size_t const shown = std::min(found.first.size(), most);
    for (std::size_t k = 0; k < shown; ++k)
        text += Joined(k == 0 ? ": " : ", ", show(found.first[k]));
    if (std::int64_t const more = found.count - static_cast<std::int64_t>(shown); more > 0)
        text += Joined(" and ", Count(more), " more");
    return text;
}

/// Of rows, columns or unknowns.
std::string NumberList(Found<int> const& found, std::size_t most = kShownAtMost);
/// With the values that are not 0 or NaN.
std::string PlaceList(Found<EntryPlace> const& found, std::size_t most = kShownAtMost);
std::string RepeatedText(std::optional<Found<RepeatedEntry>> const& found, std::size_t most = kShownAtMost);
std::string AsymmetryText(Asymmetry const& found);
