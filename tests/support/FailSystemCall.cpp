// Stands in front of the C library's functions, in a program or preloaded: FileCalls.h says what for. Preloaded, the variable
// KVO_FAIL_CALL, "1 20 FILE", lets call 20 (from 0) of kind 1 fail and makes FILE when it has; "1 20 FILE kill" kills the process there.
// With KVO_FAIL_NAME only files count that have this in their names.

#include "FileCalls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

FileObserver* fileObserver = nullptr;

namespace
{

// Databases of several threads count here.
constinit std::atomic<int> s_kind{-1}, s_error{0};
constinit std::atomic<std::int64_t> s_calls{0}, s_first{-1}, s_times{0};
constinit std::atomic<bool> s_torn{false};
char s_report[4096];
char const* s_name = nullptr; // in the files that count; null: all do

constexpr int kNoDescriptor = STDERR_FILENO + 1;

bool Counts(int descriptor) noexcept
{
    if (s_name == nullptr)
        return true;
    char link[64], path[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    ssize_t const length = readlink(link, path, sizeof path - 1);
    path[length < 0 ? 0 : length] = '\0';
    return std::strstr(path, s_name) != nullptr;
}

// 0, or the error of a call that must not be made. half() does the part of it that a torn one does.
template<class Half>
int FaultOf(std::initializer_list<SystemCall> kinds, int descriptor, Half const& half) noexcept
{
    if (descriptor <= STDERR_FILENO || std::find(kinds.begin(), kinds.end(), static_cast<SystemCall>(s_kind.load())) == kinds.end() ||
        !Counts(descriptor))
        return 0;
    std::int64_t const call = s_calls.fetch_add(1), first = s_first;
    if (first < 0 || call < first || call >= first + s_times)
        return 0;
    if (s_torn)
        half();
    if (s_report[0] != '\0')
        syscall(SYS_close, syscall(SYS_openat, AT_FDCWD, s_report, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    if (s_error == 0)
        kill(getpid(), SIGKILL);
    return s_error;
}

int FaultOf(std::initializer_list<SystemCall> kinds, int descriptor) noexcept
{
    return FaultOf(kinds, descriptor, [] {});
}

// What a call returns that fails with `error`, or where that is 0 what make() returns.
template<class Make>
auto Result(int error, Make const& make) noexcept -> decltype(make())
{
    if (error == 0)
        return make();
    errno = error;
    return -1;
}

int Sync(long number, int descriptor) noexcept
{
    int const error = FaultOf({SystemCall::Sync, SystemCall::Change}, descriptor);
    if (error == 0 && fileObserver != nullptr)
        fileObserver->OnSync(descriptor);
    return Result(error, [=] { return static_cast<int>(syscall(number, descriptor)); });
}

__attribute__((constructor)) void ArmByEnvironment()
{
    int kind = -1;
    long long successes = -1;
    char end[8] = "";
    char const* const wish = std::getenv("KVO_FAIL_CALL");
    s_name = std::getenv("KVO_FAIL_NAME");
    if (wish == nullptr || std::sscanf(wish, "%d %lld %4095s %7s", &kind, &successes, s_report, end) < 3)
        return;
    int const error = static_cast<SystemCall>(kind) == SystemCall::Write ? ENOSPC : EIO;
    SetCallFault({static_cast<SystemCall>(kind), successes, std::strcmp(end, "kill") == 0 ? 0 : error});
}

} // namespace

extern "C" {

void SetCallFault(CallFault const& fault) noexcept
{
    s_first = -1;
    s_kind = fault.successes < 0 ? -1 : static_cast<int>(fault.kind);
    s_error = fault.error;
    s_times = fault.times;
    s_torn = fault.torn;
    s_calls = 0;
    s_first = fault.successes; // armed from here on
}

std::int64_t CountedCalls() noexcept
{
    return s_calls;
}

ssize_t read(int descriptor, void* data, size_t bytes)
{
    return Result(FaultOf({SystemCall::Read}, descriptor), [=] { return syscall(SYS_read, descriptor, data, bytes); });
}

ssize_t pread(int descriptor, void* data, size_t bytes, off_t offset)
{
    return Result(FaultOf({SystemCall::Read}, descriptor), [=] { return syscall(SYS_pread64, descriptor, data, bytes, offset); });
}

ssize_t write(int descriptor, void const* data, size_t bytes)
{
    return Result(FaultOf({SystemCall::Write}, descriptor), [=] { return syscall(SYS_write, descriptor, data, bytes); });
}

ssize_t pwrite(int descriptor, void const* data, size_t bytes, off_t offset)
{
    int const error =
        FaultOf({SystemCall::Write, SystemCall::Change}, descriptor, [=] { syscall(SYS_pwrite64, descriptor, data, bytes / 2, offset); });
    if (error == 0 && fileObserver != nullptr)
        fileObserver->OnWrite(descriptor, data, bytes, static_cast<std::uint64_t>(offset));
    return Result(error, [=] { return syscall(SYS_pwrite64, descriptor, data, bytes, offset); });
}

int fsync(int descriptor)
{
    return Sync(SYS_fsync, descriptor);
}

int fdatasync(int descriptor)
{
    return Sync(SYS_fdatasync, descriptor);
}

int ftruncate(int descriptor, off_t length) noexcept
{
    int const error = FaultOf({SystemCall::Change}, descriptor);
    if (error == 0 && fileObserver != nullptr)
        fileObserver->OnLength(descriptor, static_cast<std::uint64_t>(length));
    return Result(error, [=] { return static_cast<int>(syscall(SYS_ftruncate, descriptor, length)); });
}

int fallocate(int descriptor, int mode, off_t offset, off_t bytes)
{
    int const error = FaultOf({SystemCall::Change}, descriptor);
    if (error == 0 && fileObserver != nullptr) {
        struct stat status {
        };
        fstatat(descriptor, "", &status, AT_EMPTY_PATH);
        fileObserver->OnLength(descriptor, static_cast<std::uint64_t>(std::max<off_t>(status.st_size, offset + bytes)));
    }
    return Result(error, [=] { return static_cast<int>(syscall(SYS_fallocate, descriptor, mode, offset, bytes)); });
}

int fstat(int descriptor, struct stat* status) noexcept
{
    return Result(FaultOf({SystemCall::Look}, descriptor), [=] { return fstatat(descriptor, "", status, AT_EMPTY_PATH); });
}

int flock(int descriptor, int operation) noexcept
{
    return Result(FaultOf({SystemCall::Lock}, descriptor), [=] { return static_cast<int>(syscall(SYS_flock, descriptor, operation)); });
}

int open(char const* path, int flags, ...)
{
    va_list rest;
    va_start(rest, flags);
    unsigned const mode = (flags & O_CREAT) != 0 ? va_arg(rest, unsigned) : 0;
    va_end(rest);
    return Result((flags & O_CREAT) != 0 ? FaultOf({SystemCall::Change}, kNoDescriptor) : 0,
                  [=] { return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode)); });
}

int unlink(char const* path) noexcept
{
    int const error = FaultOf({SystemCall::Change}, kNoDescriptor);
    if (error == 0 && fileObserver != nullptr)
        fileObserver->OnRemove(path);
    return Result(error, [=] { return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0)); });
}
}
