#pragma once

#include <cstddef>
#include <cstdint>

/// The memory that a factor is formed in and stays in. It is kept from one factorization to the next, since fresh pages take time: up to a
/// fifth of that of a factorization on a virtual machine. Large ones, which take less, are asked for.
class FactorWorkspace
{
public:
    FactorWorkspace() = default;
    FactorWorkspace(FactorWorkspace const&) = delete;
    FactorWorkspace& operator=(FactorWorkspace const&) = delete;
    ~FactorWorkspace() { Release(); }

    /// At least so many numbers, whose values are undefined; null when the system has no room for them.
    double* Provide(std::int64_t entries) noexcept;
    /// Gives the memory behind the first entries to the system; the room stays.
    void KeepOnly(std::int64_t entries) noexcept;
    void Release() noexcept;

private:
    void* m_mapping = nullptr;
    std::size_t m_mapped = 0;
    std::byte* m_begin = nullptr; // of a large page
    std::size_t m_bytes = 0;
};
