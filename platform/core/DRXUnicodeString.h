#pragma once

#include "KVOExport.h"
#include "cow_String.h"

/// A text in UTF-8, for names and paths that go to the database.
class KVO_EXPORT DRXUnicodeString
{
public:
    DRXUnicodeString() noexcept = default;
    /// Copies `utf8`; null counts as the empty string. The bytes are kept as they are: a path need not be valid UTF-8.
    DRXUnicodeString(char const* utf8) : m_text(utf8) {}

    /// The bytes, null-terminated, never null; they live as long as this object or a copy of it.
    char const* Utf8() const noexcept { return m_text.c_str(); }
    /// Whether there are no bytes.
    bool IsEmpty() const noexcept { return m_text.IsEmpty(); }

    /// Compares the bytes.
    friend bool operator==(DRXUnicodeString const&, DRXUnicodeString const&) noexcept = default;

private:
    cow_String m_text;
};
