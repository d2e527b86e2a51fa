#include "Wording.h"

#include "Symmetry.h"

#include <cmath>
#include <cstdio>

std::string Count(std::int64_t count)
{
    return std::to_string(count);
}

std::string Counted(std::int64_t count, char const* one)
{
    return Count(count) + " " + one + (count == 1 ? "" : "s");
}

std::string NumberText(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string PlaceText(EntryPlace const& place)
{
    std::string const text = Joined("(", Count(place.row + 1), ", ", Count(place.column + 1), ")");
    return place.line > 0 ? Joined(text, " line ", Count(place.line)) : text;
}

std::string NumberList(Found<int> const& found, std::size_t most)
{
    return ListText(
        found, [](int number) { return Count(number + 1); }, most);
}

std::string PlaceList(Found<EntryPlace> const& found, std::size_t most)
{
    auto const show = [](EntryPlace const& place) {
        bool const tellsValue = place.value != 0.0 && !std::isnan(place.value);
        return PlaceText(place) + (tellsValue ? Joined(" ", NumberText(place.value)) : "");
    };
    return ListText(found, show, most);
}

std::string RepeatedText(std::optional<Found<RepeatedEntry>> const& found, std::size_t most)
{
    if (!found)
        return "not told";
    auto const show = [](RepeatedEntry const& one) {
        return PlaceText(one.place) + (one.againLine > 0 ? Joined(" and ", Count(one.againLine)) : "");
    };
    return ListText(*found, show, most) + (found->count > 0 ? "; summed" : "");
}

std::string AsymmetryText(Asymmetry const& found)
{
    if (found.largest == 0.0)
        return "none";
    EntryPlace const place{found.row, found.column, found.value, found.line},
        mirror{found.column, found.row, found.mirror, found.mirrorLine};
    return Joined(Counted(found.pairs, "pair"), "; most ", PlaceText(place), " ", NumberText(place.value), ", ", PlaceText(mirror), " ",
                  NumberText(mirror.value),
                  std::isfinite(found.largest) ? Joined(": ", NumberText(found.largest), " of the largest value") : "");
}
