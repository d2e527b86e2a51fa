#include "ProviderMemory.h"

#include "CommandLine.h"
#include "KVOFortran.h"

#include <cstddef>
#include <cstdlib>
#include <dlfcn.h>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

// What OpenBLAS maps for each thread on x86-64, seen with strace; and what else a computation takes from the system at the same time.
constexpr std::size_t kBufferBytes = std::size_t{128} << 20;
constexpr std::size_t kBesideBytes = std::size_t{16} << 20;

bool IsOpenBlas() noexcept
{
    return dlsym(RTLD_DEFAULT, "openblas_get_config") != nullptr;
}

int Threads() noexcept
{
    auto const threads = reinterpret_cast<int (*)()>(dlsym(RTLD_DEFAULT, "openblas_get_num_threads"));
    return threads != nullptr ? threads() : 1;
}

bool IsRoomFor(int buffers) noexcept
{
    std::size_t const bytes = static_cast<std::size_t>(buffers) * kBufferBytes + kBesideBytes;
    void* const memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory != MAP_FAILED && munmap(memory, bytes) == 0;
}

} // namespace

void FitProviderThreads(char** arguments)
{
    constexpr char kVariable[] = "OPENBLAS_NUM_THREADS";
    // Whether the other threads have their buffers already, are about to take them or are trying for ever cannot be seen from here. Room
    // for all of them is enough in each case; a limit that leaves too little for that is no place for several threads anyway.
    if (!IsOpenBlas() || Threads() <= 1 || IsRoomFor(Threads()))
        return;
    if (char const* const before = std::getenv(kVariable); before != nullptr && before[0] == '1' && before[1] == '\0')
        return;
    if (setenv(kVariable, "1", 1) == 0)
        execv("/proc/self/exe", arguments);
}

void RequireProviderMemory()
{
    if (!IsOpenBlas())
        return;
    if (!IsRoomFor(ThreadsForTasks())) // each that computes takes one
        throw std::bad_alloc();
    int const order = 1;
    double const one = 1.0, zero = 0.0;
    double c = 0.0;
    BLAC_DSYRK("U", "N", &order, &order, &one, &one, &order, &zero, &c, &order);
}
