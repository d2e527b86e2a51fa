#include "SimIo.h"

#include "KVOSimFaults.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Atomic: databases of several threads count here.
struct Fault {
    std::atomic<std::int64_t> calls{0};
    std::atomic<std::int64_t> first{-1}; // number of the first call that fails; -1: none does
    std::atomic<std::int64_t> times{0};
    std::atomic<int> error{0}; // 0: the process is killed
    std::atomic<bool> torn{false};

    void Set(std::int64_t firstCall, std::int64_t howOften, int what, bool half) noexcept
    {
        first = -1;
        times = howOften;
        error = what;
        torn = half;
        calls = 0;
        first = firstCall; // armed from here on
    }
};
constinit Fault s_fault;

// 0, or the error of a call that must not be made. `half` does the part of it that a torn one does.
template<class Half>
int PassFault(Half const& half) noexcept
{
    std::int64_t const call = s_fault.calls.fetch_add(1, std::memory_order_relaxed), first = s_fault.first;
    if (first < 0 || call < first || call >= first + s_fault.times)
        return 0;
    if (s_fault.torn)
        half();
    if (s_fault.error == 0)
        kill(getpid(), SIGKILL);
    return s_fault.error;
}

int PassFault() noexcept
{
    return PassFault([] {});
}

int Result(int returned) noexcept
{
    return returned == 0 ? 0 : errno;
}

int WriteAll(int descriptor, void const* data, std::size_t bytes, std::uint64_t offset) noexcept
{
    auto const* from = static_cast<char const*>(data);
    while (bytes > 0) {
        ssize_t const written = pwrite(descriptor, from, bytes, static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return written < 0 ? errno : EIO;
        from += written;
        offset += static_cast<std::uint64_t>(written);
        bytes -= static_cast<std::size_t>(written);
    }
    return 0;
}

} // namespace

void KVOSimFaults::FailAfter(std::int64_t successes, int error, std::int64_t times, bool torn) noexcept
{
    s_fault.Set(successes, times, error, torn);
}

void KVOSimFaults::KillAfter(std::int64_t successes, bool torn) noexcept
{
    s_fault.Set(successes, 1, 0, torn);
}

void KVOSimFaults::Disarm() noexcept
{
    s_fault.Set(-1, 0, 0, false);
}

std::int64_t KVOSimFaults::Calls() noexcept
{
    return s_fault.calls;
}

namespace simdb::io
{

Observer* observer = nullptr;

// Asked for each time: the host may change it, and it costs a tenth of the smallest write.
bool ExceedsLimit(std::uint64_t end) noexcept
{
    rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY && end > limit.rlim_cur;
}

int Write(int descriptor, void const* data, std::size_t bytes, std::uint64_t offset) noexcept
{
    if (ExceedsLimit(offset + bytes))
        return EFBIG;
    if (int const error = PassFault([&] { WriteAll(descriptor, data, bytes / 2, offset); }))
        return error;
    if (observer != nullptr)
        observer->OnWrite(descriptor, data, bytes, offset);
    return WriteAll(descriptor, data, bytes, offset);
}

int Read(int descriptor, void* data, std::size_t bytes, std::uint64_t offset, std::size_t& read) noexcept
{
    auto* const to = static_cast<char*>(data);
    for (read = 0; read < bytes;) {
        ssize_t const got = pread(descriptor, to + read, bytes - read, static_cast<off_t>(offset + read));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return errno;
        if (got == 0)
            break;
        read += static_cast<std::size_t>(got);
    }
    return 0;
}

int Sync(int descriptor) noexcept
{
    if (int const error = PassFault())
        return error;
    if (observer != nullptr)
        observer->OnSync(descriptor);
    return Result(fdatasync(descriptor));
}

int SetLength(int descriptor, std::uint64_t length) noexcept
{
    if (ExceedsLimit(length))
        return EFBIG;
    if (int const error = PassFault())
        return error;
    if (observer != nullptr)
        observer->OnLength(descriptor, length);
    return Result(ftruncate(descriptor, static_cast<off_t>(length)));
}

int Reserve(int descriptor, std::uint64_t offset, std::uint64_t bytes) noexcept
{
    if (ExceedsLimit(offset + bytes))
        return EFBIG;
    struct stat status;
    if (fstat(descriptor, &status) != 0)
        return errno;
    auto const length = std::max(static_cast<std::uint64_t>(status.st_size), offset + bytes);
    if (int const error = PassFault())
        return error;
    if (observer != nullptr)
        observer->OnLength(descriptor, length);
    // Not posix_fallocate: it makes up for a file system that cannot by writing into every block.
    int error;
    do
        error = Result(fallocate(descriptor, 0, static_cast<off_t>(offset), static_cast<off_t>(bytes)));
    while (error == EINTR);
    return error == EOPNOTSUPP || error == ENOSYS ? Result(ftruncate(descriptor, static_cast<off_t>(length))) : error;
}

int OpenOrMake(std::string const& path, unsigned mode, int& descriptor) noexcept
{
    if (int const error = PassFault())
        return error;
    descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, mode);
    return descriptor >= 0 ? 0 : errno;
}

int Remove(std::string const& path) noexcept
{
    if (int const error = PassFault())
        return error;
    if (observer != nullptr)
        observer->OnRemove(path);
    return Result(unlink(path.c_str()));
}

int SyncFolderOf(std::string const& path) noexcept
{
    if (int const error = PassFault())
        return error;
    char name[PATH_MAX] = "."; // no memory is asked for in the middle of a commit
    if (std::string::size_type const slash = path.rfind('/'); slash != std::string::npos) {
        if (slash + 2 > sizeof name)
            return ENAMETOOLONG;
        name[path.copy(name, slash + 1)] = '\0';
    }
    int const folder = open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0)
        return errno;
    int const error = Result(fsync(folder));
    close(folder);
    return error;
}

} // namespace simdb::io
