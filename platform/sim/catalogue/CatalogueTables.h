#pragma once

#include "Catalogue.h"
#include "Hdf5.h"
#include "SimFile.h"

#include <functional>
#include <memory>
#include <span>
#include <string>

namespace simdb
{

/// The tables of one context in its group: datasets that only ever grow by whole commits.
///
/// Invariant: rows that a commit has kept are never written again, so a process that dies while it appends leaves them as they are; a row
/// that changes is given again further down, and the last one counts.
///
/// Where there are checksums, every commit that changes a table adds one over all rows.
class CatalogueTables
{
public:
    /// @param group      stays the caller's and open as long as this object
    /// @param checksums  whether there is a table of them
    CatalogueTables(std::shared_ptr<File> file, hid_t group, bool checksums) noexcept
        : m_file(std::move(file)), m_group(group), m_hasChecksums(checksums)
    {
    }

    bool HasChecksums() const noexcept { return m_hasChecksums; }
    /// Reads all tables, which must be as they are documented and fit their checksums; what the rows say is not checked.
    CatalogueRows Load();
    /// Numbers first to first + count - 1 of set_members.
    std::vector<int> LoadNumbers(std::int64_t first, std::int64_t count);
    /// Calls visit(name, dataset) for every table that exists.
    void ForEachTable(std::function<void(char const*, hid_t)> const& visit) const;
    /// Length of set_members as last committed.
    std::int64_t NumberCount() const noexcept { return m_numbers.rows; }

    /// Puts the rows, and the numbers of their sets one after another from NumberCount() on, behind those that are kept; the checksums of
    /// the tables, and `check` of all, are added. Called again before Accept() it replaces what it wrote.
    void Append(CatalogueRows const& rows, std::span<std::shared_ptr<std::vector<int> const> const> numbers);
    /// What was appended is kept.
    void Accept() noexcept;

private:
    struct Table {
        Hid dataset;
        std::int64_t rows = 0;    ///< kept
        std::int64_t written = 0; ///< in the dataset
        std::uint32_t crc = 0;    ///< of the rows that are kept
        std::uint32_t writtenCrc = 0;
    };

    Hid OpenTable(Table& table, char const* name, hid_t type, std::size_t rowBytes);
    void SetRows(Table& table, char const* name, hid_t type, std::size_t rowBytes, std::int64_t rows);
    void Write(Table& table, hid_t type, std::int64_t first, std::int64_t count, void const* rows);
    void Read(Table& table, hid_t type, std::int64_t first, std::int64_t count, void* rows);
    template<class Row>
    void LoadTable(Table& table, std::vector<Row>& rows);
    template<class Row>
    void AppendTable(Table& table, std::vector<Row> const& rows);
    void AppendNumbers(std::span<std::shared_ptr<std::vector<int> const> const> numbers);
    void AppendChecksums(std::vector<ChecksumRow> rows);
    ChecksumRow SumOfTables() const noexcept;
    void CheckLoaded(std::vector<ChecksumRow> const& checksums);

    std::shared_ptr<File> m_file;
    hid_t m_group;
    bool m_hasChecksums;
    Table m_collections, m_sets, m_numbers, m_distributions, m_grids, m_drawers, m_checksums;
};

} // namespace simdb
