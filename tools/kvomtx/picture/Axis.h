#pragma once

#include <vector>

/// The numbers of `first` to `last` that are written at an axis: both ends, and between them multiples of 1, 2 or 5 times a power of ten,
/// as many as leave each its room.
/// @param length  of the axis, in pixels
/// @param room    that a number takes with the gap to the next one, in pixels
std::vector<int> NumbersAtAxis(int first, int last, double length, double room);
