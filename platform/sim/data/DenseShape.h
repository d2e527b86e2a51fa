#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace simdb
{

/// The most dimensions of a grid: what HDF5 offers.
constexpr std::size_t kMaxRank = 32;

/// First to last, both inclusive, 0-based.
struct Range {
    std::int64_t first;
    std::int64_t last;

    std::int64_t Count() const noexcept { return last - first + 1; }
};

/// What a dense drawer is like; the dimensions in the distribution's order, the last one varying fastest in file and buffers.
struct DenseShape {
    std::vector<std::int64_t> sizes;
    std::vector<std::int64_t> chunkSizes; ///< empty: contiguous
    int typeKey = 3;
    std::array<std::byte, 8> initialValue{}; ///< of the type's size
};

} // namespace simdb
