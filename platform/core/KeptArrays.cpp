#include "KeptArrays.h"

#include <algorithm>
#include <cstdlib>
#include <sys/mman.h>

void* KeptArrays::Take(std::size_t bytes) noexcept
{
    std::size_t const most = bytes + bytes / 8; // more would be wasted
    std::scoped_lock const lock(m_mutex);
    for (std::size_t i = m_count; i-- > 0;) // what was released last may still be in the cache
        if (m_arrays[i].bytes >= bytes && m_arrays[i].bytes <= most) {
            void* const memory = m_arrays[i].memory;
            m_bytes -= m_arrays[i].bytes;
            std::move(m_arrays.begin() + i + 1, m_arrays.begin() + m_count, m_arrays.begin() + i);
            --m_count;
            return memory;
        }
    return nullptr;
}

bool KeptArrays::Keep(void* memory, std::size_t bytes) noexcept
{
    std::scoped_lock const lock(m_mutex);
    if (m_count == m_arrays.size() || bytes > m_mostBytes - m_bytes)
        return false;
    madvise(memory, bytes, MADV_FREE); // a wish: failure changes nothing
    m_arrays[m_count++] = {memory, bytes};
    m_bytes += bytes;
    return true;
}

bool KeptArrays::Release() noexcept
{
    std::scoped_lock const lock(m_mutex);
    bool const any = m_count > 0;
    for (; m_count > 0; --m_count)
        std::free(m_arrays[m_count - 1].memory);
    m_bytes = 0;
    return any;
}
