#pragma once

#include <array>
#include <cstdio>

namespace simdb
{

/// Its name in the file, without memory: a name is also taken back when that has run out.
class DrawerName
{
public:
    DrawerName(int distribution, int drawer) noexcept
    {
        std::snprintf(m_text.data(), m_text.size(), "distribution_%d_drawer_%d", distribution, drawer);
        std::snprintf(m_textOfSums.data(), m_textOfSums.size(), "%s_checksums", m_text.data());
    }
    char const* c_str() const noexcept { return m_text.data(); }
    /// Of the checksums of its values.
    char const* OfSums() const noexcept { return m_textOfSums.data(); }

private:
    std::array<char, 48> m_text;
    std::array<char, 64> m_textOfSums;
};

} // namespace simdb
