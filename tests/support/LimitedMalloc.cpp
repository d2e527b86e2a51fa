#include "LimitedMalloc.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <malloc.h>

extern "C" {
// The system's own.
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* memory, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
void __libc_free(void* memory);
}

namespace
{

std::size_t s_live = 0, s_limit = SIZE_MAX, s_refused = 0;
std::array<void const*, 64> s_askers{}; // the first that were refused
// What was released in pieces below s_large is not given again: Live() and what is free stay below the limit, and so does what is free.
std::size_t s_large = 0, s_mostFree = 0;

bool MayGrow(std::size_t bytes, void const* asker) noexcept
{
    std::size_t const after = s_live + bytes;
    if (after > s_limit || after < bytes) {
        if (s_refused < s_askers.size())
            s_askers[s_refused] = asker;
        ++s_refused;
        errno = ENOMEM;
        return false;
    }
    return true;
}

void* Counted(void* memory) noexcept
{
    std::size_t const bytes = memory != nullptr ? malloc_usable_size(memory) : 0;
    s_live += bytes;
    if (bytes >= s_large)
        s_mostFree -= std::min(s_mostFree, bytes);
    return memory;
}

void Uncount(std::size_t bytes) noexcept
{
    s_live -= bytes;
    if (s_large == 0)
        return;
    if (bytes >= s_large)
        s_mostFree += bytes;
    s_limit = std::min(s_limit, s_live + s_mostFree);
}

} // namespace

std::size_t LimitedMalloc::Live() noexcept
{
    return s_live;
}

void LimitedMalloc::Allow(std::size_t live, bool givenAgain) noexcept
{
    s_limit = live;
    s_large = givenAgain ? 0 : std::size_t(256) << 10;
    s_mostFree = live - s_live;
    if (live != SIZE_MAX)
        s_refused = 0;
}

std::size_t LimitedMalloc::Refused() noexcept
{
    return s_refused;
}

std::size_t LimitedMalloc::RefusedTo(char const* library)
{
    std::size_t count = 0;
    for (std::size_t k = 0; k < std::min(s_refused, s_askers.size()); ++k) {
        Dl_info info;
        count += dladdr(s_askers[k], &info) != 0 && std::strstr(info.dli_fname, library) != nullptr;
    }
    return count;
}

extern "C" {

void* malloc(std::size_t bytes)
{
    return MayGrow(bytes, __builtin_return_address(0)) ? Counted(__libc_malloc(bytes)) : nullptr;
}

void* calloc(std::size_t count, std::size_t bytes)
{
    return MayGrow(count * bytes, __builtin_return_address(0)) ? Counted(__libc_calloc(count, bytes)) : nullptr;
}

void* realloc(void* memory, std::size_t bytes)
{
    std::size_t const before = memory != nullptr ? malloc_usable_size(memory) : 0;
    if (bytes > before && !MayGrow(bytes - before, __builtin_return_address(0)))
        return nullptr;
    void* const moved = __libc_realloc(memory, bytes);
    if (moved != nullptr || bytes == 0)
        Uncount(before);
    return Counted(moved);
}

void* memalign(std::size_t alignment, std::size_t bytes)
{
    return MayGrow(bytes, __builtin_return_address(0)) ? Counted(__libc_memalign(alignment, bytes)) : nullptr;
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes)
{
    return memalign(alignment, bytes);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t bytes)
{
    *memory = memalign(alignment, bytes);
    return *memory != nullptr ? 0 : ENOMEM;
}

void free(void* memory)
{
    if (memory != nullptr)
        Uncount(malloc_usable_size(memory));
    __libc_free(memory);
}
}
