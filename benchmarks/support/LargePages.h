#pragma once

#include <cstdlib>
#include <memory>
#include <new>
#include <sys/mman.h>

/// An array in pages of 2 MiB, where the system has them. The library's arrays lie in such: a peer in pages of 4 KiB would lose time to
/// the translation of addresses, which is not what it is there to show.
template<class T>
class LargePages
{
public:
    /// Memory as fresh as the system gives it.
    explicit LargePages(std::size_t count)
    {
        constexpr std::size_t kPage = std::size_t{2} << 20;
        std::size_t const bytes = (count * sizeof(T) + kPage - 1) / kPage * kPage;
        m_data.reset(static_cast<T*>(std::aligned_alloc(kPage, bytes)));
        if (m_data == nullptr)
            throw std::bad_alloc();
        madvise(m_data.get(), bytes, MADV_HUGEPAGE);
    }
    LargePages(std::size_t count, T value) : LargePages(count) { std::uninitialized_fill_n(Data(), count, value); }

    T* Data() const { return m_data.get(); }

private:
    struct Free {
        void operator()(T* data) const { std::free(data); }
    };
    std::unique_ptr<T[], Free> m_data;
};
