#pragma once

#include <cstddef>

/// The malloc of a program with LimitedMalloc.cpp among its sources, that of its libraries and of HDF5 included: as much as it is allowed,
/// and it tells who asked. Not for programs of several threads, nor for the sanitizers.
namespace LimitedMalloc
{

/// Bytes that are allocated now.
std::size_t Live() noexcept;
/// From here on, what would make Live() exceed `live` is refused. SIZE_MAX, the state at first: nothing is.
/// @param givenAgain  whether what is released adds to what may be allocated; else only pieces of 256 KiB and more do, as where other
///                    threads take the small ones, or the heap is in pieces
void Allow(std::size_t live, bool givenAgain = true) noexcept;
/// Refused since Allow(): to all, and to the shared library whose name holds `library`.
std::size_t Refused() noexcept;
std::size_t RefusedTo(char const* library);

} // namespace LimitedMalloc
