#pragma once

#include <pybind11/numpy.h>

#include <cstdint>
#include <optional>
#include <vector>

/// One range of a matrix, as integers, slices and an ellipsis between the brackets name it.
struct Window {
    std::vector<int> first;               ///< along every axis
    std::vector<int> count;               ///< alike
    std::vector<pybind11::ssize_t> shape; ///< without the axes that an integer drops
    std::int64_t values = 1;
};

/// The range that a key names of a matrix of that shape. None where it names another selection, nothing, more than `most` values, or is
/// wrong: the package itself sees to these.
std::optional<Window> WindowOf(pybind11::handle key, std::vector<int> const& shape, std::int64_t most);
