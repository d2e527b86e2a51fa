#pragma once

#include "KVOExport.h"

#include <cstdint>
#include <string_view>

/// What atr_String and cow_String share: an immutable text and a count of the strings that refer to it.
///
/// Invariants:
/// 1. m_count is null for the empty string, and then m_text is null too; otherwise m_text is null-terminated.
/// 2. The count changes atomically: strings of several threads may share a text, which never changes. One string is
///    used by one thread.
class KVO_EXPORT atr_StringBase
{
public:
    /// The text, null-terminated, never null; lives as long as a string that shares it.
    char const* c_str() const noexcept { return m_text != nullptr ? m_text : ""; }
    /// Whether the text has no characters.
    bool IsEmpty() const noexcept { return m_count == nullptr; }
    /// The same characters; valid as long as c_str().
    std::string_view View() const noexcept { return c_str(); }

    /// Compares the characters, whether the text is shared or not.
    friend bool operator==(atr_StringBase const& a, atr_StringBase const& b) noexcept { return a.View() == b.View(); }
    /// Compares the characters.
    friend bool operator==(atr_StringBase const& a, std::string_view b) noexcept { return a.View() == b; }

protected:
    atr_StringBase() noexcept = default;
    /// Copies `text`, which need not be null-terminated and must not contain a null character.
    explicit atr_StringBase(std::string_view text);
    /// Shares the text of `other`.
    atr_StringBase(atr_StringBase const& other) noexcept;
    /// Shares the text of `other`; the former text is freed when nobody else refers to it.
    atr_StringBase& operator=(atr_StringBase const& other) noexcept;
    ~atr_StringBase();

private:
    /// Frees text and count, once no string refers to them.
    static void Delete(char* text, std::int32_t* count) noexcept;
    void Release() noexcept;

    char* m_text = nullptr;
    std::int32_t* m_count = nullptr;
};

/// Counted text of the translation service: messages and reports.
class KVO_EXPORT atr_String : public atr_StringBase
{
public:
    atr_String() noexcept = default;
    /// Copies `text`; null counts as the empty string.
    atr_String(char const* text) : atr_StringBase(text != nullptr ? std::string_view(text) : std::string_view()) {}
    /// Copies `text`, which need not be null-terminated and must not contain a null character.
    explicit atr_String(std::string_view text) : atr_StringBase(text) {}
};

/// Counted text for everything else: names and paths.
class KVO_EXPORT cow_String : public atr_StringBase
{
public:
    cow_String() noexcept = default;
    /// Copies `text`; null counts as the empty string.
    cow_String(char const* text) : atr_StringBase(text != nullptr ? std::string_view(text) : std::string_view()) {}
    /// Copies `text`, which need not be null-terminated and must not contain a null character.
    explicit cow_String(std::string_view text) : atr_StringBase(text) {}
};
