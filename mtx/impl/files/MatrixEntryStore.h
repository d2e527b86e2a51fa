#pragma once

#include "SparseRows.h"

#include <algorithm>
#include <cstdint>

/// Entries, or parts of them, read from a file, in one piece, of a number that is known only in the end.
///
/// The room is estimated from the share of the file that the entries so far came from, so that it rarely grows and hardly more is taken
/// than the entries need.
template<class Entry>
class MatrixEntryStore
{
public:
    /// @param source  what the entries are read from, in any unit
    explicit MatrixEntryStore(std::int64_t source) : m_source(source) {}

    std::int64_t Count() const noexcept { return m_count; }
    Entry const* Entries() const noexcept { return m_entries.get(); }

    /// Makes room for `count` more entries.
    /// @param consumed  how much of the source the entries so far came from
    void Reserve(std::int64_t count, std::int64_t consumed)
    {
        if (m_capacity - m_count < count)
            Grow(count, consumed);
    }

    /// Within the room that was reserved.
    void Append(Entry const& entry) noexcept { m_entries[m_count++] = entry; }

    /// The same for many, which are written to End() on; `end` is where they end.
    Entry* End() noexcept { return m_entries.get() + m_count; }
    void Commit(Entry const* end) noexcept { m_count = end - m_entries.get(); }

private:
    void Grow(std::int64_t count, std::int64_t consumed)
    {
        double const share = consumed > 0 ? static_cast<double>(consumed) / static_cast<double>(m_source) : 1.0;
        auto const estimate = static_cast<std::int64_t>(1.02 * static_cast<double>(m_count) / std::min(share, 1.0));
        std::int64_t const capacity = std::max(estimate, m_count + m_count / 2) + count;
        KVOSrvSparseSupport::GrowArray(m_entries, capacity);
        KVOSrvSparseSupport::UseLargePages(m_entries.get(), mem_ArrayBytes(capacity, sizeof(Entry)));
        m_capacity = capacity;
    }

    std::int64_t m_source;
    std::int64_t m_count = 0;
    std::int64_t m_capacity = 0;
    KVOSrvSparseSupport::Array<Entry> m_entries;
};
