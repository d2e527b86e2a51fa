#include "KVOBasLeftover.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace
{

// 64-bit FNV-1a (G. Fowler, L. C. Noll, K.-P. Vo), of a name that fits no fixed place.
std::uint64_t HostNumber() noexcept
{
    utsname host;
    std::uint64_t number = 0xCBF29CE484222325U;
    if (uname(&host) == 0)
        for (char const* letter = host.nodename; *letter != '\0'; ++letter)
            number = (number ^ static_cast<unsigned char>(*letter)) * 0x100000001B3U;
    return number;
}

int Open(int directory, char const* name) noexcept
{
    // Not blocking: a named pipe would wait for its other end.
    constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
    int const file = openat(directory, name, O_RDWR | kFlags);
    return file < 0 && errno == EISDIR ? openat(directory, name, O_RDONLY | O_DIRECTORY | kFlags) : file;
}

// What stands in a mark.
struct MarkContent {
    char kind[8];
    KVOBasMaker maker;
};

} // namespace

KVOBasMaker KVOBasMaker::Own() noexcept
{
    return {HostNumber(), getpid()};
}

bool KVOBasMaker::IsGone() const noexcept
{
    // Ids below 1 would mean groups of processes.
    return process > 0 && host == HostNumber() && (process == getpid() || (kill(process, 0) != 0 && errno == ESRCH));
}

KVOBasUnusedFile::KVOBasUnusedFile(int directory, char const* name) noexcept
    : m_directory(directory), m_name(name), m_descriptor(Open(directory, name))
{
    struct stat status;
    if (m_descriptor < 0 || (fstat(m_descriptor, &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode)) &&
                             flock(m_descriptor, LOCK_EX | LOCK_NB) == 0))
        return;
    close(m_descriptor);
    m_descriptor = -1;
}

KVOBasUnusedFile::~KVOBasUnusedFile()
{
    if (m_descriptor >= 0)
        close(m_descriptor);
}

bool KVOBasUnusedFile::Remove() noexcept
{
    struct stat opened, named;
    return m_descriptor >= 0 && fstat(m_descriptor, &opened) == 0 && fstatat(m_directory, m_name, &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           named.st_ino == opened.st_ino && named.st_dev == opened.st_dev &&
           unlinkat(m_directory, m_name, S_ISDIR(opened.st_mode) ? AT_REMOVEDIR : 0) == 0;
}

bool KVOBasFolderMark::Write(int folder) const noexcept
{
    int const file = openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (file < 0)
        return false;
    MarkContent mark{};
    std::memcpy(mark.kind, kind, sizeof kind);
    mark.maker = KVOBasMaker::Own();
    ssize_t const written = write(file, &mark, sizeof mark);
    int const error = written < 0 ? errno : ENOSPC;
    close(file);
    errno = error;
    return written == sizeof mark;
}

bool KVOBasFolderMark::IsLeftBehind(int folder) const noexcept
{
    struct stat status;
    if (fstat(folder, &status) != 0 || !S_ISDIR(status.st_mode) || status.st_uid != geteuid())
        return false;
    int const file = openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0)
        return false;
    MarkContent mark;
    bool const isMark = read(file, &mark, sizeof mark) == sizeof mark && std::memcmp(mark.kind, kind, sizeof kind) == 0;
    close(file);
    return isMark && mark.maker.IsGone();
}
