#pragma once

#include "FailureSweep.h"

/// Makes the `new` that follows `successes` further ones throw std::bad_alloc, once; a negative number: none does. It reaches what a
/// program and its libraries allocate beside the platform's allocator, for which there is mem_FailAllocationAfter. For programs with
/// FailNew.cpp among their sources.
void FailNewAfter(std::int64_t successes) noexcept;

inline FailingCalls News()
{
    return CallsThatTellNoCount("new", &FailNewAfter, [] {
        void* const memory = ::operator new(1, std::nothrow);
        ::operator delete(memory);
        return memory != nullptr;
    });
}
