// Arrays of numpy over the library's memory, the caller's, and mappings of files.

#include "Arrays.h"

#include "KVOSimTypeKey.h"
#include "mem_Allocator.h"

#include <pybind11/pybind11.h>

#include <memory>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace py = pybind11;

py::dtype DtypeOf(int typeKey)
{
    switch (typeKey) {
    case KVOSimInt8:
        return py::dtype::of<std::int8_t>();
    case KVOSimInt32:
    case KVOSimEnum32:
        return py::dtype::of<std::int32_t>();
    case KVOSimFloat:
        return py::dtype::of<float>();
    case KVOSimUInt8:
        return py::dtype::of<std::uint8_t>();
    case KVOSimUInt32:
    case KVOSimReference32:
        return py::dtype::of<std::uint32_t>();
    default:
        return py::dtype::of<double>();
    }
}

int TypeKeyOf(py::dtype const& dtype)
{
    for (int const key : {KVOSimDouble, KVOSimFloat, KVOSimInt32, KVOSimUInt32, KVOSimInt8, KVOSimUInt8})
        if (DtypeOf(key).equal(dtype))
            return key;
    throw py::type_error("a database has no place for values of " + py::str(py::object(dtype)).cast<std::string>() +
                         "; it takes float64, float32, int32, uint32, int8 and uint8");
}

py::array NewArray(py::dtype const& dtype, std::vector<py::ssize_t> const& shape)
{
    std::size_t bytes = static_cast<std::size_t>(dtype.itemsize());
    for (py::ssize_t const extent : shape)
        if (extent < 0 || __builtin_mul_overflow(bytes, static_cast<std::size_t>(extent), &bytes))
            bytes = SIZE_MAX; // which the allocation refuses
    std::unique_ptr<void, mem_Deleter> memory(mem_OperatorNewThrow(bytes));
    py::capsule const owner(memory.get(), [](void* held) { mem_Free(held); });
    void* const values = memory.release();
    return py::array(dtype, shape, py::detail::f_strides(shape, dtype.itemsize()), values, owner);
}

void* BytesOf(py::array const& array, std::int64_t bytes, bool toWrite)
{
    if (array.nbytes() != bytes || (array.flags() & py::array::f_style) == 0)
        throw py::value_error("an array in Fortran order of " + std::to_string(bytes) + " bytes is needed here");
    if (toWrite && !array.writeable())
        throw py::value_error("the array is read-only");
    return const_cast<void*>(array.data());
}

py::object MapArray(int descriptor, py::dtype const& dtype, std::uint64_t offset, std::int64_t count)
{
    struct Mapping {
        void* pages;
        std::size_t bytes;
    };
    auto const page = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    auto const itemBytes = static_cast<std::uint64_t>(dtype.itemsize());
    std::uint64_t const bytes = static_cast<std::uint64_t>(count) * itemBytes, before = offset % page;
    struct stat status;
    if (count <= 0 || offset % itemBytes != 0 || fstat(descriptor, &status) != 0 ||
        offset + bytes > static_cast<std::uint64_t>(status.st_size))
        return py::none();
    void* const pages = mmap(nullptr, before + bytes, PROT_READ, MAP_SHARED, descriptor, static_cast<off_t>(offset - before));
    if (pages == MAP_FAILED)
        return py::none();
    auto const unmap = [](void* held) {
        std::unique_ptr<Mapping> const mapping(static_cast<Mapping*>(held));
        munmap(mapping->pages, mapping->bytes);
    };
    py::capsule const owner(new Mapping{pages, before + bytes}, unmap);
    py::array array(dtype, {static_cast<py::ssize_t>(count)}, {}, static_cast<char*>(pages) + before, owner);
    array.attr("flags").attr("writeable") = false;
    return array;
}
