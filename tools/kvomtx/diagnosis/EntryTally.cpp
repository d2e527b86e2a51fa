#include "EntryTally.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace
{

std::size_t Index(int number)
{
    return static_cast<std::size_t>(number);
}

} // namespace

EntryTally::EntryTally(int rows, int columns)
    : m_rows(Index(rows)), m_columns(Index(columns)), m_rowCounts(Index(rows)), m_rowSums(Index(rows)), m_columnSums(Index(columns))
{
    m_facts.rows = rows;
    m_facts.columns = columns;
    if (rows != columns)
        return;
    m_facts.diagonal.resize(Index(rows));
    m_first.resize(Index(rows));
    std::iota(m_first.begin(), m_first.end(), 0);
}

void EntryTally::Add(int row, int column, double value)
{
    ++m_facts.entries;
    ++m_rowCounts[Index(row)];
    m_facts.lowerBandwidth = std::max<std::int64_t>(m_facts.lowerBandwidth, row - column);
    m_facts.upperBandwidth = std::max<std::int64_t>(m_facts.upperBandwidth, column - row);
    for (char* const seen : {&m_rows[Index(row)], &m_columns[Index(column)]})
        *seen = std::max<char>(*seen, value == 0.0 ? kZeros : kValues);
    if (!m_first.empty()) {
        int& first = m_first[Index(std::max(row, column))];
        first = std::min({first, row, column});
        if (row == column)
            m_facts.diagonal[Index(row)] = value;
    }
    if (value == 0.0) {
        AddZero();
        return;
    }
    if (!std::isfinite(value)) {
        (std::isnan(value) ? m_facts.nan : m_facts.infinite).Add({row, column, value});
        return;
    }
    m_facts.smallest = std::min(m_facts.smallest, value);
    m_facts.largest = std::max(m_facts.largest, value);
    double const size = std::fabs(value);
    m_facts.smallestSize = std::min(m_facts.smallestSize, size);
    m_facts.magnitudes.Add(value);
    if (row != column || m_first.empty())
        m_rowSums[Index(row)] += size;
    m_columnSums[Index(column)] += size;
    m_squares += static_cast<long double>(value) * value;
}

void EntryTally::AddZero()
{
    ++m_facts.zeros;
    m_facts.smallest = std::min(m_facts.smallest, 0.0);
    m_facts.largest = std::max(m_facts.largest, 0.0);
}

double EntryTally::LargestSize() const
{
    double const size = std::max(std::fabs(m_facts.smallest), std::fabs(m_facts.largest));
    return std::isfinite(size) && size > 0.0 ? size : 1.0;
}

void EntryTally::List(std::vector<char> const& stored, Found<int>& empty, Found<int>& zero)
{
    for (std::size_t k = 0; k < stored.size(); ++k)
        if (stored[k] != kValues)
            (stored[k] == kNothing ? empty : zero).Add(static_cast<int>(k));
}

// Of a square matrix: the diagonal, alone and against the rest of each row.
void EntryTally::JudgeRows()
{
    constexpr double kRounding = 1e-12; // of the sums
    Dominance dominance;
    Envelope envelope{std::max(m_facts.lowerBandwidth, m_facts.upperBandwidth), 0};
    for (int row = 0; row < m_facts.rows; ++row) {
        double const value = m_facts.diagonal[Index(row)], size = std::fabs(value), others = m_rowSums[Index(row)];
        if (value == 0.0)
            m_facts.zeroDiagonal.Add({row, row, value});
        if (value < 0.0)
            m_facts.negativeDiagonal.Add({row, row, value});
        envelope.profile += row - m_first[Index(row)];
        dominance.strict += size > others * (1.0 + kRounding);
        dominance.weak += std::fabs(size - others) <= others * kRounding;
        double const quotient = others > 0.0 ? size / others : std::numeric_limits<double>::infinity();
        if (dominance.weakestRow < 0 || quotient < dominance.weakest) {
            dominance.weakestRow = row;
            dominance.weakest = quotient;
        }
    }
    m_facts.envelope = envelope;
    if (m_facts.IsFinite())
        m_facts.dominance = dominance;
    m_facts.holdsValue.resize(m_rows.size());
    std::ranges::transform(m_rows, m_columns, m_facts.holdsValue.begin(),
                           [](char row, char column) { return row == kValues || column == kValues; });
}

void EntryTally::JudgeNorms()
{
    for (std::size_t row = 0; row < m_facts.diagonal.size(); ++row)
        m_rowSums[row] += std::fabs(m_facts.diagonal[row]);
    auto const greatest = [](std::vector<double> const& sums) { return sums.empty() ? 0.0 : *std::ranges::max_element(sums); };
    m_facts.norms = Norms{greatest(m_columnSums), greatest(m_rowSums), static_cast<double>(std::sqrt(m_squares)), {}};
}

MatrixDiagnosis EntryTally::Finish()
{
    List(m_rows, m_facts.emptyRows, m_facts.zeroRows);
    List(m_columns, m_facts.emptyColumns, m_facts.zeroColumns);
    if (!m_rowCounts.empty()) {
        auto const [fewest, most] = std::ranges::minmax(m_rowCounts);
        m_facts.fewestInRow = fewest;
        m_facts.mostInRow = most;
    }
    if (m_facts.IsSquare())
        JudgeRows();
    if (m_facts.IsFinite())
        JudgeNorms();
    return std::move(m_facts);
}
