#include "FileMapping.h"

#include <algorithm>
#include <array>
#include <new>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace simdb
{

namespace
{

// Since Linux 5.14, and so unknown to older headers; an older system refuses them.
constexpr int kPopulateRead = 22, kPopulateWrite = 23;
constexpr unsigned kPageShift = 12; // larger pages of a system only make the calls fail

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

std::byte* FileMapping::Bytes(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes) noexcept
{
    if (!Reaches(offset, bytes) || !Grow(offset + bytes) || !KeepResident(offset, bytes, residentBytes))
        return nullptr;
    return m_base + offset;
}

bool FileMapping::Reaches(std::uint64_t offset, std::uint64_t bytes) noexcept
{
    std::uint64_t end;
    if (__builtin_add_overflow(offset, bytes, &end))
        return false;
    if (end > m_fileBytes) {
        struct stat status;
        m_fileBytes = fstat(m_descriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
    }
    return end <= m_fileBytes;
}

bool FileMapping::Grow(std::uint64_t bytes) noexcept
{
    if (bytes <= m_mapped)
        return true;
    if (m_refused)
        return false;
    // Addresses are plenty and cost nothing behind the file's end, so that a growing file is seldom mapped anew.
    constexpr std::uint64_t kLeast = std::uint64_t(256) << 20;
    for (std::uint64_t const length : {std::max(kLeast, 2 * bytes), bytes}) {
        std::uint64_t const rounded = (length + kRegion - 1) & ~(kRegion - 1);
        int const protection = m_forWriting ? PROT_READ | PROT_WRITE : PROT_READ;
        void* const base = m_base == nullptr ? mmap(nullptr, rounded, protection, MAP_SHARED, m_descriptor, 0)
                                             : mremap(m_base, m_mapped, rounded, MREMAP_MAYMOVE);
        if (base == MAP_FAILED)
            continue;
        m_base = static_cast<std::byte*>(base);
        m_mapped = rounded;
        return true;
    }
    m_refused = true; // asked once: transfers then go by calls
    return false;
}

bool FileMapping::KnowRegions(std::uint64_t end) noexcept
{
    if (m_regions.size() >= end)
        return true;
    try {
        m_regions.resize(m_mapped >> kRegionShift, Residence::None);
        return true;
    } catch (std::bad_alloc const&) {
        return false;
    }
}

bool FileMapping::KeepResident(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes) noexcept
{
    std::uint64_t const first = offset >> kRegionShift, end = (offset + bytes + kRegion - 1) >> kRegionShift;
    if (!KnowRegions(end))
        return false;
    auto const touch = [&] {
        for (std::uint64_t region = first; region < end; ++region)
            if (m_regions[region] < Residence::Touched) {
                m_regions[region] = Residence::Touched;
                m_touchedBytes += kRegion;
            }
    };
    touch();
    // The part asked for may itself exceed the limit: it is dropped at the next call.
    if (m_touchedBytes > residentBytes && m_touchedBytes > (end - first) * kRegion) {
        DropAll();
        touch();
    }
    return true;
}

void FileMapping::DropAll() noexcept
{
    madvise(m_base, m_mapped, MADV_DONTNEED);
    for (Residence& residence : m_regions)
        residence = std::min(residence, Residence::Seen);
    m_touchedBytes = m_refusedBytes = 0;
    m_passingCount = 0;
}

// Counts the regions that become resident now, and lets older ones go for them.
bool FileMapping::LetPass(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes) noexcept
{
    std::uint64_t const first = offset >> kRegionShift, end = (offset + bytes + kRegion - 1) >> kRegionShift;
    if (!KnowRegions(end))
        return false;
    if (m_touchedBytes + (end - first) * kRegion > residentBytes + m_passingCount * kRegion)
        DropAll();
    for (std::uint64_t region = first; region < end; ++region) {
        if (m_regions[region] >= Residence::Touched)
            continue;
        while (m_passingCount > 0 && (m_passingCount == m_passing.size() || m_touchedBytes + kRegion > residentBytes))
            DropOldestPassing();
        m_passing[(m_oldestPassing + m_passingCount++) % m_passing.size()] = region;
        m_regions[region] = Residence::Touched;
        m_touchedBytes += kRegion;
    }
    return true;
}

void FileMapping::DropOldestPassing() noexcept
{
    std::uint64_t const region = m_passing[m_oldestPassing];
    m_oldestPassing = (m_oldestPassing + 1) % m_passing.size();
    --m_passingCount;
    Advise(region << kRegionShift, kRegion, MADV_DONTNEED);
    m_regions[region] = Residence::Seen;
    m_touchedBytes -= kRegion;
}

std::byte* FileMapping::Settled(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, bool toWrite) noexcept
{
    std::uint64_t const region = offset >> kRegionShift;
    if (residentBytes == 0 || !Reaches(offset, bytes) || !Grow(offset + bytes) || !KnowRegions(region + 1))
        return nullptr;
    // Most matrices are written, then read, once: their pages would come into the process's memory for nothing.
    if (m_regions[region] == Residence::None || !IsCached(offset, bytes) ||
        (m_regions[region] < Residence::Pages && !Settle(region, residentBytes)))
        return nullptr;
    // Once written back, the pages are not to be written through the mapping until the file system has agreed again: it may have no room.
    if (toWrite && (m_regions[region] != Residence::LargePage || !Advise(offset, bytes, kPopulateWrite)))
        return nullptr;
    return m_base + offset;
}

void FileMapping::MarkUsed(std::uint64_t offset) noexcept
{
    if (std::uint64_t const region = offset >> kRegionShift; region < m_regions.size() && m_regions[region] == Residence::None)
        m_regions[region] = Residence::Seen;
}

// Maps the whole region. Others don't give way to it, but after a while all do: what is mapped may be out of use.
bool FileMapping::Settle(std::uint64_t region, std::uint64_t residentBytes) noexcept
{
    constexpr std::uint64_t kPatience = 4;
    std::uint64_t const added = m_regions[region] == Residence::Touched ? 0 : kRegion;
    while (m_passingCount > 0 && added > 0 && m_touchedBytes + added > residentBytes)
        DropOldestPassing();
    if (m_touchedBytes + added > residentBytes) {
        m_refusedBytes += kRegion;
        if (m_refusedBytes > kPatience * residentBytes)
            DropAll();
        return false;
    }
    std::uint64_t const offset = region << kRegionShift, bytes = std::min(kRegion, m_fileBytes - offset);
    // What was touched is mapped anew, so that the number of faults tells whether it is one page.
    Advise(offset, bytes, MADV_DONTNEED);
    long const before = Faults();
    if (!Advise(offset, bytes, kPopulateRead))
        return false;
    m_regions[region] = bytes == kRegion && Faults() - before == 1 ? Residence::LargePage : Residence::Pages;
    m_touchedBytes += added;
    return true;
}

std::byte* FileMapping::Fetched(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes, bool passing) noexcept
{
    std::uint64_t const room = passing ? std::min(kPassing, residentBytes) : residentBytes;
    if (bytes > room || (passing && bytes + kRegion > room) || !Reaches(offset, bytes) || !Grow(offset + bytes))
        return nullptr;
    if (passing ? !LetPass(offset, bytes, residentBytes) : !KeepResident(offset, bytes, residentBytes))
        return nullptr;
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

bool FileMapping::Advise(std::uint64_t offset, std::uint64_t bytes, int advice) const noexcept
{
    std::uint64_t const begin = offset >> kPageShift << kPageShift;
    return madvise(m_base + begin, offset + bytes - begin, advice) == 0;
}

} // namespace simdb
