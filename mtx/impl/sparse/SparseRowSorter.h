#pragma once

#include "KVOSrvSparseMatrix.h"
#include "SparseRows.h"

namespace KVOSrvSparseSupport
{

/// Orders the entries of one row at a time by column, in time proportional to the entries: an array over all columns takes the values, and
/// three levels of bits (a column, 64 columns, 4096 columns) lead from one occupied column to the next.
///
/// Between two rows all bits are 0 and all of m_values is -0.0, the number that changes no number it is added to.
class SparseRowSorter
{
public:
    /// Asks for 8 bytes a column, and takes them with Clear(), which comes before the first row. @throws mem_OutOfMemory
    explicit SparseRowSorter(std::int64_t columns);
    void Clear() noexcept;

    /// Writes the entries, whose rows are not looked at, by ascending column, those of equal column summed in their order.
    /// @return entries written
    std::int64_t Sum(KVOSrvSparseMatrixEntry const* entries, std::int64_t count, int* sortedColumns, double* sortedValues) noexcept;

    /// Writes the entries with column c renumbered newNumber[c], by ascending column. The target lies apart from the source.
    /// @return entries written; fewer than `count` means that columns are repeated, and then the target is of no use
    std::int64_t Renumber(int const* columns, double const* values, std::int64_t count, int const* newNumber, int* sortedColumns,
                          double* sortedValues) noexcept;

private:
    void Mark(unsigned column) noexcept;
    std::int64_t TakeMarked(int* sortedColumns, double* sortedValues) noexcept;

    std::int64_t m_columns;
    Array<double> m_values;
    Array<std::uint64_t> m_bits; // one bit a column
    Array<std::uint64_t> m_wordBits;
    Array<std::uint64_t> m_topBits;
};

/// Orders entries by column, those of equal column by `row`, where the caller has put their numbers: for rows of a matrix so wide that an
/// array over all columns costs too much.
void SortByColumn(KVOSrvSparseMatrixEntry* entries, std::int64_t count) noexcept;

} // namespace KVOSrvSparseSupport
