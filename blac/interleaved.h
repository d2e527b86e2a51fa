#pragma once

#include <cstddef>

namespace blac
{

/// The most rows that Deinterleave() takes.
constexpr std::ptrdiff_t kMostInterleavedRows = std::ptrdiff_t{1} << 22;

/// Turns `rows` rows of `vectors` values, one row behind the other, into columns, one behind the other, where they are, in three passes
/// over the memory and with some KiB of the stack.
/// @param vectors  8 or less
void Deinterleave(double* values, std::ptrdiff_t rows, int vectors) noexcept;

} // namespace blac
