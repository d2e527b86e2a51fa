#include "InputText.h"

#include <algorithm>

InputText::InputText(char const* path) : m_file(path), m_content(Decompression::Of(m_file)) {}

std::size_t InputText::Unpack(std::int64_t place, char* target, std::size_t bytes) const
{
    if (place < m_unpacked) {
        m_content = Decompression::Of(m_file);
        m_unpacked = 0;
    }
    char passed[4096];
    while (m_unpacked < place) {
        std::size_t const got =
            m_content->Read(passed, static_cast<std::size_t>(std::min<std::int64_t>(place - m_unpacked, sizeof passed)));
        if (got == 0)
            return 0;
        m_unpacked += static_cast<std::int64_t>(got);
    }
    std::size_t const got = m_content->Read(target, bytes);
    m_unpacked += static_cast<std::int64_t>(got);
    return got;
}
