#include "RecordFile.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

static_assert(std::endian::native == std::endian::little, "markers and items are taken as they stand in the file");

namespace
{

constexpr std::uint64_t kMarkerBytes = 4;

// As many bytes as there are, up to `bytes`; 0 at the end and on an error.
std::size_t ReadSome(int descriptor, void* target, std::size_t bytes)
{
    for (;;) {
        ssize_t const got = read(descriptor, target, bytes);
        if (got >= 0)
            return static_cast<std::size_t>(got);
        if (errno != EINTR)
            return 0;
    }
}

} // namespace

std::unique_ptr<RecordFile> RecordFile::Open(char const* path)
{
    // A FIFO without a writer would keep open() waiting.
    Descriptor file(path != nullptr ? open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY) : -1);
    struct stat status;
    if (!file.IsOpen() || fstat(file.Number(), &status) != 0 || !S_ISREG(status.st_mode))
        return nullptr;
    return std::unique_ptr<RecordFile>(new RecordFile(std::move(file), status.st_size));
}

KVOForStatus RecordFile::NextRecord()
{
    if (m_malformed)
        return KVOForMalformed;
    while (m_inRecord)
        if (!TakeItems(nullptr, m_itemBytes))
            return Malformed();
    m_place.record = NextByte();
    if (m_left == 0)
        return KVOForEndOfFile;
    m_continued = false;
    return BeginSubRecord() && CloseUsedUpSubRecords() ? KVOForOk : Malformed();
}

KVOForStatus RecordFile::Transmit(void* items, std::uint64_t bytes)
{
    if (m_malformed)
        return KVOForMalformed;
    for (char* target = static_cast<char*>(items); bytes > 0;) {
        if (!m_inRecord)
            return KVOForEndOfRecord;
        std::uint64_t const part = std::min(bytes, m_itemBytes);
        if (!TakeItems(target, part))
            return Malformed();
        bytes -= part;
        if (target != nullptr)
            target += part;
    }
    return KVOForOk;
}

KVOForStatus RecordFile::Malformed()
{
    m_malformed = true;
    m_inRecord = false;
    if (m_place.fault < 0)
        Refuse(NextByte(), m_left < kMarkerBytes ? "the file ends in the middle of a record" : "the file cannot be read");
    return KVOForMalformed;
}

bool RecordFile::Refuse(std::int64_t byte, char const* format, ...) noexcept
{
    va_list numbers;
    va_start(numbers, format);
    std::vsnprintf(m_reason, sizeof m_reason, format, numbers);
    va_end(numbers);
    m_place.fault = byte;
    m_place.reason = m_reason;
    return false;
}

bool RecordFile::TakeItems(char* items, std::uint64_t bytes)
{
    if (!(items != nullptr ? Take(items, bytes) : Skip(bytes)))
        return false;
    m_itemBytes -= bytes;
    return CloseUsedUpSubRecords();
}

bool RecordFile::BeginSubRecord()
{
    std::int64_t const begin = NextByte();
    std::int32_t marker;
    if (!Take(&marker, kMarkerBytes))
        return false;
    if (marker == std::numeric_limits<std::int32_t>::min())
        return Refuse(begin, "expected the length of a record, found %d", marker);
    m_continues = marker < 0;
    m_length = m_continues ? -marker : marker;
    m_itemBytes = static_cast<std::uint64_t>(m_length);
    m_inRecord = true;
    return m_itemBytes + kMarkerBytes <= m_left ||
           Refuse(begin, "expected the length of a record, found %d, which leads beyond the end of the file", marker);
}

bool RecordFile::EndSubRecord()
{
    std::int64_t const begin = NextByte();
    std::int32_t const expected = m_continued ? -m_length : m_length;
    std::int32_t marker;
    if (!Take(&marker, kMarkerBytes))
        return false;
    return marker == expected || Refuse(begin, "expected %d, the length of the record that ends here, found %d", expected, marker);
}

bool RecordFile::CloseUsedUpSubRecords()
{
    while (m_inRecord && m_itemBytes == 0) {
        if (!EndSubRecord())
            return false;
        m_continued = true;
        m_inRecord = false;
        if (m_continues && !BeginSubRecord())
            return false;
    }
    return true;
}

bool RecordFile::Take(void* target, std::uint64_t bytes)
{
    if (bytes > m_left)
        return false;
    char* to = static_cast<char*>(target);
    while (bytes > 0) {
        if (m_next == m_end && bytes >= sizeof m_buffer) {
            std::size_t const got = ReadSome(m_file.Number(), to, bytes);
            if (got == 0)
                return false;
            to += got;
            bytes -= got;
            m_left -= got;
            continue;
        }
        if (m_next == m_end && !Fill())
            return false;
        std::size_t const part = std::min<std::size_t>(bytes, m_end - m_next);
        std::memcpy(to, m_buffer + m_next, part);
        m_next += part;
        to += part;
        bytes -= part;
        m_left -= part;
    }
    return true;
}

bool RecordFile::Skip(std::uint64_t bytes)
{
    if (bytes > m_left)
        return false;
    m_left -= bytes;
    std::size_t const buffered = std::min<std::size_t>(bytes, m_end - m_next);
    m_next += buffered;
    return bytes == buffered || lseek(m_file.Number(), static_cast<off_t>(bytes - buffered), SEEK_CUR) >= 0;
}

bool RecordFile::Fill()
{
    m_next = 0;
    m_end = ReadSome(m_file.Number(), m_buffer, sizeof m_buffer);
    return m_end > 0;
}
