#include "KVOBasPlatformException.h"

KVOBasPlatformException::KVOBasPlatformException(char const* text) : m_text(text != nullptr ? text : "") {}

KVOBasPlatformException::~KVOBasPlatformException() = default;

atr_String KVOBasPlatformException::AsString() const
{
    return m_text;
}

void KVOBasPlatformException::Raise() const
{
    throw KVOBasPlatformException(*this);
}

int KVOBasPlatformException::ErrorNumber() const
{
    return 400;
}
