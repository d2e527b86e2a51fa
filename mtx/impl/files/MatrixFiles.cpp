#include "MatrixFiles.h"

#include "KVOSrvInterrupt.h"
#include "KVOSrvMtxExceptions.h"
#include "MalformedFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr char kSource[] = "mtx/impl/MatrixFiles";
// Between two looks at whether the host wants an end: a second of a disk that is slow.
constexpr std::size_t kMostAtOnce = std::size_t{1} << 24;

// Without waiting for the other end of a FIFO. -1 on failure.
int OpenAtOnce(char const* path, int flags, unsigned permissions = 0)
{
    return path != nullptr ? open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, permissions) : -1;
}

[[noreturn]] void ThrowUnreadable(std::int64_t place)
{
    throw MalformedFile::AtByte(place, std::string("the file cannot be read: ") + std::strerror(errno));
}

} // namespace

InputFile::InputFile(char const* path) : m_file(OpenAtOnce(path, O_RDONLY))
{
    struct stat status;
    // Only a regular file has a size to hold its content against; a directory and an idle FIFO can be opened, but not read.
    if (m_file.IsOpen() && fstat(m_file.Number(), &status) == 0 && S_ISREG(status.st_mode)) {
        m_size = status.st_size;
        return;
    }
    KVOSrvMtxOpenFileException(path).Throw(kSource, __LINE__);
}

std::size_t InputFile::Read(void* target, std::size_t bytes)
{
    std::size_t const got = ReadAt(m_place, target, bytes);
    m_place += static_cast<std::int64_t>(got);
    return got;
}

std::size_t InputFile::ReadAt(std::int64_t place, void* target, std::size_t bytes) const
{
    std::size_t done = 0;
    while (done < bytes) {
        std::int64_t const next = place + static_cast<std::int64_t>(done);
        KVOSrvInterrupt::Ask();
        ssize_t const got = pread(m_file.Number(), static_cast<char*>(target) + done, std::min(bytes - done, kMostAtOnce), next);
        if (got == 0)
            break;
        if (got > 0)
            done += static_cast<std::size_t>(got);
        else if (errno != EINTR)
            ThrowUnreadable(next);
    }
    return done;
}

void InputFile::ReadExactly(void* target, std::size_t bytes)
{
    std::int64_t const begin = m_place;
    if (Read(target, bytes) != bytes)
        throw MalformedFile::AtByte(m_place,
                                    "the file ends here; " + std::to_string(bytes) + " bytes should follow byte " + std::to_string(begin));
}

void RequireSize(InputFile const& file, std::int64_t bytes, std::string const& what)
{
    if (file.Size() < bytes)
        throw MalformedFile::AtByte(file.Size(), "the file ends here; " + what + " takes " + std::to_string(bytes) + " bytes");
}

OutputFile::OutputFile(char const* path, Existing existing, unsigned permissions)
    : m_path(path), m_buffer(static_cast<char*>(mem_OperatorNewThrow(kBufferBytes)))
{
    m_file = Descriptor(OpenAtOnce(path, O_WRONLY | O_CREAT | (existing == Existing::kTruncate ? O_TRUNC : 0), permissions));
    if (!m_file.IsOpen())
        KVOSrvMtxOpenFileException(path).Throw(kSource, __LINE__);
    // A FIFO that has a reader is written at the reader's pace.
    int const flags = fcntl(m_file.Number(), F_GETFL);
    if (flags >= 0)
        fcntl(m_file.Number(), F_SETFL, flags & ~O_NONBLOCK);
}

void OutputFile::Write(void const* data, std::size_t bytes)
{
    if (bytes >= kBufferBytes) {
        Flush();
        WriteThrough(static_cast<char const*>(data), bytes);
        return;
    }
    if (bytes != 0)
        std::memcpy(Room(bytes), data, bytes);
    m_used += bytes;
}

void OutputFile::WriteThrough(char const* data, std::size_t bytes)
{
    while (bytes > 0) {
        KVOSrvInterrupt::Ask();
        ssize_t const written = write(m_file.Number(), data, std::min(bytes, kMostAtOnce));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            ThrowWriteFailure();
        data += written;
        bytes -= static_cast<std::size_t>(written);
    }
}

void OutputFile::Flush()
{
    WriteThrough(m_buffer.get(), m_used);
    m_used = 0;
}

void OutputFile::Close()
{
    Flush();
    // After EINTR it is closed all the same.
    if (!m_file.Close() && errno != EINTR)
        ThrowWriteFailure();
}

void OutputFile::ThrowWriteFailure() const
{
    KVOSrvMtxFileWriteFailure(m_path).Throw(kSource, __LINE__);
}
