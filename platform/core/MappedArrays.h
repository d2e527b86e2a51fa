#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>

/// Arrays that have a mapping of their own, so that releasing one gives its memory back, whatever lies around it.
///
/// An array fills whole pages, from 8 MiB on whole large pages (2 MiB) at a large page's place, and has a page of the
/// caller's in front of it. Some released mappings are kept, since the system clears each page that it gives: products
/// that are called again and again allocate the same memory every time. At most 64 MiB or a tenth of what is alive is
/// kept, whichever is more, and never more than a thirty-second of MemoryLimit(); the rest goes back at once.
///
/// All members may be called by several threads. None waits for another, not even for one that a fork() has left
/// behind, but Release().
class MappedArrays
{
public:
    /// Bytes of the page in front of every array.
    static constexpr std::size_t kFront = 4096;

    constexpr MappedArrays() noexcept = default;

    /// Memory of at least `bytes`, at least 1, not cleared; null when it cannot be had.
    void* Allocate(std::size_t bytes) noexcept;
    /// Makes an array of `bytes` one of `newBytes` without copying; what is in front of it is then undefined.
    /// @return the array, possibly moved; null when that cannot be done: the old one is then untouched
    void* Resize(void* array, std::size_t bytes, std::size_t newBytes) noexcept;
    /// Releases an array of `bytes`.
    void Free(void* array, std::size_t bytes) noexcept;
    /// Gives all that is kept back to the system. True if there was any.
    bool Release() noexcept;

private:
    struct Kept {
        std::byte* array;
        std::size_t bytes;
    };

    std::byte* TakeKept(std::size_t bytes, std::size_t alignment) noexcept;
    void Drop(std::size_t index) noexcept;
    void ShrinkTo(std::size_t bytes) noexcept;

    std::mutex m_mutex;
    std::array<Kept, 64> m_kept{}; // the oldest first
    std::size_t m_count = 0;
    std::size_t m_keptBytes = 0;
    std::atomic<std::size_t> m_aliveBytes{0};
};
