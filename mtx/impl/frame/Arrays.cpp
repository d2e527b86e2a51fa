#include "Arrays.h"

#include <sys/mman.h>
#include <unistd.h>

namespace Arrays
{

void UseLargePages(void* memory, std::size_t bytes) noexcept
{
    constexpr std::size_t kWorthwhile = std::size_t{4} << 20; // two large pages
    if (bytes < kWorthwhile)
        return;
    auto const page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    auto const address = reinterpret_cast<std::uintptr_t>(memory);
    std::uintptr_t const begin = (address + page - 1) / page * page, end = (address + bytes) / page * page;
    // Advice only: a kernel without large pages refuses, and nothing is lost.
    static_cast<void>(madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE));
}

} // namespace Arrays
