#include "NearestWord.h"

#include <algorithm>
#include <cstdint>
#include <numeric>

namespace
{

// Letters that are changed, left out, added, or exchanged with their neighbours (optimal string alignment).
std::size_t Distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> before(b.size() + 1), last(b.size() + 1), now(b.size() + 1);
    std::iota(last.begin(), last.end(), 0);
    for (std::size_t i = 1; i <= a.size(); ++i) {
        now[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            now[j] = std::min({last[j] + 1, now[j - 1] + 1, last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                now[j] = std::min(now[j], before[j - 2] + 1);
        }
        before.swap(last);
        last.swap(now);
    }
    return last.back();
}

} // namespace

std::string NearestWord(std::string_view word, std::vector<std::string> const& known)
{
    constexpr std::string_view kHyphens = "-";
    auto const letters = [&](std::string_view text) { return text.substr(std::min(text.find_first_not_of(kHyphens), text.size())); };
    std::string_view const given = letters(word);
    std::string nearest;
    std::size_t least = SIZE_MAX;
    for (std::string const& other : known) {
        bool const isBegun = given.size() > 1 && letters(other).starts_with(given);
        std::size_t const distance = isBegun ? 0 : Distance(given, letters(other));
        std::size_t const half = std::max(given.size(), letters(other).size()) / 2; // with more than that changed it is another word
        if (distance <= half + 1 && distance < least) {
            least = distance;
            nearest = other;
        }
    }
    return nearest;
}
