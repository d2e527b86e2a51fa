#include "EntrySpill.h"

#include "KVOSimException.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace KVOSrvSparseSupport
{

namespace
{

using Entry = KVOSrvSparseMatrixEntry;

// Less is read at once from no run: a page.
constexpr std::int64_t kLeastRead = 4096;
// More gains nothing.
constexpr std::int64_t kMostRead = std::int64_t{1} << 20;
constexpr std::int64_t kLeastLimit = std::int64_t{48} * kLeastRead;

std::uint64_t PlaceOf(Entry const& entry) noexcept
{
    return (std::uint64_t{entry.row} << 32) + entry.column;
}

Descriptor MakeFile(cow_String const& directory) noexcept
{
    Descriptor file(open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (file.IsOpen() || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL))
        return file;
    // A file system that makes no file without a name
    std::string name = std::string(directory.View()) + "/KVOSrvSparseMatrixXXXXXX";
    file = Descriptor(mkostemp(name.data(), O_CLOEXEC));
    if (file.IsOpen())
        unlink(name.c_str());
    return file;
}

// A write behind the limit would end the process by a signal.
bool ExceedsFileLimit(std::int64_t end) noexcept
{
    rlimit limit;
    return getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY && static_cast<std::uint64_t>(end) > limit.rlim_cur;
}

// Compressed rows that grow entry by entry, in ascending order of their places.
class GrowingRows
{
public:
    /// @param most  entries that will be added
    GrowingRows(int rows, int columns, std::int64_t most)
        : m_rows(rows), m_columns(columns), m_capacity(std::min(most, kRemapped)),
          m_rowStart(AllocateArray<unsigned>(std::int64_t{rows} + 1)), m_indices(AllocateArray<int>(m_capacity)),
          m_values(AllocateArray<double>(m_capacity))
    {
    }

    std::int64_t Count() const noexcept { return m_count; }

    void Add(Entry const& entry)
    {
        if (PlaceOf(entry) == m_last && m_count > 0) {
            m_values[m_count - 1] += entry.value;
            return;
        }
        if (m_count == m_capacity)
            Grow();
        StartRowsTo(entry.row);
        m_last = PlaceOf(entry);
        m_indices[m_count] = static_cast<int>(entry.column);
        m_values[m_count++] = entry.value;
    }

    CompressedRows Result()
    {
        StartRowsTo(m_rows);
        ShrinkArray(m_indices, m_count);
        ShrinkArray(m_values, m_count);
        return {m_rows, m_columns, std::move(m_rowStart), std::move(m_indices), std::move(m_values)};
    }

private:
    static constexpr std::int64_t kRemapped = std::int64_t{2}
                                              << 20; // arrays of 8 MiB grow without a copy; no page is used before its entries

    void Grow()
    {
        std::int64_t const capacity = m_capacity + m_capacity / 2;
        GrowArray(m_indices, capacity);
        GrowArray(m_values, capacity);
        m_capacity = capacity;
    }

    void StartRowsTo(std::int64_t row) noexcept
    {
        for (; m_started <= row; ++m_started)
            m_rowStart[m_started] = static_cast<unsigned>(m_count);
    }

    int m_rows;
    int m_columns;
    std::int64_t m_capacity;
    std::int64_t m_started = 0; // rows whose start is set
    std::int64_t m_count = 0;
    std::uint64_t m_last = 0;
    Array<unsigned> m_rowStart;
    Array<int> m_indices;
    Array<double> m_values;
};

} // namespace

// The entries of one run in turn, through a buffer.
class EntrySpill::Reader
{
public:
    Reader(EntrySpill const& spill, Run const& run, Entry* buffer, std::int64_t length)
        : m_spill(&spill), m_next(run.begin), m_end(run.end), m_buffer(buffer), m_length(length)
    {
        Fill();
    }

    bool IsAtEnd() const noexcept { return m_at == m_filled; }
    Entry const& Current() const noexcept { return *m_at; }
    std::uint64_t Place() const noexcept { return PlaceOf(*m_at); }
    void Advance()
    {
        if (++m_at == m_filled)
            Fill();
    }

private:
    void Fill()
    {
        std::int64_t const count = std::min(m_length, m_end - m_next);
        auto* const to = reinterpret_cast<char*>(m_buffer);
        std::size_t const bytes = static_cast<std::size_t>(count) * sizeof(Entry);
        for (std::size_t done = 0; done < bytes;) {
            auto const place = static_cast<off_t>(m_next * std::int64_t{sizeof(Entry)} + static_cast<std::int64_t>(done));
            ssize_t const got = pread(m_spill->m_file.Number(), to + done, bytes - done, place);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                m_spill->ThrowFailure("Cannot read a scratch file in", got < 0 ? errno : EIO);
            done += static_cast<std::size_t>(got);
        }
        m_next += count;
        m_at = m_buffer;
        m_filled = m_buffer + count;
    }

    EntrySpill const* m_spill;
    std::int64_t m_next; // in the file
    std::int64_t m_end;
    Entry* m_buffer;
    std::int64_t m_length;
    Entry const* m_at = nullptr;
    Entry const* m_filled = nullptr;
};

EntrySpill::EntrySpill(std::int64_t limit, char const* operation) : m_directory(KVOSrvUtilities::GetTempDirectory())
{
    RequireFitting(limit >= kLeastLimit, operation,
                   ("the memory limit is too small, at least " + std::to_string(kLeastLimit) + " bytes are needed").c_str());
    if (m_directory.IsEmpty())
        m_directory = cow_String(".");
    m_file = MakeFile(m_directory);
    if (!m_file.IsOpen())
        ThrowFailure("Cannot make a scratch file in", errno);
}

std::int64_t EntrySpill::EntriesPerRun(std::int64_t limit) noexcept
{
    // A third for the entries, one for their sorted copy, half of one for the sort.
    return std::max<std::int64_t>(limit / (3 * std::int64_t{sizeof(Entry)}), 1);
}

void EntrySpill::ThrowFailure(char const* doing, int error) const
{
    auto const kind = error == ENOSPC || error == EDQUOT || error == EFBIG ? KVOSimException::Kind::NoSpace : KVOSimException::Kind::System;
    KVOSimException(doing, m_directory.c_str(), std::strerror(error), kind).Throw("mtx/impl/EntrySpill", __LINE__);
}

void EntrySpill::Write(std::span<Entry> entries)
{
    if (entries.empty())
        return;
    m_runs.reserve(m_runs.size() + 1);
    std::stable_sort(entries.begin(), entries.end(), [](Entry const& a, Entry const& b) { return PlaceOf(a) < PlaceOf(b); });
    auto const* from = reinterpret_cast<char const*>(entries.data());
    std::int64_t place = m_count * std::int64_t{sizeof(Entry)};
    auto left = static_cast<std::int64_t>(entries.size_bytes());
    if (ExceedsFileLimit(place + left))
        ThrowFailure("Cannot write a scratch file in", EFBIG);
    while (left > 0) {
        ssize_t const written = pwrite(m_file.Number(), from, static_cast<std::size_t>(left), static_cast<off_t>(place));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            ThrowFailure("Cannot write a scratch file in", written < 0 ? errno : EIO);
        from += written;
        place += written;
        left -= written;
    }

    // Nothing can fail from here on.
    m_runs.push_back({m_count, m_count + std::ssize(entries)});
    m_count += std::ssize(entries);
    m_rows = std::max(m_rows, std::int64_t{entries.back().row} + 1);
    for (Entry const& entry : entries)
        m_columns = std::max(m_columns, std::int64_t{entry.column} + 1);
}

void EntrySpill::Truncate(std::int64_t count) noexcept
{
    m_count = count;
    while (!m_runs.empty() && m_runs.back().begin >= count)
        m_runs.pop_back();
}

CompressedRows EntrySpill::Merge(int rows, int columns, std::int64_t limit, char const* operation) const
{
    auto const runCount = static_cast<std::int64_t>(m_runs.size());
    RequireFitting(runCount * kLeastRead <= limit, operation,
                   ("the memory limit is too small, at least " + std::to_string(runCount * kLeastRead) + " bytes are needed").c_str());
    std::int64_t const length = std::min(limit / std::max<std::int64_t>(runCount, 1), kMostRead) / std::int64_t{sizeof(Entry)};
    Array<Entry> const buffers = AllocateArray<Entry>(runCount * length);
    mem_Vector<Reader> readers;
    mem_Vector<int> heap; // of readers, the one with the next entry at its front
    readers.reserve(m_runs.size());
    heap.reserve(m_runs.size());
    for (Run const& run : m_runs) {
        heap.push_back(static_cast<int>(readers.size()));
        readers.emplace_back(*this, run, buffers.get() + std::ssize(readers) * length, length);
    }
    auto const key = [&](int reader) { return std::tuple(readers[static_cast<std::size_t>(reader)].Place(), reader); };
    auto const isBehind = [&](int a, int b) { return key(a) > key(b); };
    std::make_heap(heap.begin(), heap.end(), isBehind);

    GrowingRows result(rows, columns, m_count);
    while (!heap.empty()) {
        std::pop_heap(heap.begin(), heap.end(), isBehind);
        int const number = heap.back();
        Reader& reader = readers[static_cast<std::size_t>(number)];
        do { // as long as it stays the first: runs of different rows, as loops over elements give them, rarely change
            result.Add(reader.Current());
            RequireFitting(result.Count() <= INT_MAX, operation, "more than 2^31 - 1 entries would be stored");
            reader.Advance();
        } while (!reader.IsAtEnd() && (heap.size() == 1 || key(number) < key(heap.front())));
        if (reader.IsAtEnd())
            heap.pop_back();
        else
            std::push_heap(heap.begin(), heap.end(), isBehind);
    }
    return result.Result();
}

} // namespace KVOSrvSparseSupport
