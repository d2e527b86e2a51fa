#include "FileAccess.h"

#include "Crc32c.h"
#include "Hdf5.h"
#include "SimIo.h"
#include "StridedCopy.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

namespace simdb
{

namespace
{

#ifndef XFS_SUPER_MAGIC
constexpr long XFS_SUPER_MAGIC = 0x58465342;
#endif

enum class Storage { Memory, Disk, Other };

// Disk: file systems that write a block in place, the space of what was written once is there for good. On those that copy on write, a full
// disk would make a signal of a write through a mapping, and over a network every failure would.
Storage StorageOf(int descriptor) noexcept
{
    struct statfs status;
    auto const magic = fstatfs(descriptor, &status) == 0 ? static_cast<long>(status.f_type) : 0;
    if (magic == TMPFS_MAGIC)
        return Storage::Memory;
    return magic == EXT4_SUPER_MAGIC || magic == XFS_SUPER_MAGIC ? Storage::Disk : Storage::Other;
}

bool VariableSaysHdf5() noexcept
{
    char const* const variable = std::getenv("KVO_SIM_DATA_PATH");
    return variable != nullptr && std::strcmp(variable, "hdf5") == 0;
}

// Calls move(offset, bytes) for the parts of a part of the file that lie in one region of the mapping each.
template<class Move>
void ForEachRegion(std::uint64_t offset, std::uint64_t bytes, Move const& move)
{
    for (std::uint64_t const end = offset + bytes; offset < end;) {
        std::uint64_t const next = std::min(end, (offset / FileMapping::kRegion + 1) * FileMapping::kRegion);
        move(offset, next - offset);
        offset = next;
    }
}

// Calls move(offset, bytes) for slices of a part that stay in the second-level cache between a call and the sum: in that of every x86
// server processor since 2017, of 512 KiB and more. Shorter ones lose more on calls.
template<class Move>
void ForEachSlice(std::uint64_t offset, std::uint64_t bytes, Move const& move)
{
    constexpr std::uint64_t kSlice = std::uint64_t(256) << 10;
    for (std::uint64_t const end = offset + bytes; offset < end; offset += kSlice)
        move(offset, std::min(end - offset, kSlice));
}

std::uint64_t PhysicalBytes() noexcept
{
    long const pages = sysconf(_SC_PHYS_PAGES), pageBytes = sysconf(_SC_PAGESIZE);
    return pages > 0 && pageBytes > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageBytes) : std::uint64_t(1) << 30;
}

} // namespace

std::uint64_t CacheBytesLimit() noexcept
{
    static std::uint64_t const s_bytes = PhysicalBytes() / 8;
    return s_bytes;
}

std::uint64_t CacheBytesDefault() noexcept
{
    return CacheBytesLimit() / 4;
}

FileAccess::FileAccess(std::shared_ptr<File> file)
    : m_file(std::move(file)), m_descriptor(m_file->Descriptor()),
      m_writesMapped(!m_file->IsReadOnly() && StorageOf(m_descriptor) != Storage::Other), m_leavesAllToHdf5(VariableSaysHdf5()),
      m_mapping(m_descriptor, m_writesMapped, StorageOf(m_descriptor) == Storage::Memory)
{
}

void FileAccess::Read(std::uint64_t offset, void* target, std::size_t bytes)
{
    std::size_t read = 0;
    if (int const error = io::Read(m_descriptor, target, bytes, offset, read))
        ThrowErrno("Cannot read values of", Path(), error);
    if (read < bytes)
        ThrowReason(KVOSimException::Kind::Damaged, "Cannot read values of", Path(),
                    "the file ends in the middle of them; it was cut short");
}

void FileAccess::RequireReach(std::uint64_t offset, std::uint64_t bytes)
{
    if (!m_mapping.Reaches(offset, bytes))
        ThrowReason("Cannot write values to", Path(), "the file ends in front of their place; it was cut short");
}

void FileAccess::Write(std::uint64_t offset, void const* source, std::size_t bytes)
{
    if (int const error = io::Write(m_descriptor, source, bytes, offset))
        ThrowErrno("Cannot write values to", Path(), error);
    m_wroteLately.Begin();
    m_takesWrites = true;
}

std::byte* FileAccess::ForWriting(std::uint64_t offset, StridedRuns const& runs, std::byte const* source, std::uint64_t residentBytes)
{
    constexpr std::size_t kLittle = 64;
    if (!m_writesMapped)
        return nullptr;
    // Pages that could be written once are protected again when they have gone to the disk, and a file system that has given up since does
    // not let go of them. A call asks it.
    if (!m_takesWrites)
        Write(offset, source, std::min(runs.runBytes, kLittle));
    return m_mapping.Bytes(offset, runs, residentBytes, true);
}

// map(done, mapped, count) or call(done, count) for each part: `count` bytes behind the first `done`.
template<class Map, class Call>
void FileAccess::ReadRegions(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, Map const& map, Call const& call)
{
    ForEachRegion(offset, bytes, [&](std::uint64_t at, std::size_t count) {
        if (std::byte const* const from = m_mapping.Settled(at, count, residentBytes, false))
            return map(at - offset, from, count);
        call(at - offset, count);
        m_mapping.MarkUsed(at);
    });
}

