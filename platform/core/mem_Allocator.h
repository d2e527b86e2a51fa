#pragma once

#include "KVOExport.h"

#include <cstddef>
#include <cstdint>
#include <new>

/// @file
/// The platform's allocator. Every array and every object of the libraries above comes from here.

/// Thrown when memory is exhausted or a size is larger than any object can be; the text names the size asked for.
class KVO_EXPORT mem_OutOfMemory : public std::bad_alloc
{
public:
    /// @param bytes  the size that was asked for
    explicit mem_OutOfMemory(std::size_t bytes) noexcept;
    ~mem_OutOfMemory() override;
    mem_OutOfMemory(mem_OutOfMemory const&) noexcept = default;
    mem_OutOfMemory& operator=(mem_OutOfMemory const&) noexcept = default;

    /// "Out of memory: <n> bytes were asked for."; lives as long as this object.
    char const* what() const noexcept override;

private:
    char m_text[64];
};

/// Allocates `bytes` bytes (0 is allowed and gives a unique pointer), uninitialised, aligned for any scalar type; from
/// 64 KiB on to 64 bytes and from 8 MiB on to large pages of 2 MiB, which transfers from files and to them and large
/// arrays gain much by.
///
/// @return the memory, never null; release it with mem_Free
/// @throws mem_OutOfMemory when the memory is exhausted or `bytes` exceeds PTRDIFF_MAX
KVO_EXPORT void* mem_OperatorNewThrow(std::size_t bytes);

/// The same without an exception: null when the memory cannot be had.
KVO_EXPORT void* mem_Malloc(std::size_t bytes) noexcept;

/// Changes the size of memory of the two functions above, or of none (null), to `bytes`, more than 0; what both sizes
/// have in common is kept. Large memory moves without being copied.
///
/// @return the memory, possibly moved; null when it cannot be had: the old one is then untouched
KVO_EXPORT void* mem_Realloc(void* memory, std::size_t bytes) noexcept;

/// Releases memory of the three functions above; null is allowed.
KVO_EXPORT void mem_Free(void* memory) noexcept;

/// Gives back to the system what is kept of released arrays for the next ones of their size (at most 64 MiB or a tenth
/// of the memory of arrays from 256 KiB on that are alive, and never more than a thirty-second of what the process can
/// have), and what lies free in the heap of the C library. An allocation that fails does the first by itself and tries
/// again.
KVO_EXPORT void mem_ReleaseMemory() noexcept;

/// The most bytes that this process can have: the least of the machine's memory, of its control groups' limits and of
/// its own limits of address space and data.
KVO_EXPORT std::size_t mem_MostBytes() noexcept;

/// Bytes of an array of `count` elements of `size` bytes; a negative count or a product that overflows gives SIZE_MAX,
/// which every allocation function refuses.
constexpr std::size_t mem_ArrayBytes(std::int64_t count, std::size_t size) noexcept
{
    std::size_t bytes = 0;
    return count < 0 || __builtin_mul_overflow(static_cast<std::size_t>(count), size, &bytes) ? SIZE_MAX : bytes;
}

/// Makes the allocation that follows `successes` further ones fail, once; a negative number (the state at load time)
/// means never. For tests of what is left behind when memory runs out.
KVO_EXPORT void mem_FailAllocationAfter(std::int64_t successes) noexcept;

/// Base that sends `new` and `delete` of a class through the platform's allocator.
class KVO_EXPORT mem_AllocationOperators
{
public:
    /// Allocates by mem_OperatorNewThrow().
    static void* operator new(std::size_t bytes) { return mem_OperatorNewThrow(bytes); }
    /// Constructs in place, without allocating.
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    /// Releases by mem_Free().
    static void operator delete(void* memory) noexcept { mem_Free(memory); }
    /// Belongs to the construction in place; does nothing.
    static void operator delete(void*, void*) noexcept {}
};

/// Deleter for a unique_ptr that holds an array of the platform's allocator.
struct mem_Deleter {
    /// Releases by mem_Free().
    void operator()(void* memory) const noexcept { mem_Free(memory); }
};
