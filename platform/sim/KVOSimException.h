#pragma once

#include "KVOBasException.h"
#include "KVOExport.h"
#include "atr_String.h"

class KVOSimDebugOutString;

/// A failure of the simulation database. Number 500. AsString() says what was being done, on which file, and why it failed.
class KVO_EXPORT KVOSimException : public KVOBasException
{
public:
    /// @param doing  what was being done, as "Cannot open the database"; copied, null counts as empty
    /// @param path   the file; left out of the text when empty
    /// @param why    the reason, with what a user can do about it where that is known
    KVOSimException(char const* doing, char const* path, char const* why);
    KVOSimException(KVOSimException const&) noexcept = default;
    KVOSimException& operator=(KVOSimException const&) noexcept = default;
    ~KVOSimException() override;

    /// "<doing> <path>: <why>."
    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;

    /// Appends AsString() to `out`.
    void Write(KVOSimDebugOutString& out) const;

protected:
    /// A failure whose whole text is `text`.
    explicit KVOSimException(atr_String const& text) noexcept : m_text(text) {}

    /// The whole text.
    atr_String m_text;
};

/// A text built piece by piece that is then thrown: the caller's own words in front of the database's.
class KVO_EXPORT KVOSimDebugOutString : public KVOSimException
{
public:
    KVOSimDebugOutString() noexcept : KVOSimException(atr_String()) {}
    KVOSimDebugOutString(KVOSimDebugOutString const&) noexcept = default;
    KVOSimDebugOutString& operator=(KVOSimDebugOutString const&) noexcept = default;
    ~KVOSimDebugOutString() override;

    /// Appends `text`; null counts as empty.
    KVOSimDebugOutString& operator<<(char const* text);

    [[noreturn]] void Raise() const override;
};
