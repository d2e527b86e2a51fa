#pragma once

#include "CompressedRows.h"
#include "Descriptor.h"
#include "mem_Vector.h"

#include <span>

namespace KVOSrvSparseSupport
{

/// Entries that outgrew a limit of memory: on a scratch file without a name, which is gone with this object or the process, in runs that
/// are sorted by place, entries of equal place in the order in which they came.
///
/// Sums are formed when the runs are merged, so they are those of the entries in the order in which they came, to the bit.
class EntrySpill : public mem_AllocationOperators
{
public:
    /// The file is made in KVOSrvUtilities::GetTempDirectory().
    /// @throws KVOSrvMtxRefusedInput `operation` when the limit is too small, with the least that would do
    /// @throws KVOSimException when there can be no file
    EntrySpill(std::int64_t limit, char const* operation);

    /// Whether `count` entries in memory, and those that come before one can look again, leave no room for sorting them.
    static bool IsOutgrown(std::int64_t count, std::int64_t limit) noexcept { return 2 * count >= EntriesPerRun(limit); }
    /// As many as are written at once: they, their sorted copy and what it takes to sort stay within the limit.
    static std::int64_t EntriesPerRun(std::int64_t limit) noexcept;

    std::int64_t Count() const noexcept { return m_count; }
    /// What holds all entries: the largest index plus 1.
    std::int64_t Rows() const noexcept { return m_rows; }
    std::int64_t Columns() const noexcept { return m_columns; }

    /// Writes a run of what came after all that was written before. @param entries  are sorted here
    /// @throws KVOSimException when the disk fails or is full; there is no new run then
    void Write(std::span<KVOSrvSparseMatrixEntry> entries);
    /// Forgets the runs behind the first `count` entries.
    void Truncate(std::int64_t count) noexcept;

    /// The rows of all runs, which stay.
    /// @throws KVOSrvMtxRefusedInput `operation` when the limit is too small for so many runs, with the least that would do, or when more
    /// than INT_MAX entries would be stored
    /// @throws KVOSimException when the disk fails, mem_OutOfMemory
    CompressedRows Merge(int rows, int columns, std::int64_t limit, char const* operation) const;

private:
    struct Run {
        std::int64_t begin; // in the file, in entries
        std::int64_t end;
    };

    [[noreturn]] void ThrowFailure(char const* doing, int error) const;

    cow_String m_directory;
    Descriptor m_file;
    mem_Vector<Run> m_runs;   // in the order in which they came
    std::int64_t m_count = 0; // entries in the file
    std::int64_t m_rows = 0;
    std::int64_t m_columns = 0;

    class Reader;
};

} // namespace KVOSrvSparseSupport
