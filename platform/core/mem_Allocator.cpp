#include "mem_Allocator.h"

#include "AddressSanitizer.h"
#include "MappedArrays.h"
#include "MemoryLimit.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>

namespace
{

// Arrays of some size begin at a cache line: the system reads a file into one and writes it from one 2.3 and 1.7 times as fast as with
// malloc's 16 bytes behind it (docs/measurements.md, "Memory").
constexpr std::size_t kLineArray = std::size_t{64} << 10;
constexpr std::size_t kLine = 64;

// Where mappings begin: malloc gives the memory of released arrays back only from its heap's end, so that what is small and lives on holds
// all below it, and takes new arrays from it that fit badly. From 256 KiB on half as much stays as from 1 MiB on, at no more page faults
// (docs/measurements.md, "Memory").
constexpr std::size_t kMappedArray = std::size_t{256} << 10;

// What lies in front of every array. Not under an address sanitizer, which is to find who writes there.
struct Header {
    void* base;        // what malloc gave
    std::size_t bytes; // of the array; whether it has a mapping of its own follows from that
};

constinit MappedArrays s_mapped; // trivially destroyed: what has static life may release its arrays later

Header& HeaderOf(void* array) noexcept
{
    return static_cast<Header*>(array)[-1];
}

std::size_t Alignment(std::size_t bytes) noexcept
{
    return bytes >= kLineArray ? kLine : alignof(std::max_align_t);
}

void* AllocateForSanitizer(std::size_t bytes) noexcept
{
    void* array = nullptr;
    return bytes < kLineArray ? std::malloc(bytes != 0 ? bytes : 1) : posix_memalign(&array, kLine, bytes) == 0 ? array : nullptr;
}

void* AllocateFromHeap(std::size_t bytes) noexcept
{
    // malloc's own alignment is that of the header, whose room therefore never falls short
    std::size_t const alignment = Alignment(bytes);
    void* const base = std::malloc(sizeof(Header) + bytes + alignment - alignof(std::max_align_t));
    if (base == nullptr)
        return nullptr;
    auto const first = reinterpret_cast<std::uintptr_t>(base) + sizeof(Header);
    void* const array = static_cast<std::byte*>(base) + sizeof(Header) + (alignment - first % alignment) % alignment;
    HeaderOf(array).base = base;
    return array;
}

void* AllocateOnce(std::size_t bytes) noexcept
{
    if (kAddressSanitized)
        return AllocateForSanitizer(bytes);
    void* const array = bytes < kMappedArray ? AllocateFromHeap(bytes) : s_mapped.Allocate(bytes);
    if (array != nullptr)
        HeaderOf(array).bytes = bytes;
    return array;
}

void* Allocate(std::size_t bytes) noexcept
{
    void* const array = AllocateOnce(bytes);
    return array == nullptr && s_mapped.Release() ? AllocateOnce(bytes) : array;
}

void* Reallocate(void* memory, std::size_t bytes) noexcept
{
    if (kAddressSanitized)
        return std::realloc(memory, bytes);
    std::size_t const before = memory != nullptr ? HeaderOf(memory).bytes : 0;
    void* array = nullptr;
    if (before >= kMappedArray && bytes >= kMappedArray && (array = s_mapped.Resize(memory, before, bytes)) != nullptr) {
        HeaderOf(array).bytes = bytes;
    } else if ((array = Allocate(bytes)) != nullptr && memory != nullptr) {
        std::memcpy(array, memory, std::min(before, bytes));
        mem_Free(memory);
    }
    return array;
}

// Atomic although the libraries above are single-threaded: one allocator serves every thread of the host.
std::atomic<std::int64_t> s_successesLeft{-1};

bool InjectedFailure() noexcept
{
    if (s_successesLeft.load(std::memory_order_relaxed) < 0)
        return false;
    return s_successesLeft.fetch_sub(1, std::memory_order_relaxed) == 0;
}

} // namespace

mem_OutOfMemory::mem_OutOfMemory(std::size_t bytes) noexcept
{
    if (bytes > PTRDIFF_MAX)
        std::snprintf(m_text, sizeof m_text, "Out of memory: more bytes were asked for than exist.");
    else
        std::snprintf(m_text, sizeof m_text, "Out of memory: %zu bytes were asked for.", bytes);
}

mem_OutOfMemory::~mem_OutOfMemory() = default;

char const* mem_OutOfMemory::what() const noexcept
{
    return m_text;
}

void* mem_Malloc(std::size_t bytes) noexcept
{
    if (bytes > PTRDIFF_MAX || InjectedFailure())
        return nullptr;
    return Allocate(bytes);
}

void* mem_OperatorNewThrow(std::size_t bytes)
{
    if (void* const memory = mem_Malloc(bytes))
        return memory;
    throw mem_OutOfMemory(bytes);
}

void* mem_Realloc(void* memory, std::size_t bytes) noexcept
{
    return bytes > PTRDIFF_MAX || InjectedFailure() ? nullptr : Reallocate(memory, bytes);
}

void mem_Free(void* memory) noexcept
{
    if (kAddressSanitized || memory == nullptr)
        return std::free(memory);
    Header const header = HeaderOf(memory);
    if (header.bytes < kMappedArray)
        std::free(header.base);
    else
        s_mapped.Free(memory, header.bytes);
}

std::size_t mem_MostBytes() noexcept
{
    return MemoryLimit();
}

void mem_ReleaseMemory() noexcept
{
    s_mapped.Release();
    malloc_trim(0);
}

void mem_FailAllocationAfter(std::int64_t successes) noexcept
{
    s_successesLeft.store(successes, std::memory_order_relaxed);
}
