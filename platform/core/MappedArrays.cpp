#include "MappedArrays.h"

#include "MemoryLimit.h"

#include <algorithm>
#include <cstdint>
#include <sys/mman.h>

namespace
{

// Large arrays are asked for in pages of 2 MiB where the system grants them on request: a copy into a new array then takes a fifth of the
// time. They are filled whole: the ends that do not fill one cost hundreds of page faults, a third of the time of reading a file of 60 MB
// (docs/measurements.md, "Memory").
constexpr std::size_t kLargeArray = std::size_t{8} << 20;
constexpr std::size_t kLargePage = std::size_t{2} << 20;
constexpr std::size_t kPage = MappedArrays::kFront;

constexpr std::size_t kKeptBytes = std::size_t{64} << 20;

constexpr std::size_t RoundUp(std::size_t bytes, std::size_t to) noexcept
{
    return (bytes + to - 1) / to * to;
}

constexpr std::size_t AlignmentOf(std::size_t bytes) noexcept
{
    return RoundUp(bytes, kPage) >= kLargeArray ? kLargePage : kPage;
}

constexpr std::size_t MappedBytes(std::size_t bytes) noexcept
{
    return RoundUp(bytes, AlignmentOf(bytes));
}

void Unmap(std::byte* memory, std::size_t bytes) noexcept
{
    // The system refuses a hole when the process has too many mappings already: then at least the memory goes back.
    if (bytes != 0 && munmap(memory, bytes) != 0)
        madvise(memory, bytes, MADV_DONTNEED);
}

// The array of a new mapping of `bytes` and the page in front of it.
std::byte* Map(std::size_t bytes, std::size_t alignment) noexcept
{
    std::size_t const all = bytes + alignment;
    void* const memory = mmap(nullptr, all, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    auto* const begin = static_cast<std::byte*>(memory);
    std::size_t const before =
        RoundUp(reinterpret_cast<std::uintptr_t>(begin) + kPage, alignment) - reinterpret_cast<std::uintptr_t>(begin);
    Unmap(begin, before - kPage);
    Unmap(begin + before + bytes, all - before - bytes);
    return begin + before;
}

// A wish: failure changes nothing.
void WishForLargePages(std::byte* array, std::size_t bytes, std::size_t alignment) noexcept
{
    if (alignment == kLargePage)
        madvise(array, bytes, MADV_HUGEPAGE);
}

} // namespace

void* MappedArrays::Allocate(std::size_t bytes) noexcept
{
    std::size_t const mapped = MappedBytes(bytes), alignment = AlignmentOf(bytes);
    std::byte* array = TakeKept(mapped, alignment);
    if (array == nullptr && (array = Map(mapped, alignment)) != nullptr)
        WishForLargePages(array, mapped, alignment);
    if (array != nullptr)
        m_aliveBytes.fetch_add(mapped, std::memory_order_relaxed);
    return array;
}

void* MappedArrays::Resize(void* array, std::size_t bytes, std::size_t newBytes) noexcept
{
    auto* const old = static_cast<std::byte*>(array);
    std::size_t const mapped = MappedBytes(bytes), newMapped = MappedBytes(newBytes);
    std::byte* moved = old;
    if (newMapped < mapped) {
        Unmap(old + newMapped, mapped - newMapped);
    } else if (newMapped > mapped) {
        if (mapped < kLargeArray) // what asked for large pages itself may have split the mapping, and parts do not move together
            return nullptr;
        moved = Map(newMapped, kLargePage); // only its place: the old pages move there, and new ones behind them
        if (moved == nullptr)
            return nullptr;
        if (mremap(old, mapped, newMapped, MREMAP_MAYMOVE | MREMAP_FIXED, moved) == MAP_FAILED) {
            Unmap(moved - kFront, kFront); // of the rest it is not told whether it is still ours; it was not touched and holds no memory
            return nullptr;
        }
        Unmap(old - kFront, kFront);
        WishForLargePages(moved, newMapped, kLargePage);
    }
    m_aliveBytes.fetch_add(newMapped - mapped, std::memory_order_relaxed); // modulo 2^64
    return moved;
}

void MappedArrays::Free(void* array, std::size_t bytes) noexcept
{
    auto* const memory = static_cast<std::byte*>(array);
    std::size_t const mapped = MappedBytes(bytes);
    std::size_t const alive = m_aliveBytes.fetch_sub(mapped, std::memory_order_relaxed) - mapped;
    std::size_t const most = std::min(std::max(kKeptBytes, alive / 10), MemoryLimit() / 32);
    std::unique_lock const lock(m_mutex, std::try_to_lock);
    if (lock)
        ShrinkTo(mapped <= most ? most - mapped : most);
    if (!lock || mapped > most)
        return Unmap(memory - kFront, kFront + mapped);
    if (m_count == m_kept.size())
        Drop(0);
    m_kept[m_count++] = {memory, mapped};
    m_keptBytes += mapped;
}

bool MappedArrays::Release() noexcept
{
    std::scoped_lock const lock(m_mutex);
    bool const any = m_count > 0;
    ShrinkTo(0);
    return any;
}

// Of up to twice the size, the one that fits best; what it is longer goes back. Null: none.
std::byte* MappedArrays::TakeKept(std::size_t bytes, std::size_t alignment) noexcept
{
    std::unique_lock const lock(m_mutex, std::try_to_lock);
    if (!lock)
        return nullptr;
    std::size_t best = m_count;
    for (std::size_t i = m_count; i-- > 0;) // what was released last may still be in the cache
        if (m_kept[i].bytes >= bytes && m_kept[i].bytes / 2 <= bytes &&
            reinterpret_cast<std::uintptr_t>(m_kept[i].array) % alignment == 0 && (best == m_count || m_kept[i].bytes < m_kept[best].bytes))
            best = i;
    if (best == m_count)
        return nullptr;
    Kept& kept = m_kept[best];
    std::byte* const array = kept.array;
    Unmap(array + bytes, kept.bytes - bytes);
    m_keptBytes -= kept.bytes;
    std::move(m_kept.begin() + best + 1, m_kept.begin() + m_count, m_kept.begin() + best);
    --m_count;
    return array;
}

void MappedArrays::Drop(std::size_t index) noexcept
{
    Kept const kept = m_kept[index];
    Unmap(kept.array - kFront, kFront + kept.bytes);
    m_keptBytes -= kept.bytes;
    std::move(m_kept.begin() + index + 1, m_kept.begin() + m_count, m_kept.begin() + index);
    --m_count;
}

void MappedArrays::ShrinkTo(std::size_t bytes) noexcept
{
    while (m_keptBytes > bytes)
        Drop(0);
}
