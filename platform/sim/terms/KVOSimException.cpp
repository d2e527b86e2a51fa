#include "KVOSimException.h"

#include <string>

namespace
{

char const* OrEmpty(char const* text) noexcept
{
    return text != nullptr ? text : "";
}

atr_String Compose(char const* doing, char const* path, char const* why)
{
    std::string text = OrEmpty(doing);
    if (*OrEmpty(path) != '\0')
        text.append(" ").append(path);
    text.append(": ").append(OrEmpty(why)).append(".");
    return atr_String(std::string_view(text));
}

} // namespace

KVOSimException::KVOSimException(char const* doing, char const* path, char const* why, Kind kind)
    : m_text(Compose(doing, path, why)), m_path(std::string_view(OrEmpty(path))), m_kind(kind)
{
}

KVOSimException::~KVOSimException() = default;

atr_String KVOSimException::AsString() const
{
    return m_text;
}

void KVOSimException::Raise() const
{
    throw *this;
}

int KVOSimException::ErrorNumber() const
{
    return 500;
}

void KVOSimException::Write(KVOSimDebugOutString& out) const
{
    out << m_text.c_str();
    out.m_path = m_path;
    out.m_kind = m_kind;
}

KVOSimDebugOutString::~KVOSimDebugOutString() = default;

KVOSimDebugOutString& KVOSimDebugOutString::operator<<(char const* text)
{
    std::string joined(m_text.View());
    joined += OrEmpty(text);
    m_text = atr_String(std::string_view(joined));
    return *this;
}

void KVOSimDebugOutString::Raise() const
{
    throw *this;
}
