// From added entries to compressed rows.

#include "KVOSrvSparseMatrix.h"

#include "KVOSrvProductMemory.h"
#include "KVOSrvSparseMatrixContent.h"
#include "SparseRowBuilder.h"

#include <algorithm>
#include <climits>
#include <utility>

using namespace KVOSrvSparseSupport;

namespace
{

using Entries = SparseRowBuilder::Entries;

// What merging takes of entries that were added under a limit which is gone.
constexpr std::int64_t kLimitWithoutOne = std::int64_t{64} << 20;

// A builder that has counted the entries; rows and columns are enlarged to hold them.
SparseRowBuilder CountedBuilder(std::int64_t count, SparseRowBuilder::Batches batches, std::int64_t& rows, std::int64_t& columns)
{
    auto const counted = [&] {
        SparseRowBuilder builder(count, rows);
        builder.Count(batches);
        return builder;
    };
    SparseRowBuilder builder = counted();
    bool const suffices = builder.Rows() <= rows;
    rows = std::max(rows, builder.Rows());
    columns = std::max(columns, builder.Columns());
    return suffices ? std::move(builder) : counted();
}

// Makes the row starts last for `rows` rows, those they did not have yet being empty. Not by doubling: the case is rare.
void ReserveRows(CompressedRows& rows, int count)
{
    if (count <= rows.rows)
        return;
    GrowArray(rows.rowStart, std::int64_t{count} + 1);
    std::fill(rows.rowStart.get() + rows.rows + 1, rows.rowStart.get() + count + 1, rows.rowStart[rows.rows]);
}

} // namespace

void KVOSrvSparseMatrix::BeginAssembly()
{
    m_content->rows = NoRows{IsHalfStored(), {}};
}

void KVOSrvSparseMatrix::MarkAssembled()
{
    if (m_content->IsAssembled())
        return;
    // Out of the variant first, which destroys what it held before it takes the new value.
    CompressedRows empty = std::move(m_content->FullRows(m_rowCount, m_columnCount));
    m_content->rows = std::move(empty);
}

void KVOSrvSparseMatrix::AddWithChanges(unsigned row, unsigned column, double value)
{
    RequireFitting(row < INT_MAX && column < INT_MAX, "AddData", "an index exceeds 2^31 - 2");
    int const rows = std::max(m_rowCount, static_cast<int>(row + 1)), columns = std::max(m_columnCount, static_cast<int>(column + 1));
    auto* const half = std::get_if<HalfRows>(&m_content->rows);
    CompressedRows* const stored = half != nullptr ? &half->triangle : std::get_if<CompressedRows>(&m_content->rows);
    if (stored != nullptr)
        ReserveRows(*stored, rows);
    if (!m_pendingEntries.AppendInRoom({row, column, value})) {
        std::int64_t const limit = KVOSrvProductMemory::Bytes();
        // It grows here only, by as much as it holds.
        if (limit > 0 && EntrySpill::IsOutgrown(m_pendingEntries.Size(), limit))
            SpillPendingEntries(limit, "AddData");
        m_pendingEntries.Append({row, column, value});
    }

    // Nothing can fail from here on.
    bool const grows = rows > m_rowCount || columns > m_columnCount;
    m_rowCount = rows;
    m_columnCount = columns;
    if (stored != nullptr && grows) {
        stored->pattern = NewPattern();
        stored->rows = rows;
        stored->columns = columns;
    }
    if (half != nullptr) // Deliberate: the triangle is left, as the entries of full storage
        m_content->rows = CompressedRows(std::move(half->triangle));
    else if (stored == nullptr)
        m_content->rows = NoRows();
    m_symmetry = m_symmetry == Symmetry::kSymmetric ? Symmetry::kNot : Symmetry::kUnknown;
}

