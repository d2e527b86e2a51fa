#pragma once

#include "FileMapping.h"
#include "InitialValues.h"
#include "SimFile.h"
#include "mem_Allocator.h"

#include <memory>

namespace simdb
{

/// The bytes of an open file beside HDF5: calls, the kept mapping, and memory that all drawers of the file share.
///
/// Offsets are HDF5's addresses. Members that throw throw KVOSimException with the file's path.
class FileAccess
{
public:
    /// To be gone, with the drawers that use it, before the file is closed: a mapping that outlives the descriptor would hold the lock.
    explicit FileAccess(std::shared_ptr<File> file);

    std::shared_ptr<File> const& GetFile() const noexcept { return m_file; }

    /// The variable KVO_SIM_DATA_PATH was "hdf5".
    bool LeavesAllToHdf5() const noexcept { return m_leavesAllToHdf5; }

    /// Exactly `bytes` bytes; also an exception when the file ends before.
    void Read(std::uint64_t offset, void* target, std::size_t bytes);
    void Write(std::uint64_t offset, void const* source, std::size_t bytes);

    /// The same for many bytes at once: through the mapping where that is faster, with pages that have been used before.
    void ReadMany(std::uint64_t offset, std::byte* target, std::size_t bytes, std::uint64_t residentBytes);
    /// ReadMany() with the CRC-32C of what came into `target`.
    std::uint32_t ReadSummed(std::uint64_t offset, std::byte* target, std::size_t bytes, std::uint64_t residentBytes);
    /// The CRC-32C alone. Uses Staging().
    std::uint32_t Sum(std::uint64_t offset, std::uint64_t bytes);
    /// They must have space on the disk, !HasHole(), where `mayBeMapped`.
    void WriteMany(std::uint64_t offset, std::byte const* source, std::size_t bytes, bool mayBeMapped, std::uint64_t residentBytes);
    /// WriteMany() with the CRC-32C of the bytes.
    std::uint32_t WriteSummed(std::uint64_t offset, std::byte const* source, std::size_t bytes, bool mayBeMapped,
                              std::uint64_t residentBytes);
    /// The bytes themselves, where both would move them through the mapping, else null. They stay there until anything else is asked.
    std::byte* InPlace(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, bool toWrite) noexcept;

    /// The bytes themselves, to be read, in memory: what is not is read from the disk first. Null where the system cannot, or the disk.
    /// @param passing  part of more than can stay
    std::byte* Fetched(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, bool passing) noexcept
    {
        return m_mapping.Fetched(offset, bytes, residentBytes, passing);
    }

    /// A transfer begins. In front of its first use of the mapping.
    void Begin() noexcept
    {
        m_mapping.Begin();
        m_takesWrites = m_wroteLately.Holds();
    }
    /// The mapped bytes, of which the runs (array 0) may be read; null when they can only be read by Read().
    std::byte const* ForReading(std::uint64_t offset, StridedRuns const& runs, std::uint64_t residentBytes) noexcept
    {
        return m_mapping.Bytes(offset, runs, residentBytes, false);
    }
    /// The same to be written; null when they can only be written by Write(). They must have space on the disk: !HasHole().
    /// @param source  the first run, of which a little may be written already, to see that the disk still takes it
    std::byte* ForWriting(std::uint64_t offset, StridedRuns const& runs, std::byte const* source, std::uint64_t residentBytes);
    /// @throws KVOSimException when the file ends in front of offset + bytes: a write would fill the gap with zeros
    void RequireReach(std::uint64_t offset, std::uint64_t bytes);
    /// What one of the two gave for `offset`; the mapping may have moved since.
    std::byte* Again(std::uint64_t offset) const noexcept { return m_mapping.Again(offset); }
    bool HasHole(std::uint64_t offset, std::uint64_t bytes) const noexcept;

    /// Lets the file reach [offset, offset + bytes) and zeros there what an earlier use of the space left.
    void Clear(std::uint64_t offset, std::uint64_t bytes);
    /// Starts reading ahead.
    void Announce(std::uint64_t offset, std::uint64_t bytes) const noexcept;

    /// @param uncounted  as InitialValues has it
    std::byte const* Initial(std::array<std::byte, 8> const& value, std::size_t valueBytes, std::uint64_t bytes, bool uncounted = false);
    /// Memory for one chunk on its way, kStagingBytes long; its content is anything.
    std::byte* Staging();
    static constexpr std::size_t kStagingBytes = std::size_t(16) << 20;

private:
    template<class Map, class Call>
    void ReadRegions(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, Map const& map, Call const& call);
    template<class Map, class Call>
    void WriteRegions(std::uint64_t offset, std::uint64_t bytes, bool mayBeMapped, std::uint64_t residentBytes, Map const& map,
                      Call const& call);

    std::string const& Path() const noexcept { return m_file->Path(); }

    std::shared_ptr<File> m_file;
    int m_descriptor;
    bool m_writesMapped;
    bool m_leavesAllToHdf5;
    FileMapping m_mapping;
    Lately m_wroteLately; ///< by a call, which says when the disk fails
    bool m_takesWrites = false;
    InitialValues m_initialValues;
    std::unique_ptr<std::byte, mem_Deleter> m_staging;
};

/// An eighth of the machine's memory, the most that SetCacheBytes() lets a drawer have, and a thirty-second, what it has without it.
std::uint64_t CacheBytesLimit() noexcept;
std::uint64_t CacheBytesDefault() noexcept;

} // namespace simdb
