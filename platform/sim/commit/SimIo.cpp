#include "SimIo.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

int Result(int returned) noexcept
{
    return returned == 0 ? 0 : errno;
}

} // namespace

namespace simdb::io
{

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
    return Result(fdatasync(descriptor));
}

int SetLength(int descriptor, std::uint64_t length) noexcept
{
    if (ExceedsLimit(length))
        return EFBIG;
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
    // Not posix_fallocate: it makes up for a file system that cannot by writing into every block.
    int error;
    do
        error = Result(fallocate(descriptor, 0, static_cast<off_t>(offset), static_cast<off_t>(bytes)));
    while (error == EINTR);
    return error == EOPNOTSUPP || error == ENOSYS ? Result(ftruncate(descriptor, static_cast<off_t>(length))) : error;
}

int OpenOrMake(std::string const& path, unsigned mode, Descriptor& file) noexcept
{
    file = Descriptor(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, mode));
    return file.IsOpen() ? 0 : errno;
}

int Remove(std::string const& path) noexcept
{
    return Result(unlink(path.c_str()));
}

int SyncFolderOf(std::string const& path) noexcept
{
    char name[PATH_MAX] = "."; // no memory is asked for in the middle of a commit
    if (std::string::size_type const slash = path.rfind('/'); slash != std::string::npos) {
        if (slash + 2 > sizeof name)
            return ENAMETOOLONG;
        name[path.copy(name, slash + 1)] = '\0';
    }
    Descriptor const folder(open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return folder.IsOpen() ? Result(fsync(folder.Number())) : errno;
}

} // namespace simdb::io
