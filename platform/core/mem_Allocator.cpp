#include "mem_Allocator.h"

#include "KeptArrays.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

// Large arrays are asked for in pages of 2 MiB where the system grants them on request: they are mapped afresh each time, and in pages of
// 4 KiB a copy of 120 MB into a new array took 62 ms, in large ones 12, of which the memcpy is 10.
constexpr std::size_t kLargeArray = std::size_t{8} << 20;
constexpr std::size_t kLargePage = std::size_t{2} << 20;

// Arrays of some size begin at a cache line: the system reads a file into one and writes it from one 2.3 and 1.7 times as fast as with
// malloc's 16 bytes behind it (512 MiB by 1 MiB, cached: 27 instead of 63 ms, 35 instead of 57).
constexpr std::size_t kLineArray = std::size_t{64} << 10;
constexpr std::size_t kLine = 64;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
constexpr bool kSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kSanitized = false;
#endif

// A thirty-second of the machine's memory; nothing where an address sanitizer watches what is used after its release.
std::size_t MostKeptBytes() noexcept
{
    long const pages = sysconf(_SC_PHYS_PAGES), pageBytes = sysconf(_SC_PAGESIZE);
    return !kSanitized && pages > 0 && pageBytes > 0 ? static_cast<std::size_t>(pages) / 32 * static_cast<std::size_t>(pageBytes) : 0;
}

// Never destroyed: what has static life may release its arrays later.
KeptArrays& Kept() noexcept
{
    alignas(KeptArrays) static std::byte place[sizeof(KeptArrays)];
    static auto* const kept = new (place) KeptArrays(MostKeptBytes());
    return *kept;
}

// Whole large pages: the ends that do not fill one cost hundreds of page faults, a third of the time of reading a file of 60 MB.
void* AllocateLargePages(std::size_t bytes) noexcept
{
    std::size_t const rounded = (bytes + kLargePage - 1) / kLargePage * kLargePage;
    if (void* const kept = Kept().Take(rounded))
        return kept;
    Kept().Release();
    void* const memory = std::aligned_alloc(kLargePage, rounded);
    if (memory != nullptr)
        madvise(memory, rounded, MADV_HUGEPAGE); // a wish: failure changes nothing
    return memory;
}

// Of an array that AllocateLargePages() gave, what it holds in whole large pages; else 0.
std::size_t LargePageBytes(void* memory) noexcept
{
    if (reinterpret_cast<std::uintptr_t>(memory) % kLargePage != 0)
        return 0;
    std::size_t const bytes = malloc_usable_size(memory) / kLargePage * kLargePage;
    return bytes >= kLargeArray ? bytes : 0;
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
    if (bytes >= kLargeArray)
        return AllocateLargePages(bytes);
    for (;;) {
        void* const memory =
            bytes >= kLineArray ? std::aligned_alloc(kLine, (bytes + kLine - 1) / kLine * kLine) : std::malloc(bytes != 0 ? bytes : 1);
        if (memory != nullptr || !Kept().Release())
            return memory;
    }
}

void* mem_OperatorNewThrow(std::size_t bytes)
{
    if (void* const memory = mem_Malloc(bytes))
        return memory;
    throw mem_OutOfMemory(bytes);
}

void* mem_Realloc(void* memory, std::size_t bytes) noexcept
{
    return bytes > PTRDIFF_MAX || InjectedFailure() ? nullptr : std::realloc(memory, bytes);
}

void mem_Free(void* memory) noexcept
{
    if (std::size_t const bytes = memory != nullptr ? LargePageBytes(memory) : 0; bytes == 0 || !Kept().Keep(memory, bytes))
        std::free(memory);
}

void mem_FailAllocationAfter(std::int64_t successes) noexcept
{
    s_successesLeft.store(successes, std::memory_order_relaxed);
}
