#pragma once

#include "FoundPages.h"
#include "Residency.h"
#include "StridedCopy.h"

#include <cstddef>
#include <cstdint>

namespace simdb
{

/// A shared mapping of an open file, kept and made longer as the file grows.
///
/// Invariant: what is handed out may be touched: the system has said by a return value that its pages are there or can be had, for Bytes()
/// within the last tenth of a second, and each page that is written that it can be written. A touch of others is a signal: behind the end
/// of a file that was cut, on a file system in memory that has none left, on a disk that fails. Where the system cannot be asked (before
/// Linux 5.14), nothing is handed out.
///
/// How much of it stays in the process's memory is the business of Residency, which takes `residentBytes` with each use. The pages that
/// leave stay in the system's cache.
class FileMapping : private Residency::Memory
{
public:
    /// @param descriptor  of the file; must stay open as long as this object
    /// @param inMemory    so is the file: a page that is there can be written
    FileMapping(int descriptor, bool forWriting, bool inMemory) noexcept
        : m_descriptor(descriptor), m_forWriting(forWriting), m_inMemory(inMemory)
    {
    }
    FileMapping(FileMapping const&) = delete;
    FileMapping& operator=(FileMapping const&) = delete;
    ~FileMapping() override;

    /// A transfer begins: looks how long the file is by now.
    void Begin() noexcept;
    /// The part of the file at `offset` whose runs are those of array 0, valid until the next call; only the runs may be touched. Null when
    /// the file is shorter or the system refuses one of the pages.
    std::byte* Bytes(std::uint64_t offset, StridedRuns const& runs, std::uint64_t residentBytes, bool toWrite) noexcept;
    /// The same for a part of one region that a call could move as well; null where the call is better: before the second use of the
    /// region, when touching it might wait for the disk or fail, when it would make another part leave the memory (always for a
    /// `residentBytes` of 0), and, for writing, when the system does not map the region as one page (page by page it takes 13 times as long
    /// as the call once the pages have been written back).
    std::byte* Settled(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, bool toWrite) noexcept;
    /// The same as a whole, with the bytes in memory: what the system's cache does not have is read from the disk, in large pages where the
    /// system can. Null also where that fails, and for more bytes than may stay. @param passing  part of more than can stay
    std::byte* Fetched(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, bool passing) noexcept;
    /// Tells of a use of a part of one region that a call served.
    void MarkUsed(std::uint64_t offset) noexcept;
    /// The same as Bytes() without a check, for a part that was handed out before: it moves when the mapping grows.
    std::byte* Again(std::uint64_t offset) const noexcept { return m_base + offset; }
    /// Whether [offset, offset + bytes) lies in the file.
    bool Reaches(std::uint64_t offset, std::uint64_t bytes) noexcept;

    static constexpr unsigned kRegionShift = Residency::kRegionShift;
    static constexpr std::uint64_t kRegion = Residency::kRegion;

private:
    void Drop(std::uint64_t region) noexcept override;
    void DropAll() noexcept override;
    void Measure() noexcept;
    void ForgetWhatIsOld() noexcept;
    bool Grow(std::uint64_t bytes) noexcept;
    bool Find(std::uint64_t offset, StridedRuns const& runs, bool toWrite) noexcept;
    bool Find(std::uint64_t offset, std::uint64_t bytes, bool toWrite) noexcept;
    bool Ask(FoundPages::Region& region, unsigned first, unsigned end) noexcept;
    unsigned PagesOf(FoundPages::Region const& region) const noexcept;
    void LookAt(FoundPages::Region& region, unsigned first, unsigned end) const noexcept;
    bool AskToWrite(FoundPages::Region& region, unsigned first, unsigned end) noexcept;
    bool Populate(FoundPages::Region& region, unsigned first, unsigned end, int advice) noexcept;
    bool KnowRegions(std::uint64_t end) noexcept;
    bool Settle(std::uint64_t region, std::uint64_t residentBytes) noexcept;
    bool IsCached(std::uint64_t offset, std::uint64_t bytes) const noexcept;
    void ReadLargePage(std::uint64_t region) const noexcept;
    bool Advise(std::uint64_t offset, std::uint64_t bytes, int advice) noexcept;

    int m_descriptor;
    bool m_forWriting;
    bool m_inMemory;
    bool m_refused = false;
    bool m_tellsResidence = false; ///< mincore() says what it sees; of a file that the process could not write it says "all"
    std::byte* m_base = nullptr;
    std::uint64_t m_mapped = 0;
    std::uint64_t m_fileBytes = 0; ///< as last seen
    FoundPages m_found;
    Lately m_foundLately;
    unsigned m_uses = 0;
    Residency m_residency{*this};
};

} // namespace simdb
