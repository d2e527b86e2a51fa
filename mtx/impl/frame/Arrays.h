#pragma once

#include "mem_Allocator.h"

#include <cstdint>
#include <memory>
#include <new>

/// Arrays of the platform's allocator, and lists for callers.
namespace Arrays
{

template<class T>
using Array = std::unique_ptr<T[], mem_Deleter>;

/// Asks for large pages under the `bytes` bytes at `memory`; does nothing for less than some megabytes. Scattered writes to a large array
/// spend much of their time on page faults and address translation otherwise.
void UseLargePages(void* memory, std::size_t bytes) noexcept;

/// An array of `count` elements, not initialised. @throws mem_OutOfMemory, for a negative count too
template<class T>
Array<T> AllocateArray(std::int64_t count)
{
    std::size_t const bytes = mem_ArrayBytes(count, sizeof(T));
    Array<T> array(static_cast<T*>(mem_OperatorNewThrow(bytes)));
    UseLargePages(array.get(), bytes);
    return array;
}

/// Makes it `count` elements long, the new ones not initialised. Large memory is moved by remapping its pages, not by copying, and no page
/// is taken before it is used. @throws mem_OutOfMemory; the array is as before then
template<class T>
void GrowArray(Array<T>& array, std::int64_t count)
{
    std::size_t const bytes = mem_ArrayBytes(count, sizeof(T));
    void* const memory = mem_Realloc(array.get(), bytes);
    if (memory == nullptr)
        throw mem_OutOfMemory(bytes);
    static_cast<void>(array.release());
    array.reset(static_cast<T*>(memory));
}

/// Gives back what lies behind the first `count` elements, if the allocator can do that.
template<class T>
void ShrinkArray(Array<T>& array, std::int64_t count) noexcept
{
    if (void* const memory = mem_Realloc(array.get(), mem_ArrayBytes(count > 0 ? count : 1, sizeof(T)))) {
        static_cast<void>(array.release());
        array.reset(static_cast<T*>(memory));
    }
}

/// A list for the caller, who releases it with delete[]. @throws mem_OutOfMemory
template<class T>
std::unique_ptr<T[]> AllocateList(std::int64_t count)
{
    T* const list = mem_ArrayBytes(count, sizeof(T)) <= PTRDIFF_MAX ? new (std::nothrow) T[static_cast<std::size_t>(count)] : nullptr;
    if (list == nullptr)
        throw mem_OutOfMemory(mem_ArrayBytes(count, sizeof(T)));
    return std::unique_ptr<T[]>(list);
}

/// The entries of a matrix that is to be allocated. The product is deliberately one of 32 bits: what exceeds it counts as the largest
/// request, which the allocator refuses.
inline std::int64_t EntriesToAllocate(int rows, int columns)
{
    int count = 0;
    return __builtin_mul_overflow(rows, columns, &count) ? -1 : count;
}

} // namespace Arrays
