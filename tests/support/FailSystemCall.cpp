// Stands in front of the C library's functions, in a program or preloaded.

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

// Not by FailSystemCall.h: what is preloaded needs nothing of the tests.
extern "C" void FailSystemCallAfter(int kind, std::int64_t successes) noexcept;
extern "C" bool SystemCallHasFailed() noexcept;

namespace
{

constexpr int kRead = 0, kWrite = 1, kSync = 2;

std::atomic<int> s_kind{-1};
std::atomic<std::int64_t> s_left{-1};
std::atomic<bool> s_failed{false};
char s_report[4096];

bool Fails(int kind, int descriptor, int error) noexcept
{
    if (kind != s_kind || descriptor <= STDERR_FILENO || s_left < 0 || s_left.fetch_sub(1) != 0)
        return false;
    s_failed = true;
    if (s_report[0] != '\0')
        close(open(s_report, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    errno = error;
    return true;
}

__attribute__((constructor)) void ArmByEnvironment()
{
    int kind = -1;
    long long successes = -1;
    char const* const wish = std::getenv("KVO_FAIL_CALL");
    if (wish != nullptr && std::sscanf(wish, "%d %lld %4095s", &kind, &successes, s_report) == 3)
        FailSystemCallAfter(kind, successes);
}

} // namespace

extern "C" {

void FailSystemCallAfter(int kind, std::int64_t successes) noexcept
{
    s_failed = false;
    s_kind = kind;
    s_left = successes;
}

bool SystemCallHasFailed() noexcept
{
    return s_failed;
}

ssize_t read(int descriptor, void* data, size_t bytes)
{
    return Fails(kRead, descriptor, EIO) ? -1 : syscall(SYS_read, descriptor, data, bytes);
}

ssize_t pread(int descriptor, void* data, size_t bytes, off_t offset)
{
    return Fails(kRead, descriptor, EIO) ? -1 : syscall(SYS_pread64, descriptor, data, bytes, offset);
}

ssize_t write(int descriptor, void const* data, size_t bytes)
{
    return Fails(kWrite, descriptor, ENOSPC) ? -1 : syscall(SYS_write, descriptor, data, bytes);
}

ssize_t pwrite(int descriptor, void const* data, size_t bytes, off_t offset)
{
    return Fails(kWrite, descriptor, ENOSPC) ? -1 : syscall(SYS_pwrite64, descriptor, data, bytes, offset);
}

int fsync(int descriptor)
{
    return Fails(kSync, descriptor, EIO) ? -1 : static_cast<int>(syscall(SYS_fsync, descriptor));
}

int fdatasync(int descriptor)
{
    return Fails(kSync, descriptor, EIO) ? -1 : static_cast<int>(syscall(SYS_fdatasync, descriptor));
}
}