template<class Map, class Call>
void FileAccess::WriteRegions(std::uint64_t offset, std::uint64_t bytes, bool mayBeMapped, std::uint64_t residentBytes, Map const& map,
                              Call const& call)
{
    ForEachRegion(offset, bytes, [&](std::uint64_t at, std::size_t count) {
        if (std::byte* const to = mayBeMapped && m_writesMapped ? m_mapping.Settled(at, count, residentBytes, true) : nullptr)
            return map(at - offset, to, count);
        call(at - offset, count);
        m_mapping.MarkUsed(at);
    });
}

void FileAccess::ReadMany(std::uint64_t offset, std::byte* target, std::size_t bytes, std::uint64_t residentBytes)
{
    ReadRegions(
        offset, bytes, residentBytes,
        [&](std::uint64_t done, std::byte const* from, std::size_t count) { std::memcpy(target + done, from, count); },
        [&](std::uint64_t done, std::size_t count) { Read(offset + done, target + done, count); });
}

std::uint32_t FileAccess::ReadSummed(std::uint64_t offset, std::byte* target, std::size_t bytes, std::uint64_t residentBytes)
{
    std::uint32_t crc = 0;
    ReadRegions(
        offset, bytes, residentBytes,
        [&](std::uint64_t done, std::byte const* from, std::size_t count) { crc = Crc32cCopy(target + done, from, count, crc); },
        [&](std::uint64_t done, std::size_t count) {
            ForEachSlice(done, count, [&](std::uint64_t at, std::size_t slice) {
                Read(offset + at, target + at, slice);
                crc = Crc32c(target + at, slice, crc);
            });
        });
    return crc;
}

std::uint32_t FileAccess::Sum(std::uint64_t offset, std::uint64_t bytes)
{
    std::uint32_t crc = 0;
    ForEachSlice(offset, bytes, [&](std::uint64_t at, std::size_t slice) {
        Read(at, Staging(), slice);
        crc = Crc32c(Staging(), slice, crc);
    });
    return crc;
}

void FileAccess::WriteMany(std::uint64_t offset, std::byte const* source, std::size_t bytes, bool mayBeMapped, std::uint64_t residentBytes)
{
    WriteRegions(
        offset, bytes, mayBeMapped, residentBytes,
        [&](std::uint64_t done, std::byte* to, std::size_t count) { CopyPastCache(to, source + done, count); },
        [&](std::uint64_t done, std::size_t count) { Write(offset + done, source + done, count); });
}

std::uint32_t FileAccess::WriteSummed(std::uint64_t offset, std::byte const* source, std::size_t bytes, bool mayBeMapped,
                                      std::uint64_t residentBytes)
{
    std::uint32_t crc = 0;
    WriteRegions(
        offset, bytes, mayBeMapped, residentBytes,
        [&](std::uint64_t done, std::byte* to, std::size_t count) { crc = Crc32cCopyPastCache(to, source + done, count, crc); },
        [&](std::uint64_t done, std::size_t count) {
            ForEachSlice(done, count, [&](std::uint64_t at, std::size_t slice) {
                crc = Crc32c(source + at, slice, crc);
                Write(offset + at, source + at, slice);
            });
        });
    return crc;
}

std::byte* FileAccess::InPlace(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, bool toWrite) noexcept
{
    bool settled = !toWrite || m_writesMapped;
    ForEachRegion(offset, bytes, [&](std::uint64_t at, std::size_t count) {
        settled = settled && m_mapping.Settled(at, count, residentBytes, toWrite) != nullptr;
    });
    return settled ? m_mapping.Again(offset) : nullptr;
}

bool FileAccess::HasHole(std::uint64_t offset, std::uint64_t bytes) const noexcept
{
    off_t const hole = lseek(m_descriptor, static_cast<off_t>(offset), SEEK_HOLE);
    return hole < 0 || static_cast<std::uint64_t>(hole) < offset + bytes;
}

void FileAccess::Clear(std::uint64_t offset, std::uint64_t bytes)
{
    struct stat status;
    if (fstat(m_descriptor, &status) != 0)
        ThrowErrno("Cannot make space for values in", Path(), errno);
    auto const fileBytes = static_cast<std::uint64_t>(status.st_size);
    std::byte const* const zeros = fileBytes > offset ? Initial({}, 1, std::min(bytes, kStagingBytes)) : nullptr;
    for (std::uint64_t at = offset, end = std::min(fileBytes, offset + bytes); at < end; at += kStagingBytes)
        Write(at, zeros, std::min(end - at, kStagingBytes));
    if (fileBytes < offset + bytes)
        if (int const error = io::SetLength(m_descriptor, offset + bytes))
            ThrowErrno("Cannot make space for values in", Path(), error);
}

void FileAccess::Announce(std::uint64_t offset, std::uint64_t bytes) const noexcept
{
    posix_fadvise(m_descriptor, static_cast<off_t>(offset), static_cast<off_t>(bytes), POSIX_FADV_WILLNEED);
}

std::byte const* FileAccess::Initial(std::array<std::byte, 8> const& value, std::size_t valueBytes, std::uint64_t bytes, bool uncounted)
{
    std::byte const* const values = m_initialValues.Bytes(value, valueBytes, bytes, uncounted);
    if (values == nullptr)
        ThrowErrno("Cannot get memory for values of", Path(), errno);
    return values;
}

std::byte* FileAccess::Staging()
{
    if (!m_staging)
        m_staging.reset(static_cast<std::byte*>(mem_OperatorNewThrow(kStagingBytes)));
    return m_staging.get();
}

} // namespace simdb
