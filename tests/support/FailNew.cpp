#include "FailNew.h"

#include <cstdlib>
#include <new>

// The process's operators. All forms are here that would otherwise come from the sanitizers' runtime, which wants them in pairs.

static std::int64_t s_successesLeft = -1;

void FailNewAfter(std::int64_t successes) noexcept
{
    s_successesLeft = successes;
}

void* operator new(std::size_t bytes, std::nothrow_t const&) noexcept
{
    if (s_successesLeft >= 0 && s_successesLeft-- == 0)
        return nullptr;
    return std::malloc(bytes > 0 ? bytes : 1);
}

void* operator new(std::size_t bytes)
{
    void* const memory = ::operator new(bytes, std::nothrow);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::nothrow_t const&) noexcept
{
    std::free(memory);
}