void KVOSrvSparseMatrix::SpillPendingEntries(std::int64_t limit, char const* operation)
{
    std::int64_t const size = m_pendingEntries.Size(), atOnce = std::min(EntrySpill::EntriesPerRun(limit), size);
    if (size == 0)
        return;
    auto& spilled = m_content->spilled;
    std::unique_ptr<EntrySpill> made;
    if (spilled == nullptr)
        made = std::make_unique<EntrySpill>(limit, operation);
    EntrySpill& spill = spilled != nullptr ? *spilled : *made;
    std::int64_t const before = spill.Count();
    try {
        Array<KVOSrvSparseMatrixEntry> const run = AllocateArray<KVOSrvSparseMatrixEntry>(atOnce);
        for (std::int64_t begin = 0; begin < size; begin += atOnce) {
            std::int64_t const count = std::min(atOnce, size - begin);
            for (std::int64_t k = 0; k < count; ++k)
                run[k] = m_pendingEntries[begin + k];
            spill.Write({run.get(), static_cast<std::size_t>(count)});
        }
    } catch (...) {
        spill.Truncate(before);
        throw;
    }
    if (made != nullptr)
        spilled = std::move(made);
    m_pendingEntries.Truncate(0);
}

void KVOSrvSparseMatrix::EndAssembly()
{
    auto* const none = std::get_if<NoRows>(&m_content->rows);
    if (none == nullptr)
        return;
    none->empty.reset();
    auto const inMemory = m_pendingEntries.Size() * std::int64_t{sizeof(KVOSrvSparseMatrixEntry)};
    if (std::int64_t const limit = KVOSrvProductMemory::Bytes(); m_content->spilled != nullptr || (limit > 0 && inMemory > limit)) {
        SpillPendingEntries(limit > 0 ? limit : kLimitWithoutOne, "EndAssembly");
        mem_ReleaseMemory(); // what the allocator keeps of the list would count
        EntrySpill const& all = *m_content->spilled;
        auto const rows = static_cast<int>(std::max<std::int64_t>(m_rowCount, all.Rows()));
        auto const columns = static_cast<int>(std::max<std::int64_t>(m_columnCount, all.Columns()));
        return Take(all.Merge(rows, columns, limit > 0 ? limit : kLimitWithoutOne, "EndAssembly"), m_symmetry);
    }
    Entries batches[decltype(m_pendingEntries)::kMaxPieces];
    for (int batch = 0; batch < m_pendingEntries.PieceCount(); ++batch)
        batches[batch] = m_pendingEntries.Piece(batch);
    SparseRowBuilder::Batches const all(batches, static_cast<std::size_t>(m_pendingEntries.PieceCount()));
    // The entries may need more columns than there are where those were dropped since, by EliminateTrivialColumns().
    std::int64_t rows = m_rowCount, columns = m_columnCount;
    SparseRowBuilder builder = CountedBuilder(m_pendingEntries.Size(), all, rows, columns);
    builder.Prepare(columns);

    // Nothing can fail from here on, unless it takes the sums to tell whether the entries can be numbered, or the host's threads do.
    if (m_pendingEntries.Size() <= INT_MAX && builder.Parts() == 1)
        m_pendingEntries.Drain([&](Entries entries) { builder.TakeNext(entries); });
    else
        builder.Take(all);
    RequireFitting(builder.Finish() <= INT_MAX, "EndAssembly", "more than 2^31 - 1 entries would be stored");
    Take(builder.Result(), m_symmetry);
}

void KVOSrvSparseMatrix::Subtract(KVOSrvSparseMatrix const& A, KVOSrvSparseMatrix const& B)
{
    A.RequireAssembled("Subtract");
    B.RequireAssembled("Subtract");
    // Both lists are taken before anything changes: A or B may be this matrix.
    int countA = 0, countB = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const a(A.GetEntries(countA)), b(B.GetEntries(countB));
    std::for_each_n(b.get(), countB, [](KVOSrvSparseMatrixEntry& entry) { entry.value = -entry.value; });
    Entries const lists[] = {Entries(a.get(), static_cast<std::size_t>(countA)), Entries(b.get(), static_cast<std::size_t>(countB))};
    std::int64_t rows = m_rowCount, columns = m_columnCount;
    SparseRowBuilder builder = CountedBuilder(std::int64_t{countA} + countB, lists, rows, columns);
    builder.Prepare(columns);

    builder.Take(lists);
    RequireFitting(builder.Finish() <= INT_MAX, "Subtract", "more than 2^31 - 1 entries would be stored");
    Take(builder.Result());
}
