#pragma once

#include <cstddef>
#include <cstdint>

namespace simdb
{

/// Ways to make the sums below, the fastest first. Where the processor lacks one, the next serves; tables are the reference.
enum class Crc32cWay { Products, Instruction, Tables };

/// CRC-32C (Castagnoli, as in RFC 3720): of `bytes` bytes behind those that gave `before`. Crc32c of "123456789" is e3069283.
std::uint32_t Crc32c(void const* data, std::size_t bytes, std::uint32_t before = 0, Crc32cWay way = Crc32cWay::Products) noexcept;

/// memcpy, and the sum of what `to` got: nothing of `from` is read twice, should another process change it.
std::uint32_t Crc32cCopy(void* to, void const* from, std::size_t bytes, std::uint32_t before = 0,
                         Crc32cWay way = Crc32cWay::Products) noexcept;

/// CopyPastCache(), and the sum.
std::uint32_t Crc32cCopyPastCache(void* to, void const* from, std::size_t bytes, std::uint32_t before = 0,
                                  Crc32cWay way = Crc32cWay::Products) noexcept;

} // namespace simdb
