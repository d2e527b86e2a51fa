#include "InitialValues.h"

#include "Descriptor.h"
#include "SimIo.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>

namespace simdb
{

namespace
{

// Stays in a cache, in that of the second level as a rule. Smaller ones would not do: a process has some 65000 mappings. A multiple of
// every value's size.
constexpr std::uint64_t kPiece = std::uint64_t(1) << 20;

std::array<std::byte, 8> EightBytesOf(std::array<std::byte, 8> const& value, std::size_t valueBytes) noexcept
{
    std::array<std::byte, 8> pattern;
    for (std::size_t i = 0; i < pattern.size(); ++i)
        pattern[i] = value[i % valueBytes];
    return pattern;
}

// Makes the memory one piece long. Where the system has no pages left for it, it says so here; else the first touch of one would be a
// signal.
bool TakePages(int memory) noexcept
{
    while (fallocate(memory, 0, 0, static_cast<off_t>(kPiece)) != 0)
        if (errno != EINTR)
            return false;
    return true;
}

// Nothing is written for zeros: what memory of the system holds at first.
bool MapPieces(int memory, std::array<std::byte, 8> const& pattern, std::byte* base, std::uint64_t bytes) noexcept
{
    for (std::uint64_t at = 0; at < bytes; at += kPiece) {
        int const protection = at == 0 ? PROT_READ | PROT_WRITE : PROT_READ;
        if (mmap(base + at, kPiece, protection, MAP_SHARED | MAP_FIXED, memory, 0) == MAP_FAILED)
            return false;
    }
    if (pattern != std::array<std::byte, 8>{})
        for (std::uint64_t at = 0; at < kPiece; at += pattern.size())
            std::memcpy(base + at, pattern.data(), pattern.size());
    return mprotect(base, kPiece, PROT_READ) == 0;
}

// Where a limit on the sizes of files forbids one in memory, or the system has none for it: this asks it for memory in another way.
bool FillMemory(std::array<std::byte, 8> const& pattern, std::byte* base, std::uint64_t bytes) noexcept
{
    if (pattern == std::array<std::byte, 8>{})
        return mprotect(base, bytes, PROT_READ) == 0;
    if (mprotect(base, bytes, PROT_READ | PROT_WRITE) != 0)
        return false;
    for (std::uint64_t at = 0; at < bytes; at += pattern.size())
        std::memcpy(base + at, pattern.data(), pattern.size());
    return true;
}

} // namespace

InitialValues::~InitialValues()
{
    Release();
}

void InitialValues::Release() noexcept
{
    if (m_base != nullptr)
        munmap(m_base, m_bytes);
    m_base = nullptr;
    m_bytes = 0;
}

std::byte const* InitialValues::Bytes(std::array<std::byte, 8> const& value, std::size_t valueBytes, std::uint64_t bytes,
                                      bool uncounted) noexcept
{
    std::array<std::byte, 8> const pattern = EightBytesOf(value, valueBytes);
    if (m_base != nullptr && bytes <= m_bytes && pattern == m_pattern && uncounted == m_uncounted)
        return m_base;
    Release();
    std::uint64_t const rounded = (bytes + kPiece - 1) / kPiece * kPiece;
    void* const base = mmap(nullptr, rounded, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (base == MAP_FAILED)
        return nullptr;
    m_base = static_cast<std::byte*>(base);
    m_bytes = rounded;
    m_pattern = pattern;
    m_uncounted = uncounted;
    if (uncounted && pattern == std::array<std::byte, 8>{}) { // pages of memory that was never written are one page of the system
        if (!FillMemory(pattern, m_base, m_bytes))
            Release();
        return m_base;
    }
    Descriptor const memory(memfd_create("initial values", MFD_CLOEXEC));
    bool const isThere = memory.IsOpen() && !io::ExceedsLimit(kPiece) && TakePages(memory.Number());
    bool const made = isThere ? MapPieces(memory.Number(), pattern, m_base, m_bytes) : FillMemory(pattern, m_base, m_bytes);
    if (!made)
        Release();
    return m_base;
}

} // namespace simdb
