#pragma once

#include "mem_Allocator.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// The platform's allocator in the form that the standard containers take; it has no state.
template<class T>
class mem_StdAllocator
{
    static_assert(alignof(T) <= alignof(std::max_align_t)); // what the allocator gives

public:
    /// What it allocates.
    using value_type = T;

    mem_StdAllocator() noexcept = default;
    /// Of another element type; there is nothing to copy.
    template<class U>
    mem_StdAllocator(mem_StdAllocator<U> const&) noexcept // NOLINT: containers convert
    {
    }

    /// Room for `count` elements. @throws mem_OutOfMemory
    T* allocate(std::size_t count)
    {
        return static_cast<T*>(mem_OperatorNewThrow(mem_ArrayBytes(static_cast<std::int64_t>(count), sizeof(T))));
    }
    /// Releases what allocate() gave.
    void deallocate(T* memory, std::size_t) noexcept { mem_Free(memory); }

    /// All are equal: each can release what another one gave.
    friend bool operator==(mem_StdAllocator const&, mem_StdAllocator const&) noexcept { return true; }
};

/// A std::vector whose elements come from the platform's allocator: when memory runs out it throws mem_OutOfMemory and
/// is as it was.
template<class T>
using mem_Vector = std::vector<T, mem_StdAllocator<T>>;
