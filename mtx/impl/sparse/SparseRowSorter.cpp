#include "SparseRowSorter.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace KVOSrvSparseSupport
{

namespace
{

constexpr std::int64_t kInsertionLimit = 8; // where insertion and marking take equally long

constexpr std::int64_t WordsFor(std::int64_t bits)
{
    return (bits + 63) / 64;
}

// Inserts an entry at `place` of `length` ordered ones.
inline void Insert(int column, double value, std::int64_t place, std::int64_t length, int* columns, double* values) noexcept
{
    std::copy_backward(columns + place, columns + length, columns + length + 1);
    std::copy_backward(values + place, values + length, values + length + 1);
    columns[place] = column;
    values[place] = value;
}

inline std::int64_t PlaceBehind(int column, int const* columns, std::int64_t length) noexcept
{
    while (length > 0 && columns[length - 1] > column)
        --length;
    return length;
}

std::int64_t InsertAndSum(KVOSrvSparseMatrixEntry const* entries, std::int64_t count, int* sortedColumns, double* sortedValues) noexcept
{
    std::int64_t length = 0;
    for (std::int64_t k = 0; k < count; ++k) {
        int const column = static_cast<int>(entries[k].column);
        double const value = entries[k].value;
        std::int64_t const place = PlaceBehind(column, sortedColumns, length);
        if (place > 0 && sortedColumns[place - 1] == column)
            sortedValues[place - 1] += value;
        else
            Insert(column, value, place, length++, sortedColumns, sortedValues);
    }
    return length;
}

std::int64_t InsertRenumbered(int const* columns, double const* values, std::int64_t count, int const* newNumber, int* sortedColumns,
                              double* sortedValues) noexcept
{
    for (std::int64_t k = 0; k < count; ++k) {
        int const column = newNumber[columns[k]];
        Insert(column, values[k], PlaceBehind(column, sortedColumns, k), k, sortedColumns, sortedValues);
    }
    return count;
}

} // namespace

SparseRowSorter::SparseRowSorter(std::int64_t columns)
    : m_columns(columns), m_values(AllocateArray<double>(columns)), m_bits(AllocateArray<std::uint64_t>(WordsFor(columns))),
      m_wordBits(AllocateArray<std::uint64_t>(WordsFor(WordsFor(columns)))),
      m_topBits(AllocateArray<std::uint64_t>(WordsFor(WordsFor(WordsFor(columns)))))
{
}

void SparseRowSorter::Clear() noexcept
{
    std::fill_n(m_values.get(), m_columns, -0.0);
    std::fill_n(m_bits.get(), WordsFor(m_columns), 0);
    std::fill_n(m_wordBits.get(), WordsFor(WordsFor(m_columns)), 0);
    std::fill_n(m_topBits.get(), WordsFor(WordsFor(WordsFor(m_columns))), 0);
}

inline void SparseRowSorter::Mark(unsigned column) noexcept
{
    std::uint64_t const before = m_bits[column >> 6];
    m_bits[column >> 6] = before | std::uint64_t{1} << (column & 63);
    if (before == 0) {
        m_wordBits[column >> 12] |= std::uint64_t{1} << (column >> 6 & 63);
        m_topBits[column >> 18] |= std::uint64_t{1} << (column >> 12 & 63);
    }
}

inline std::int64_t SparseRowSorter::TakeMarked(int* sortedColumns, double* sortedValues) noexcept
{
    auto const eachBit = [](std::uint64_t& word, std::int64_t index, auto const& take) {
        for (std::uint64_t bits = std::exchange(word, 0); bits != 0; bits &= bits - 1)
            take(index * 64 + std::countr_zero(bits));
    };
    std::int64_t length = 0;
    auto const takeColumn = [&](std::int64_t column) {
        sortedColumns[length] = static_cast<int>(column);
        sortedValues[length++] = std::exchange(m_values[column], -0.0);
    };
    std::int64_t const topWords = WordsFor(WordsFor(WordsFor(m_columns)));
    for (std::int64_t top = 0; top < topWords; ++top)
        eachBit(m_topBits[top], top, [&](std::int64_t middle) {
            eachBit(m_wordBits[middle], middle, [&](std::int64_t word) { eachBit(m_bits[word], word, takeColumn); });
        });
    return length;
}

std::int64_t SparseRowSorter::Sum(KVOSrvSparseMatrixEntry const* entries, std::int64_t count, int* sortedColumns,
                                  double* sortedValues) noexcept
{
    if (count <= kInsertionLimit)
        return InsertAndSum(entries, count, sortedColumns, sortedValues);
    for (std::int64_t k = 0; k < count; ++k) {
        Mark(entries[k].column);
        m_values[entries[k].column] += entries[k].value;
    }
    return TakeMarked(sortedColumns, sortedValues);
}

std::int64_t SparseRowSorter::Renumber(int const* columns, double const* values, std::int64_t count, int const* newNumber,
                                       int* sortedColumns, double* sortedValues) noexcept
{
    if (count <= kInsertionLimit)
        return InsertRenumbered(columns, values, count, newNumber, sortedColumns, sortedValues);
    for (std::int64_t k = 0; k < count; ++k) {
        auto const column = static_cast<unsigned>(newNumber[columns[k]]);
        Mark(column);
        m_values[column] = values[k];
    }
    return TakeMarked(sortedColumns, sortedValues);
}

void SortByColumn(KVOSrvSparseMatrixEntry* entries, std::int64_t count) noexcept
{
    std::sort(entries, entries + count, [](KVOSrvSparseMatrixEntry const& a, KVOSrvSparseMatrixEntry const& b) {
        return a.column != b.column ? a.column < b.column : a.row < b.row;
    });
}

} // namespace KVOSrvSparseSupport
