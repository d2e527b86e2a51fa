#include "KVOBasException.h"

#include <cstdlib>
#include <string>

KVOBasException::~KVOBasException() = default;

atr_String KVOBasException::UserReport() const
{
    return AsString();
}

atr_String KVOBasException::DeveloperReport() const
{
    if (m_file == nullptr)
        return AsString();
    std::string const report = std::string(AsString().View()) + "\nFile " + m_file + ", line " + std::to_string(m_line);
    return atr_String(std::string_view(report));
}

void KVOBasException::Throw(char const* file, int line)
{
    m_file = file;
    m_line = line;
    Raise();
    std::abort(); // a Raise() that returns has broken its promise
}
