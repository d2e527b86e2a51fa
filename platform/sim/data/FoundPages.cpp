#include "FoundPages.h"

#include <new>

namespace simdb
{

FoundPages::Region* FoundPages::Begin(std::uint64_t number) noexcept
{
    if (!m_regions)
        m_regions.reset(new (std::nothrow) Region[kRegions]);
    if (!m_regions)
        return nullptr;
    Region& region = m_regions[number % kRegions];
    if (region.number != number || region.age < m_forgottenAt)
        region = {number, m_age, 0, false, false, {}, {}};
    if (region.age != m_age) {
        region.age = m_age;
        region.toRead = {};
    }
    return &region;
}

void FoundPages::ForgetAllOf(std::uint64_t number) noexcept
{
    if (m_regions && m_regions[number % kRegions].number == number)
        m_regions[number % kRegions] = {};
}

} // namespace simdb
