#pragma once

#include <cstddef>
#include <cstdint>

namespace simdb
{

/// CRC-32C (Castagnoli, as in RFC 3720): of `bytes` bytes behind those that gave `before`. Crc32c of "123456789" is e3069283.
std::uint32_t Crc32c(void const* data, std::size_t bytes, std::uint32_t before = 0) noexcept;

/// The same by the processor's instruction alone, where it has one; by tables elsewhere.
std::uint32_t Crc32cByInstruction(void const* data, std::size_t bytes, std::uint32_t before = 0) noexcept;

/// The same by tables, on any processor: the reference.
std::uint32_t Crc32cByTables(void const* data, std::size_t bytes, std::uint32_t before = 0) noexcept;

} // namespace simdb
