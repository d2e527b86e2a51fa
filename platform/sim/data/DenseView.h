#pragma once

#include "DenseDrawer.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace simdb
{

/// A piece of one dimension of a view that lies in one piece in the drawer: the view's positions from `at` on are `range`.
struct Run {
    std::int64_t at;
    Range range;
};

/// The part of a dense drawer that a transfer moves: a range in every dimension, or, where a view takes members of the drawer in an order
/// of its own, runs.
struct DenseView {
    std::array<Range, 32> ranges{};
    int rank = 0;
    std::int64_t bytes = 0;
    std::vector<std::vector<Run>> runs; ///< empty: the ranges say all

    std::span<Range const> Ranges() const noexcept { return {ranges.data(), static_cast<std::size_t>(rank)}; }
};

/// The runs of `positions`, which follow one another in the drawer.
std::vector<Run> FindRuns(std::span<std::int64_t const> positions);

/// Moves the values of a view with runs, run by run through a buffer of the largest of them.
void ReadRuns(DenseDrawer& drawer, DenseView const& view, std::size_t valueBytes, void* buffer, DenseDrawer::Way const& way);
void WriteRuns(DenseDrawer& drawer, DenseView const& view, std::size_t valueBytes, void const* buffer, DenseDrawer::Way const& way);

} // namespace simdb
