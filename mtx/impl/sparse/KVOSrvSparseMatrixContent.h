#pragma once

#include "CompressedRows.h"
#include "EntrySpill.h"

#include <memory>
#include <optional>
#include <variant>

namespace KVOSrvSparseSupport
{

/// What a matrix stores that is not assembled: before its first assembly, and from BeginAssembly() to EndAssembly().
struct NoRows {
    bool ofHalfStorage = false;          // what BeginAssembly() has dropped
    std::optional<CompressedRows> empty; // made for the first who asks for rows
};

} // namespace KVOSrvSparseSupport

/// What a KVOSrvSparseMatrix stores, beside the entries that wait for EndAssembly().
struct KVOSrvSparseMatrix::Content : mem_AllocationOperators {
    using NoRows = KVOSrvSparseSupport::NoRows;
    using CompressedRows = KVOSrvSparseSupport::CompressedRows;
    using HalfRows = KVOSrvSparseSupport::HalfRows;

    /// Of a matrix of rowCount x columnCount without half storage: rows without entries for NoRows.
    CompressedRows& FullRows(int rowCount, int columnCount)
    {
        if (auto* const full = std::get_if<CompressedRows>(&rows))
            return *full;
        auto& empty = std::get<NoRows>(rows).empty;
        if (!empty)
            empty = KVOSrvSparseSupport::WithoutEntries(rowCount, columnCount);
        return *empty;
    }

    /// That of FullRows() once they are there; else 0, which none is.
    std::uint64_t Pattern() const noexcept
    {
        if (auto const* const full = std::get_if<CompressedRows>(&rows))
            return full->pattern;
        auto const* const none = std::get_if<NoRows>(&rows);
        return none != nullptr && none->empty ? none->empty->pattern : 0;
    }

    /// use(rows) of the half storage, else of FullRows().
    template<class Use>
    auto WithRows(int rowCount, int columnCount, Use const& use)
    {
        if (auto* const half = std::get_if<HalfRows>(&rows))
            return use(*half);
        return use(FullRows(rowCount, columnCount));
    }

    bool IsAssembled() const noexcept { return !std::holds_alternative<NoRows>(rows); }

    /// What a matrix made of these rows tells as NumberOfNonzeros().
    int Nonzeros() const noexcept { return IsAssembled() ? nonzeroCount : 0; }

    std::variant<NoRows, CompressedRows, HalfRows> rows;
    int nonzeroCount = 0; // as NumberOfNonzeros() tells it: an import of format 6 counts the diagonal in, BeginAssembly() keeps it
    std::unique_ptr<KVOSrvSparseSupport::EntrySpill> spilled; // pending entries that outgrew a limit of memory; those in memory came later
    KVOSimCSetID rowCSet;                                     // of the last import from a database
    KVOSimCSetID columnCSet;
};
