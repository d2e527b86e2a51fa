#include "FileMapping.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

namespace simdb
{

namespace
{

// Since Linux 5.14, and so unknown to older headers; an older system refuses them.
constexpr int kPopulateRead = 22, kPopulateWrite = 23;
constexpr unsigned kPageShift = 12; // larger pages of a system only make the calls fail
constexpr std::uint64_t kPageBytes = std::uint64_t(1) << kPageShift;

// One behind the number of the region that holds the byte before `end`.
constexpr std::uint64_t EndOfRegions(std::uint64_t end) noexcept
{
    return (end + FileMapping::kRegion - 1) >> FileMapping::kRegionShift;
}

/// Of the process's thread, those for its system calls counted in.
long Faults() noexcept
{
    rusage usage;
    return getrusage(RUSAGE_THREAD, &usage) == 0 ? usage.ru_minflt : 0;
}

} // namespace

FileMapping::~FileMapping()
{
    if (m_base != nullptr)
        munmap(m_base, m_mapped);
}

void FileMapping::Begin() noexcept
{
    std::uint64_t const before = m_fileBytes;
    Measure();
    if (m_fileBytes < before)
        m_found.ForgetAll();
    ForgetWhatIsOld();
}

void FileMapping::ForgetWhatIsOld() noexcept
{
    if (m_foundLately.Holds())
        return;
    m_found.Forget();
    m_foundLately.Begin();
}

// Half as long a call as fstat(); nothing uses the descriptor's position.
void FileMapping::Measure() noexcept
{
    off_t const end = lseek(m_descriptor, 0, SEEK_END);
    m_fileBytes = end < 0 ? 0 : static_cast<std::uint64_t>(end);
}

std::byte* FileMapping::Bytes(std::uint64_t offset, StridedRuns const& runs, std::uint64_t residentBytes, bool toWrite) noexcept
{
    auto const bytes = static_cast<std::uint64_t>(runs.Span(0));
    std::uint64_t const end = EndOfRegions(offset + bytes);
    if (!Reaches(offset, bytes) || !Grow(offset + bytes) || !KnowRegions(end))
        return nullptr;
    m_residency.Touch(offset >> kRegionShift, end, residentBytes);
    constexpr unsigned kClock = 16; // each time would take a tenth of what checking a piece takes
    if (++m_uses % kClock == 0)
        ForgetWhatIsOld();
    return Find(offset, runs, toWrite) ? m_base + offset : nullptr;
}

// Runs that leave out at most every second page are asked for in one, gaps included; others would have pages read and written that nobody
// uses.
bool FileMapping::Find(std::uint64_t offset, StridedRuns const& runs, bool toWrite) noexcept
{
    if (runs.IsOneRun())
        return Find(offset, runs.runBytes, toWrite);
    bool found = true;
    auto const find = [&](std::int64_t at, std::uint64_t bytes) {
        found = found && Find(offset + static_cast<std::uint64_t>(at), bytes, toWrite);
    };
    StridedRuns::Loop const& inner = runs.loops[0];
    if (inner.strides[0] <= static_cast<std::int64_t>(2 * kPageBytes)) {
        std::uint64_t const bytes = static_cast<std::uint64_t>((inner.count - 1) * inner.strides[0]) + runs.runBytes;
        runs.ForEachInnerLoop([&](std::int64_t at, std::int64_t, bool) { find(at, bytes); });
    } else {
        runs.ForEachRun([&](std::int64_t at, std::int64_t) { find(at, runs.runBytes); });
    }
    return found;
}

bool FileMapping::Find(std::uint64_t offset, std::uint64_t bytes, bool toWrite) noexcept
{
    for (std::uint64_t const end = offset + bytes; offset < end;) {
        std::uint64_t const number = offset >> kRegionShift, begin = number << kRegionShift, next = std::min(end, begin + kRegion);
        FoundPages::Region* const region = m_found.Of(number);
        if (region == nullptr)
            return false;
        auto const first = static_cast<unsigned>((offset - begin) >> kPageShift);
        auto const behind = static_cast<unsigned>((next - begin + kPageBytes - 1) >> kPageShift);
        if (toWrite && !m_inMemory && !region->toWrite.Has(first, behind) && !AskToWrite(*region, first, behind))
            return false;
        if (!region->toRead.Has(first, behind) && !Ask(*region, first, behind))
            return false;
        offset = next;
    }
    return true;
}

// At first for no more than is used, which maps it. For a region that is used again mincore() asks about more and more around: it reads
// nothing, and takes a fortieth of the time where the pages are mapped. The first of many pages is mapped before, because the others may
// come with it, as one large page.
bool FileMapping::Ask(FoundPages::Region& region, unsigned first, unsigned end) noexcept
{
    constexpr unsigned kFew = 16, kGrowth = 4;
    if (m_tellsResidence && (region.questions > 0 || end - first > kFew)) {
        unsigned around = region.questions > 0 ? kFew : 1;
        for (unsigned i = 1; i < region.questions && around < PageSet::kPages; ++i)
            around *= kGrowth;
        if (region.questions == 0 && !Populate(region, first, first + 1, kPopulateRead))
            return false;
        LookAt(region, first / around * around, std::min(PagesOf(region), (end + around - 1) / around * around));
        if (region.toRead.Has(first, end)) {
            ++region.questions;
            return true;
        }
        region.questions = 0; // not all of it is in the system's cache: looking further around would tell little
    }
    return Populate(region, first, end, kPopulateRead);
}

unsigned FileMapping::PagesOf(FoundPages::Region const& region) const noexcept
{
    return static_cast<unsigned>((std::min(kRegion, m_fileBytes - (region.number << kRegionShift)) + kPageBytes - 1) >> kPageShift);
}

// Notes which of the pages are in the system's cache.
void FileMapping::LookAt(FoundPages::Region& region, unsigned first, unsigned end) const noexcept
{
    std::array<unsigned char, PageSet::kPages> there;
    if (mincore(m_base + (region.number << kRegionShift) + first * kPageBytes, (end - first) * kPageBytes, there.data()) != 0)
        return;
    for (unsigned page = first, next; page < end; page = next + 1) {
        for (next = page; next < end && (there[next - first] & 1) != 0;)
            ++next;
        region.toRead.Add(page, next);
    }
}

// For no more than is written, lest the rest is written to the disk as well; but a large page is one, which its first faults tell.
bool FileMapping::AskToWrite(FoundPages::Region& region, unsigned first, unsigned end) noexcept
{
    if (region.isLargePage || m_residency.Of(region.number) == Residency::State::LargePage) {
        first = 0;
        end = PagesOf(region);
    }
    bool const tells = !region.isWritten && end - first > 1;
    long const before = tells ? Faults() : 0;
    if (!Populate(region, first, end, kPopulateWrite))
        return false;
    region.isLargePage = region.isLargePage || (tells && Faults() - before == 1);
    region.isWritten = true;
    return true;
}

bool FileMapping::Populate(FoundPages::Region& region, unsigned first, unsigned end, int advice) noexcept
{
    if (!Advise((region.number << kRegionShift) + first * kPageBytes, (end - first) * kPageBytes, advice)) {
        region.questions = 0;
        return false;
    }
    ++region.questions;
    region.toRead.Add(first, end);
    if (advice == kPopulateWrite)
        region.toWrite.Add(first, end);
    return true;
}

bool FileMapping::Reaches(std::uint64_t offset, std::uint64_t bytes) noexcept
{
    std::uint64_t end;
    if (__builtin_add_overflow(offset, bytes, &end))
        return false;
    if (end > m_fileBytes)
        Measure();
    return end <= m_fileBytes;
}

bool FileMapping::Grow(std::uint64_t bytes) noexcept
{
    if (m_refused)
        return false;
    if (bytes <= m_mapped)
        return true;
    // Addresses cost nothing behind the file's end, so that a growing file is seldom mapped anew.
    constexpr std::uint64_t kAhead = std::uint64_t(256) << 20;
    for (std::uint64_t const length : {m_fileBytes + kAhead, bytes}) {
        std::uint64_t const rounded = (length + kRegion - 1) & ~(kRegion - 1);
        int const protection = m_forWriting ? PROT_READ | PROT_WRITE : PROT_READ;
        void* const base = m_base == nullptr ? mmap(nullptr, rounded, protection, MAP_SHARED, m_descriptor, 0)
                                             : mremap(m_base, m_mapped, rounded, MREMAP_MAYMOVE);
        if (base == MAP_FAILED)
            continue;
        m_base = static_cast<std::byte*>(base);
        m_mapped = rounded;
        // A page behind the file's end is nowhere.
        unsigned char there = 1;
        if (rounded - kPageBytes >= m_fileBytes)
            m_tellsResidence = mincore(m_base + rounded - kPageBytes, kPageBytes, &there) == 0 && (there & 1) == 0;
        return true;
    }
    m_refused = true; // asked once: transfers then go by calls
    return false;
}

bool FileMapping::KnowRegions(std::uint64_t end) noexcept
{
    return m_residency.Knows(end - 1) || m_residency.Know(m_mapped >> kRegionShift);
}

void FileMapping::DropAll() noexcept
{
    madvise(m_base, m_mapped, MADV_DONTNEED);
    m_found.ForgetAll();
}

void FileMapping::Drop(std::uint64_t region) noexcept
{
    Advise(region << kRegionShift, kRegion, MADV_DONTNEED);
    m_found.ForgetAllOf(region);
}

std::byte* FileMapping::Settled(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, bool toWrite) noexcept
{
    std::uint64_t const region = offset >> kRegionShift;
    if (residentBytes == 0 || !Reaches(offset, bytes) || !Grow(offset + bytes) || !KnowRegions(region + 1))
        return nullptr;
    // Most matrices are written, then read, once: their pages would come into the process's memory for nothing.
    if (m_residency.Of(region) == Residency::State::None || !IsCached(offset, bytes) ||
        (m_residency.Of(region) < Residency::State::Pages && !Settle(region, residentBytes)) ||
        (!m_tellsResidence && !Advise(offset, bytes, kPopulateRead)))
        return nullptr;
    // Once written back, the pages are not to be written through the mapping until the file system has agreed again: it may have no room.
    if (toWrite && (m_residency.Of(region) != Residency::State::LargePage || !Advise(offset, bytes, kPopulateWrite)))
        return nullptr;
    return m_base + offset;
}

void FileMapping::MarkUsed(std::uint64_t offset) noexcept
{
    m_residency.MarkUsed(offset >> kRegionShift);
}

// Maps the whole region.
bool FileMapping::Settle(std::uint64_t region, std::uint64_t residentBytes) noexcept
{
    if (!m_residency.HasRoom(region, residentBytes))
        return false;
    std::uint64_t const offset = region << kRegionShift, bytes = std::min(kRegion, m_fileBytes - offset);
    // What was touched is mapped anew, so that the number of faults tells whether it is one page.
    Advise(offset, bytes, MADV_DONTNEED);
    long const before = Faults();
    if (!Advise(offset, bytes, kPopulateRead))
        return false;
    m_residency.Settle(region, bytes == kRegion && Faults() - before == 1);
    return true;
}

std::byte* FileMapping::Fetched(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, bool passing) noexcept
{
    std::uint64_t const room = passing ? std::min(Residency::kPassing, residentBytes) : residentBytes;
    std::uint64_t const first = offset >> kRegionShift, last = EndOfRegions(offset + bytes);
    if (bytes > room || (passing && bytes + kRegion > room) || !Reaches(offset, bytes) || !Grow(offset + bytes) || !KnowRegions(last))
        return nullptr;
    passing ? m_residency.LetPass(first, last, residentBytes) : m_residency.Touch(first, last, residentBytes);
    for (std::uint64_t at = offset, end = offset + bytes; at < end;) {
        std::uint64_t const region = at >> kRegionShift, next = std::min(end, (region + 1) << kRegionShift);
        if (!IsCached(at, next - at))
            ReadLargePage(region);
        at = next;
    }
    return Advise(offset, bytes, kPopulateRead) ? m_base + offset : nullptr; // from here on a touch finds the page, whatever the disk does
}

// A disk that takes requests in pieces of memory works two to three times as fast for pages of 2 MiB, and the system spends a thirtieth of
// the time on them. It makes them only for a mapping that asks for them, and reads the next one ahead. The mapping is one of its own, for
// the moment: the kept one would read as much around every byte that is touched.
void FileMapping::ReadLargePage(std::uint64_t region) const noexcept
{
    std::uint64_t const offset = region << kRegionShift;
    void* const window = mmap(nullptr, kRegion, PROT_READ, MAP_SHARED, m_descriptor, static_cast<off_t>(offset));
    if (window == MAP_FAILED)
        return;
    if (madvise(window, kRegion, MADV_HUGEPAGE) == 0)
        madvise(window, std::min(kRegion, m_fileBytes - offset), kPopulateRead);
    munmap(window, kRegion);
}

// Pages that are not in the system's cache are not touched: a disk that fails is a signal then, and a call reads ahead better.
bool FileMapping::IsCached(std::uint64_t offset, std::uint64_t bytes) const noexcept
{
    std::array<unsigned char, (kRegion >> kPageShift) + 1> cached;
    std::uint64_t const first = offset >> kPageShift, pages = ((offset + bytes - 1) >> kPageShift) - first + 1;
    return mincore(m_base + (first << kPageShift), pages << kPageShift, cached.data()) == 0 &&
           std::all_of(cached.begin(), cached.begin() + static_cast<std::ptrdiff_t>(pages), [](unsigned char page) { return page & 1; });
}

bool FileMapping::Advise(std::uint64_t offset, std::uint64_t bytes, int advice) noexcept
{
    std::uint64_t const begin = offset >> kPageShift << kPageShift;
    if (madvise(m_base + begin, offset + bytes - begin, advice) == 0)
        return true;
    m_refused = m_refused || (errno == EINVAL && advice != MADV_DONTNEED); // the system does not know how to be asked
    return false;
}

} // namespace simdb
