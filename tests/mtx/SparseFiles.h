#pragma once

#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

/// What the tests of the matrix files share.

/// Row, column and the value's bits.
using Entry = std::tuple<unsigned, unsigned, std::uint64_t>;

inline Entry MakeEntry(unsigned row, unsigned column, double value)
{
    return {row, column, std::bit_cast<std::uint64_t>(value)};
}

/// What a matrix shows of its content.
struct Content {
    int rows;
    int columns;
    int nonzeros;
    std::vector<Entry> entries; // in full, in the order of GetEntries()
    friend bool operator==(Content const&, Content const&) = default;
};

inline Content ContentOf(KVOSrvSparseMatrix const& matrix)
{
    Content content{matrix.NumberOfRows(), matrix.NumberOfColumns(), matrix.NumberOfNonzeros(), {}};
    int count = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const entries(matrix.GetEntries(count));
    for (int k = 0; k < count; ++k)
        content.entries.push_back(MakeEntry(entries[k].row, entries[k].column, entries[k].value));
    return content;
}

/// A half-stored matrix as plain lists; the columns need not ascend.
struct Half {
    explicit Half(int n) : diagonal(static_cast<std::size_t>(n)), rows(static_cast<std::size_t>(n)) {}

    /// Random values on the diagonal and in the first `offDiagonals` places of the upper triangle.
    static Half Random(int n, std::size_t offDiagonals, unsigned seed)
    {
        std::mt19937 random(seed);
        std::normal_distribution<> value;
        Half half(n);
        std::ranges::generate(half.diagonal, [&] { return value(random); });
        for (int row = 0; row < n; ++row)
            for (int column = row + 1; offDiagonals > 0 && column < n; ++column, --offDiagonals)
                half.rows[static_cast<std::size_t>(row)].emplace_back(column, value(random));
        return half;
    }

    int Size() const { return static_cast<int>(diagonal.size()); }

    std::vector<unsigned> RowStart() const
    {
        std::vector<unsigned> rowStart{0};
        for (auto const& row : rows)
            rowStart.push_back(rowStart.back() + static_cast<unsigned>(row.size()));
        return rowStart;
    }

    /// The chunked file, without what follows its chunks.
    std::string File(int chunkBits = 17, int full = 0) const
    {
        std::vector<std::pair<int, double>> items;
        for (auto const& row : rows)
            items.insert(items.end(), row.begin(), row.end());
        std::size_t const length = std::size_t{1} << chunkBits, chunks = items.empty() ? 1 : (items.size() - 1) / length + 1;
        std::string bytes = Bytes(Size(), static_cast<int>(items.size()), static_cast<int>(chunks), full, chunkBits, 1);
        for (unsigned const start : RowStart())
            bytes += Bytes(start);
        for (double const value : diagonal)
            bytes += Bytes(value);
        items.resize(chunks * length);
        for (std::size_t begin = 0; begin < items.size(); begin += length) {
            for (std::size_t k = begin; k < begin + length; ++k)
                bytes += Bytes(items[k].first);
            for (std::size_t k = begin; k < begin + length; ++k)
                bytes += Bytes(items[k].second);
        }
        return bytes;
    }

    /// The entries in full, as GetEntries() orders those of half storage.
    std::vector<Entry> Entries() const
    {
        std::vector<Entry> entries;
        for (unsigned i = 0; i < rows.size(); ++i) {
            entries.push_back(MakeEntry(i, i, diagonal[i]));
            for (auto const& [column, value] : rows[i]) {
                entries.push_back(MakeEntry(static_cast<unsigned>(column), i, value));
                entries.push_back(MakeEntry(i, static_cast<unsigned>(column), value));
            }
        }
        return entries;
    }

    std::vector<double> diagonal;
    std::vector<std::vector<std::pair<int, double>>> rows;
};

/// A file in a folder of its own.
class SparseFilesTest : public testing::Test
{
protected:
    void Import(KVOSrvSparseMatrix& matrix, std::string const& bytes, int format)
    {
        WriteFile(m_path, bytes);
        matrix.Import(m_path.c_str(), format);
    }

    std::string Export(KVOSrvSparseMatrix const& matrix, int format, KVOFsmSystemDofDefinition const* dofs = nullptr)
    {
        std::filesystem::remove(m_path);
        matrix.Export(m_path.c_str(), format, dofs);
        return ReadFile(m_path);
    }

    /// read() refuses the file as malformed, for a place and a reason that begin with `report`.
    void ExpectMalformed(auto const& read, std::string const& report)
    {
        try {
            read();
            ADD_FAILURE() << "read: " << report;
        } catch (KVOSrvMtxMalformedFile const& fault) {
            EXPECT_EQ(fault.Path(), m_path);
            EXPECT_EQ((std::string(fault.Place().View()) + ": " + fault.Expected()).substr(0, report.size()), report);
        }
    }

    /// So does Import(), and the matrix stays as it was.
    void ExpectRefused(std::string const& bytes, int format, std::string const& report = {})
    {
        KVOSrvSparseMatrix matrix(3, 5);
        matrix.AddData(2, 1, 7.0);
        matrix.EndAssembly();
        Content const before = ContentOf(matrix);
        ExpectMalformed([&] { Import(matrix, bytes, format); }, report);
        EXPECT_EQ(ContentOf(matrix), before);
    }

    TemporaryFolder m_folder;
    std::string const m_path = m_folder / "matrix";
};
