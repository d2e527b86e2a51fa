#include "FactorWorkspace.h"

#include <sys/mman.h>

namespace
{

constexpr std::size_t kLargePage = std::size_t{2} << 20;

constexpr std::size_t RoundUp(std::size_t bytes) noexcept
{
    return (bytes + kLargePage - 1) / kLargePage * kLargePage;
}

} // namespace

double* FactorWorkspace::Provide(std::int64_t entries) noexcept
{
    std::size_t const bytes = RoundUp(static_cast<std::size_t>(entries) * sizeof(double));
    if (bytes > m_bytes) {
        Release();
        m_mapping = mmap(nullptr, bytes + kLargePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (m_mapping == MAP_FAILED) {
            m_mapping = nullptr;
            return nullptr;
        }
        m_mapped = bytes + kLargePage;
        m_begin = static_cast<std::byte*>(m_mapping);
        m_begin += RoundUp(reinterpret_cast<std::uintptr_t>(m_begin)) - reinterpret_cast<std::uintptr_t>(m_begin);
        m_bytes = bytes;
        madvise(m_begin, m_bytes, MADV_HUGEPAGE); // a wish
    }
    return reinterpret_cast<double*>(m_begin);
}

void FactorWorkspace::KeepOnly(std::int64_t entries) noexcept
{
    std::size_t const kept = RoundUp(static_cast<std::size_t>(entries) * sizeof(double));
    if (kept < m_bytes)
        madvise(m_begin + kept, m_bytes - kept, MADV_DONTNEED);
}

void FactorWorkspace::Release() noexcept
{
    if (m_mapping != nullptr)
        munmap(m_mapping, m_mapped);
    m_mapping = nullptr;
    m_bytes = 0;
}
