#pragma once

/// @file
/// Messages, put together from a format and values, and their translation.

#include "KVOExport.h"
#include "atr_String.h"

#include <string>
#include <vector>

/// One message under construction: a format text and the values for its places.
///
/// The places are the occurrences of %s and %i in the format, numbered from 1 in their order. A place that receives no
/// value keeps its two characters; the value of a place is never searched for further places.
class KVO_EXPORT atr_translate
{
public:
    /// @param format  English text; it is replaced by what the translation in force has for it
    explicit atr_translate(char const* format);
    ~atr_translate();
    atr_translate(atr_translate const&) = delete;
    atr_translate& operator=(atr_translate const&) = delete;

    /// The finished text.
    atr_String Result() const;

private:
    friend KVO_EXPORT void atr_SubstituteFormat(atr_translate& translate, int place, char const* text);

    struct Substitution {
        int place;
        std::string text;
    };

    std::string m_format;
    std::vector<Substitution> m_substitutions;
};

/// Puts `text` (null counts as empty) into place number `place` (1-based); a place that the format lacks is ignored.
KVO_EXPORT void atr_SubstituteFormat(atr_translate& translate, int place, char const* text);

/// Puts `number` in decimal into place number `place`.
KVO_EXPORT void atr_SubstituteFormat(atr_translate& translate, int place, int number);

/// Gives the translation of an English format, or null to keep the English one. The result must live until the next
/// call of the same thread; several threads may call at once, each for messages of its own.
using atr_Lookup = char const* (*)(char const* format);

/// Puts a translation in force for the whole process (gettext, for one, fits); null, the state at load time, keeps
/// every text English.
/// @return the lookup that was in force before
KVO_EXPORT atr_Lookup atr_SetLookup(atr_Lookup lookup) noexcept;
