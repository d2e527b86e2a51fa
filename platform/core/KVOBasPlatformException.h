#pragma once

#include "KVOBasException.h"
#include "KVOExport.h"

/// A helper of the platform, below the database, refuses its arguments or is refused by the system. Number 400;
/// AsString() is the text that says which and why.
class KVO_EXPORT KVOBasPlatformException : public KVOBasException
{
public:
    /// @param text  copied; null counts as empty
    explicit KVOBasPlatformException(char const* text);
    KVOBasPlatformException(KVOBasPlatformException const&) noexcept = default;
    KVOBasPlatformException& operator=(KVOBasPlatformException const&) noexcept = default;
    ~KVOBasPlatformException() override;

    atr_String AsString() const override;
    [[noreturn]] void Raise() const override;
    int ErrorNumber() const override;

private:
    atr_String m_text;
};
