#include "SparseStructure.h"

#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace
{

using EntryList = std::unique_ptr<KVOSrvSparseMatrixEntry[]>;

bool IsAscending(KVOSrvSparseMatrixEntry const* entries, int count)
{
    return std::is_sorted(entries, entries + count, [](KVOSrvSparseMatrixEntry const& a, KVOSrvSparseMatrixEntry const& b) {
        return a.row != b.row ? a.row < b.row : a.column < b.column;
    });
}

// Sorts by columns, then by rows, keeping the order of equals: two counting passes.
void SortByPlace(KVOSrvSparseMatrixEntry* entries, int count, int rows, int columns)
{
    auto const size = static_cast<std::size_t>(count);
    EntryList const other(new KVOSrvSparseMatrixEntry[size]);
    auto const pass = [size](auto const* from, auto* to, int keys, auto key) {
        std::vector<std::size_t> next(static_cast<std::size_t>(keys) + 1);
        for (std::size_t k = 0; k < size; ++k)
            ++next[std::size_t{from[k].*key} + 1];
        std::partial_sum(next.begin(), next.end(), next.begin());
        for (std::size_t k = 0; k < size; ++k)
            to[next[from[k].*key]++] = from[k];
    };
    pass(entries, other.get(), columns, &KVOSrvSparseMatrixEntry::column);
    pass(other.get(), entries, rows, &KVOSrvSparseMatrixEntry::row);
}

} // namespace

SparseStructure::SparseStructure(KVOSrvSparseMatrix const& matrix)
    : m_rows(matrix.NumberOfRows()), m_columns(matrix.NumberOfColumns()), m_start(static_cast<std::size_t>(m_rows) + 1)
{
    int count = 0;
    EntryList const entries(matrix.GetEntries(count));
    if (!IsAscending(entries.get(), count)) // half storage
        SortByPlace(entries.get(), count, m_rows, m_columns);
    m_column.reserve(static_cast<std::size_t>(count));
    m_value.reserve(static_cast<std::size_t>(count));
    for (std::size_t k = 0; k < static_cast<std::size_t>(count); ++k) {
        if (k > 0 && entries[k].row == entries[k - 1].row && entries[k].column == entries[k - 1].column) { // files may repeat a pair
            m_value.back() += entries[k].value;
            continue;
        }
        ++m_start[entries[k].row + std::size_t{1}];
        m_column.push_back(static_cast<int>(entries[k].column));
        m_value.push_back(entries[k].value);
    }
    std::partial_sum(m_start.begin(), m_start.end(), m_start.begin());
}

Asymmetry FindAsymmetry(SparseStructure const& matrix)
{
    double scale = 0.0;
    matrix.ForEach([&](int, int, double value) { scale = std::isfinite(value) ? std::max(scale, std::fabs(value)) : scale; });
    Asymmetry found;
    double worst = 0.0;
    auto const compare = [&](int row, int column, double value, double mirror) {
        double const difference = value == mirror ? 0.0 : std::fabs(value - mirror); // of equal infinities, too
        if (difference <= worst)
            return;
        worst = std::isnan(difference) ? std::numeric_limits<double>::infinity() : difference;
        found = {scale > 0.0 ? worst / scale : worst, row, column, value, mirror};
    };

    // Rows ascend, so each row of the upper triangle is met from the left to the right by the columns of the lower one.
    std::vector<std::size_t> next(static_cast<std::size_t>(matrix.Rows()));
    auto const skipUpper = [&](int row, int column) { // entries of the upper triangle without one below
        std::size_t& k = next[static_cast<std::size_t>(row)];
        for (; k < matrix.Start(row + 1) && matrix.Column(k) < column; ++k)
            compare(row, matrix.Column(k), matrix.Value(k), 0.0);
        return k < matrix.Start(row + 1) && matrix.Column(k) == column;
    };
    for (int row = 0; row < matrix.Rows(); ++row) {
        std::size_t k = matrix.Start(row);
        for (; k < matrix.Start(row + 1) && matrix.Column(k) < row; ++k) {
            bool const both = skipUpper(matrix.Column(k), row);
            compare(row, matrix.Column(k), matrix.Value(k), both ? matrix.Value(next[static_cast<std::size_t>(matrix.Column(k))]++) : 0.0);
        }
        for (; k < matrix.Start(row + 1) && matrix.Column(k) == row; ++k)
            compare(row, row, matrix.Value(k), matrix.Value(k)); // a NaN there is worth telling
        next[static_cast<std::size_t>(row)] = k;
    }
    for (int row = 0; row < matrix.Rows(); ++row)
        skipUpper(row, matrix.Rows());
    return found;
}
