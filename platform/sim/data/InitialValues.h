#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace simdb
{

/// Memory that holds one value over and over, as long as a chunk can be: a few pages of the system, mapped again and again.
class InitialValues
{
public:
    InitialValues() noexcept = default;
    InitialValues(InitialValues const&) = delete;
    InitialValues& operator=(InitialValues const&) = delete;
    ~InitialValues();

    /// `bytes` bytes of `value`, of which the first valueBytes (1, 4 or 8) count; valid until the next call. Null, with errno set, when the
    /// system refuses.
    /// @param uncounted  zeros are not counted as the process's memory; it takes the system longer to map them
    std::byte const* Bytes(std::array<std::byte, 8> const& value, std::size_t valueBytes, std::uint64_t bytes, bool uncounted) noexcept;

private:
    void Release() noexcept;

    std::array<std::byte, 8> m_pattern{};
    std::byte* m_base = nullptr;
    std::uint64_t m_bytes = 0;
    bool m_uncounted = false;
};

} // namespace simdb
