#include "atr_Translate.h"

#include <algorithm>
#include <atomic>

namespace
{

constinit std::atomic<atr_Lookup> s_lookup{nullptr};

char const* Translated(char const* format)
{
    atr_Lookup const lookup = s_lookup.load(std::memory_order_acquire);
    char const* const translated = lookup != nullptr ? lookup(format) : nullptr;
    return translated != nullptr ? translated : format;
}

} // namespace

atr_Lookup atr_SetLookup(atr_Lookup lookup) noexcept
{
    return s_lookup.exchange(lookup, std::memory_order_acq_rel);
}

atr_translate::atr_translate(char const* format) : m_format(format != nullptr ? Translated(format) : "") {}

atr_translate::~atr_translate() = default;

atr_String atr_translate::Result() const
{
    std::string result;
    int place = 0;
    for (std::size_t i = 0; i < m_format.size(); ++i) {
        bool const isPlace = m_format[i] == '%' && i + 1 < m_format.size() && (m_format[i + 1] == 's' || m_format[i + 1] == 'i');
        if (!isPlace) {
            result += m_format[i];
            continue;
        }
        ++place;
        auto const found =
            std::find_if(m_substitutions.begin(), m_substitutions.end(), [place](auto const& s) { return s.place == place; });
        result += found != m_substitutions.end() ? found->text : m_format.substr(i, 2);
        ++i;
    }
    return atr_String(std::string_view(result));
}

void atr_SubstituteFormat(atr_translate& translate, int place, char const* text)
{
    translate.m_substitutions.push_back({place, text != nullptr ? text : ""});
}

void atr_SubstituteFormat(atr_translate& translate, int place, int number)
{
    atr_SubstituteFormat(translate, place, std::to_string(number).c_str());
}
