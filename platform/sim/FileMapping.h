#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace simdb
{

/// A shared mapping of an open file, kept and made longer as the file grows.
///
/// Invariants:
/// 1. Only bytes in front of the file's end are handed out: behind it, a touch is a signal.
/// 2. It is at most `residentBytes` (as told with each use) that stay in the process's memory, in steps of kRegion; the pages that leave
/// stay in
///    the system's cache.
class FileMapping
{
public:
    /// @param descriptor  of the file; must stay open as long as this object
    FileMapping(int descriptor, bool forWriting) noexcept : m_descriptor(descriptor), m_forWriting(forWriting) {}
    FileMapping(FileMapping const&) = delete;
    FileMapping& operator=(FileMapping const&) = delete;
    ~FileMapping();

    /// The bytes [offset, offset + bytes) of the file, valid until the next call; writable where the mapping is. Null when the file is
    /// shorter or the system refuses.
    std::byte* Bytes(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes) noexcept;
    /// The same without a check, for a part that was handed out before: it moves when the mapping grows.
    std::byte* Again(std::uint64_t offset) const noexcept { return m_base + offset; }
    /// Whether [offset, offset + bytes) lies in the file.
    bool Reaches(std::uint64_t offset, std::uint64_t bytes) noexcept;

private:
    static constexpr unsigned kRegionShift = 21; ///< 2 MiB: what one page table maps
    static constexpr std::uint64_t kRegion = std::uint64_t(1) << kRegionShift;

    bool Grow(std::uint64_t bytes) noexcept;
    bool KeepResident(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes) noexcept;

    int m_descriptor;
    bool m_forWriting;
    bool m_refused = false;
    std::byte* m_base = nullptr;
    std::uint64_t m_mapped = 0;
    std::uint64_t m_fileBytes = 0; ///< as last seen; the file never becomes shorter while it is open
    std::vector<bool> m_touched;   ///< by region
    std::uint64_t m_touchedBytes = 0;
};

} // namespace simdb
