#pragma once

#include <cstddef>
#include <cstdint>

class KVOSrvSparseMatrix;

/// The words of 64 bits of `bytes` bytes, the last one filled with zeros, mixed into `before`: h = (h xor w) * 9e3779b97f4a7c15, then
/// h xor (h >> 32), as for the tables of a database. It tells damage and mistakes, not malice.
std::uint64_t Fingerprint(void const* data, std::size_t bytes, std::uint64_t before = 0) noexcept;
/// Of the stored structure and values.
std::uint64_t Fingerprint(KVOSrvSparseMatrix const& matrix, std::uint64_t before = 0);
