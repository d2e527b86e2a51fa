#include "Residency.h"

#include <algorithm>
#include <new>

namespace simdb
{

bool Residency::Know(std::uint64_t regions) noexcept
{
    try {
        m_states.resize(std::max<std::size_t>(m_states.size(), regions), State::None);
        return true;
    } catch (std::bad_alloc const&) {
        return false;
    }
}

void Residency::MarkUsed(std::uint64_t region) noexcept
{
    if (Knows(region) && m_states[region] == State::None)
        m_states[region] = State::Seen;
}

void Residency::Add(std::uint64_t region, State state) noexcept
{
    if (m_states[region] < State::Touched)
        m_residentBytes += kRegion;
    m_states[region] = std::max(m_states[region], state);
}

void Residency::Touch(std::uint64_t first, std::uint64_t end, std::uint64_t residentBytes) noexcept
{
    auto const touch = [&] {
        for (std::uint64_t region = first; region < end; ++region)
            Add(region, State::Touched);
    };
    touch();
    // The part asked for may itself exceed the limit: it is dropped at the next call.
    if (m_residentBytes > residentBytes && m_residentBytes > (end - first) * kRegion) {
        DropAll();
        touch();
    }
}

void Residency::LetPass(std::uint64_t first, std::uint64_t end, std::uint64_t residentBytes) noexcept
{
    if (m_residentBytes + (end - first) * kRegion > residentBytes + m_passingCount * kRegion)
        DropAll();
    for (std::uint64_t region = first; region < end; ++region) {
        if (m_states[region] >= State::Touched)
            continue;
        while (m_passingCount > 0 && (m_passingCount == m_passing.size() || m_residentBytes + kRegion > residentBytes))
            DropOldestPassing();
        m_passing[(m_oldestPassing + m_passingCount++) % m_passing.size()] = region;
        Add(region, State::Touched);
    }
}

bool Residency::HasRoom(std::uint64_t region, std::uint64_t residentBytes) noexcept
{
    constexpr std::uint64_t kPatience = 4;
    std::uint64_t const added = m_states[region] >= State::Touched ? 0 : kRegion;
    while (m_passingCount > 0 && added > 0 && m_residentBytes + added > residentBytes)
        DropOldestPassing();
    if (m_residentBytes + added <= residentBytes)
        return true;
    m_refusedBytes += kRegion;
    if (m_refusedBytes > kPatience * residentBytes)
        DropAll();
    return false;
}

void Residency::Settle(std::uint64_t region, bool isLargePage) noexcept
{
    Add(region, isLargePage ? State::LargePage : State::Pages);
}

void Residency::DropAll() noexcept
{
    m_memory.DropAll();
    for (State& state : m_states)
        state = std::min(state, State::Seen);
    m_residentBytes = m_refusedBytes = 0;
    m_passingCount = 0;
}

void Residency::DropOldestPassing() noexcept
{
    std::uint64_t const region = m_passing[m_oldestPassing];
    m_oldestPassing = (m_oldestPassing + 1) % m_passing.size();
    --m_passingCount;
    m_memory.Drop(region);
    m_states[region] = State::Seen;
    m_residentBytes -= kRegion;
}

} // namespace simdb
