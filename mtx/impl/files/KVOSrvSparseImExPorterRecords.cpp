// Record files: format 0.

#include "KVOForRecords.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseImExPorter.h"
#include "MalformedFile.h"
#include "cow_List.h"

#include <climits>
#include <string>

using KVOSrvSparseSupport::AllocateArray;

namespace
{

constexpr char kSource[] = "mtx/impl/KVOSrvSparseImExPorterRecords";

/// A record file on the unit that these files always had. Every failure to read is a malformed file.
class RecordUnit
{
public:
    explicit RecordUnit(char const* path)
    {
        if (for_open(kUnit, path) != KVOForOk)
            KVOSrvMtxOpenFileException(path).Throw(kSource, __LINE__);
    }
    ~RecordUnit() { for_close(kUnit); }
    RecordUnit(RecordUnit const&) = delete;
    RecordUnit& operator=(RecordUnit const&) = delete;

    /// The number of rows, from the first record.
    int Rows()
    {
        int rows = 0;
        if (!NextRecord("a record with the number of rows") || !Read(&rows, 1) || rows < 0)
            Refuse("expected a record with the number of rows; is this a record file?");
        return rows;
    }

    /// Goes to the record of the next row. @return its items
    int NextRow(int rows)
    {
        ++m_row;
        m_items = 0;
        if (!NextRecord("the record of row " + std::to_string(m_row) + " of " + std::to_string(rows)) || !Read(&m_items, 1) || m_items < 1)
            RefuseRow("should begin with the number of its entries, from 1");
        return m_items;
    }

    /// The next items of the row's record; null skips them.
    template<class T>
    void ReadOfRow(T* items, std::int64_t count)
    {
        if (!Read(items, count))
            RefuseRow("ends within its " + std::to_string(m_items) + " entries, which take " +
                      std::to_string(4 + 12 * std::int64_t{m_items}) + " bytes");
    }

    [[noreturn]] void RefuseRow(std::string const& what) const { Refuse("the record of row " + std::to_string(m_row) + " " + what); }

private:
    static constexpr int kUnit = 81;

    // False at the end of the record.
    template<class T>
    bool Read(T* items, std::int64_t count)
    {
        KVOForStatus const status = for_read_seq_xmit(kUnit, items, count, sizeof(T));
        if (status == KVOForMalformed)
            RefuseMarkers();
        return status == KVOForOk;
    }

    bool NextRecord(std::string const& expected)
    {
        KVOForStatus const status = for_read_seq(kUnit);
        if (status == KVOForMalformed)
            RefuseMarkers();
        if (status == KVOForEndOfFile)
            Refuse("the file ends here, expected " + expected);
        return status == KVOForOk;
    }

    // At the begin of the record.
    [[noreturn]] static void Refuse(std::string const& what)
    {
        KVOForPlace place;
        for_inquire(kUnit, place);
        throw MalformedFile::AtByte(place.record, what);
    }

    [[noreturn]] static void RefuseMarkers()
    {
        KVOForPlace place;
        for_inquire(kUnit, place);
        throw MalformedFile::AtByte(place.fault, place.reason);
    }

    std::int64_t m_row = 0;
    int m_items = 0;
};

/// What the first pass finds: the items behind the first one of each row.
struct RowLengths {
    explicit RowLengths(char const* path)
    {
        RecordUnit unit(path);
        int const n = unit.Rows();
        for (int i = 0; i < n; ++i) {
            int const items = unit.NextRow(n);
            unit.ReadOfRow(static_cast<int*>(nullptr), items);
            unit.ReadOfRow(static_cast<double*>(nullptr), items);
            offDiagonals.Append(items - 1);
            total += items - 1;
            if (total > INT_MAX)
                unit.RefuseRow("holds more entries than a matrix can have with those before it (2147483647)");
        }
    }

    int Rows() const noexcept { return static_cast<int>(offDiagonals.Size()); }

    cow_List<int> offDiagonals; // grows by what the file holds, whatever the dimension in its first record says
    std::int64_t total = 0;
};

} // namespace

KVOSrvSparseSupport::HalfRows KVOSrvSparseImExPorter::ReadRecords(char const* path)
{
    RowLengths const lengths(path);
    int const n = lengths.Rows();
    HalfRows half{CompressedRows(n, n, lengths.total), AllocateArray<double>(n)};
    CompressedRows& rows = half.triangle;

    RecordUnit unit(path);
    unit.Rows();
    unsigned position = rows.rowStart[0] = 0;
    for (int i = 0; i < n; ++i) {
        int const others = lengths.offDiagonals[i];
        if (unit.NextRow(n) != others + 1)
            unit.RefuseRow("was changed while the file was read");
        int diagonalColumn;
        int* const columns = rows.columnIndices.get() + position;
        unit.ReadOfRow(&diagonalColumn, 1);
        unit.ReadOfRow(columns, others);
        unit.ReadOfRow(&half.diagonal[i], 1);
        unit.ReadOfRow(rows.values.get() + position, others);
        if (diagonalColumn != i + 1)
            unit.RefuseRow("should have the diagonal first, column " + std::to_string(i + 1) + ", found " + std::to_string(diagonalColumn));
        for (int k = 0; k < others; ++k) {
            if (columns[k] < 1 || columns[k] > n)
                unit.RefuseRow("should have columns from 1 to " + std::to_string(n) + ", found " + std::to_string(columns[k]));
            --columns[k];
        }
        position += static_cast<unsigned>(others);
        rows.rowStart[i + 1] = position;
    }
    return half;
}
