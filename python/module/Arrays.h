#pragma once

#include <pybind11/numpy.h>

#include <cstdint>
#include <string>
#include <vector>

/// The dtype of a KVOSimTypeKey, and the other way round.
pybind11::dtype DtypeOf(int typeKey);
/// @throws TypeError for a dtype that databases have no place for
int TypeKeyOf(pybind11::dtype const& dtype);

/// An array in Fortran order, not initialised, in memory of the library: large ones in large pages, which are used again.
pybind11::array NewArray(pybind11::dtype const& dtype, std::vector<pybind11::ssize_t> const& shape);

/// The memory of an array in Fortran order with that many bytes. @throws ValueError for another one, and for one that may not be written
/// where that is asked for
void* BytesOf(pybind11::array const& array, std::int64_t bytes, bool toWrite);

/// A mapping of its own, read-only, of `count` values of a file; the array owns it. None where it would not be aligned or leave the file.
pybind11::object MapArray(int descriptor, pybind11::dtype const& dtype, std::uint64_t offset, std::int64_t count);
