#include "FileMapping.h"

#include <algorithm>
#include <new>
#include <sys/mman.h>
#include <sys/stat.h>

namespace simdb
{

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

bool FileMapping::KeepResident(std::uint64_t offset, std::uint64_t bytes, std::uint64_t residentBytes) noexcept
{
    std::uint64_t const first = offset >> kRegionShift, end = (offset + bytes + kRegion - 1) >> kRegionShift;
    if (m_touched.size() < end) {
        try {
            m_touched.resize(m_mapped >> kRegionShift);
        } catch (std::bad_alloc const&) {
            return false;
        }
    }
    for (std::uint64_t region = first; region < end; ++region)
        if (!m_touched[region]) {
            m_touched[region] = true;
            m_touchedBytes += kRegion;
        }
    // The part asked for may itself exceed the limit: it is dropped at the next call.
    if (m_touchedBytes > residentBytes && m_touchedBytes > (end - first) * kRegion) {
        madvise(m_base, m_mapped, MADV_DONTNEED);
        std::fill(m_touched.begin(), m_touched.end(), false);
        std::fill(m_touched.begin() + static_cast<std::ptrdiff_t>(first), m_touched.begin() + static_cast<std::ptrdiff_t>(end), true);
        m_touchedBytes = (end - first) * kRegion;
    }
    return true;
}

} // namespace simdb
