#pragma once

#include <array>
#include <cstddef>
#include <mutex>

/// Large arrays that were released, kept for the next ones of their sizes: a product that is called again and again allocates the same
/// memory every time, and the system takes long to give back what it has taken away, above all in a virtual machine.
///
/// What is kept never raises the most that the process has held at any time: an array for which nothing fits makes all of it go back. It is
/// bounded, and the system may take its pages whenever it is short of them. All members may be called by several threads.
class KeptArrays
{
public:
    /// @param mostBytes  to keep
    constexpr explicit KeptArrays(std::size_t mostBytes) noexcept : m_mostBytes(mostBytes) {}

    /// Memory of at least `bytes`, not cleared; it belongs to the caller. Null when no kept array is of about that size.
    void* Take(std::size_t bytes) noexcept;
    /// Takes over an array of `bytes` that begins at a large page; false when it is not kept: it still belongs to the caller then.
    bool Keep(void* memory, std::size_t bytes) noexcept;
    /// Gives all memory back to the system. True if there was any.
    bool Release() noexcept;

private:
    struct Array {
        void* memory;
        std::size_t bytes;
    };

    std::mutex m_mutex;
    std::size_t m_mostBytes;
    std::size_t m_bytes = 0;
    std::size_t m_count = 0;
    std::array<Array, 16> m_arrays{};
};
