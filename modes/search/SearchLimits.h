#pragma once

// What the parts of the search share: its limits, and how it refuses.

#include "KVOSrvModesFailure.h"

#include <limits>
#include <string>

constexpr double kEpsilon = std::numeric_limits<double>::epsilon();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
/// Eigenvalues less than this many roundings of the largest one are nothing but rounding: a rigid body mode.
constexpr double kRoundings = 1e3;
/// A shift so many times the lowest eigenvalue that is not 0 leaves it too few digits.
constexpr double kFarShift = 1e3;
/// A mode that is nearer to a shift inside than this share of the slice, or of the bound, leaves the others too few digits.
constexpr double kTooNear = 1e-5;
/// Columns of a step: solves for four cost about as much a column as for eight, and fewer of them are needed in all.
constexpr int kBlock = 4;
/// Where so many modes beyond those that were counted are found, none of these is to be expected any more.
constexpr int kModesBeyond = 40;

std::string SearchText(double value);

[[noreturn]] void RefuseSearch(KVOSrvModesFailure::Kind kind, std::string const& reason, int line = __builtin_LINE());
