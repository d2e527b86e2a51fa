#include "KVOForRecords.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseImExPorter.h"
#include "SparseRows.h"
#include "cow_List.h"

#include <climits>

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

    /// The next record's first item, a count.
    int NextRecord(int smallest)
    {
        Require(for_read_seq(kUnit) == KVOForOk, __LINE__);
        int count;
        Read(&count, 1);
        Require(count >= smallest, __LINE__);
        return count;
    }

    template<class T>
    void Read(T* items, std::int64_t count)
    {
        Require(for_read_seq_xmit(kUnit, items, count, sizeof(T)) == KVOForOk, __LINE__);
    }

    static void Require(bool sound, int line)
    {
        if (!sound)
            KVOSrvMtxUnsupportedImpFmt().Throw(kSource, line);
    }

private:
    static constexpr int kUnit = 81;
};

/// What the first pass finds: the items behind the first one of each row.
struct RowLengths {
    explicit RowLengths(char const* path)
    {
        RecordUnit unit(path);
        int const n = unit.NextRecord(0);
        for (int i = 0; i < n; ++i) {
            int const items = unit.NextRecord(1);
            unit.Read(static_cast<int*>(nullptr), items);
            unit.Read(static_cast<double*>(nullptr), items);
            offDiagonals.Append(items - 1);
            total += items - 1;
            RecordUnit::Require(total <= INT_MAX, __LINE__);
        }
    }

    int Rows() const noexcept { return static_cast<int>(offDiagonals.Size()); }

    cow_List<int> offDiagonals; // grows by what the file holds, whatever the dimension in its first record says
    std::int64_t total = 0;
};

} // namespace

void KVOSrvSparseImExPorter::ImportRecords(KVOSrvSparseMatrix& matrix, char const* path)
{
    RowLengths const lengths(path);
    int const n = lengths.Rows();
    matrix.m_rowStart = AllocateArray<unsigned>(std::int64_t{n} + 1);
    matrix.m_diagonal = AllocateArray<double>(n);
    matrix.m_columnIndices = AllocateArray<int>(lengths.total);
    matrix.m_values = AllocateArray<double>(lengths.total);

    RecordUnit unit(path);
    RecordUnit::Require(unit.NextRecord(0) == n, __LINE__);
    unsigned position = matrix.m_rowStart[0] = 0;
    for (int i = 0; i < n; ++i) {
        int const others = lengths.offDiagonals[i];
        RecordUnit::Require(unit.NextRecord(1) == others + 1, __LINE__);
        int diagonalColumn;
        int* const columns = matrix.m_columnIndices.get() + position;
        unit.Read(&diagonalColumn, 1);
        unit.Read(columns, others);
        unit.Read(&matrix.m_diagonal[i], 1);
        unit.Read(matrix.m_values.get() + position, others);
        RecordUnit::Require(diagonalColumn == i + 1, __LINE__);
        for (int k = 0; k < others; ++k) {
            RecordUnit::Require(columns[k] >= 1 && columns[k] <= n, __LINE__);
            --columns[k];
        }
        position += static_cast<unsigned>(others);
        matrix.m_rowStart[i + 1] = position;
    }
    matrix.m_nonzeroCount = static_cast<int>(lengths.total);
    matrix.m_rowCount = matrix.m_columnCount = n;
    matrix.m_symmetryState = 1;
}
