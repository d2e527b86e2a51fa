#include "StructuralRank.h"

#include "FullMatrix.h"
#include "Interrupt.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace
{

std::size_t Index(int number)
{
    return static_cast<std::size_t>(number);
}

class Matching
{
public:
    explicit Matching(KVOSrvSparseRows const& matrix)
        : m_matrix(matrix), m_isMatched(Index(matrix.rows)), m_rowOf(Index(matrix.columns), kNone), m_level(Index(matrix.rows)),
          m_next(Index(matrix.rows))
    {
        MatchAtHand();
        while (Search()) {
            CheckInterrupt();
            std::copy_n(m_matrix.rowStart, m_next.size(), m_next.begin());
            for (int row = 0; row < m_matrix.rows; ++row)
                if (!m_isMatched[Index(row)])
                    ExtendFrom(row);
        }
    }

    int Size() const noexcept { return m_size; }

private:
    static constexpr int kNone = -1;

    void Match(int row, int column)
    {
        m_isMatched[Index(row)] = true;
        m_rowOf[Index(column)] = row;
    }

    // Most of the rows, in one pass: the diagonal, then the first column that is free.
    void MatchAtHand()
    {
        ForEachEntry(m_matrix, [&](int row, int column, double value) {
            if (row == column && value != 0.0)
                Match(row, column);
        });
        ForEachEntry(m_matrix, [&](int row, int column, double value) {
            if (value != 0.0 && !m_isMatched[Index(row)] && m_rowOf[Index(column)] == kNone)
                Match(row, column);
        });
        m_size = static_cast<int>(std::ranges::count(m_isMatched, true));
    }

    // The level of each row: how many matched pairs lie between it and the nearest row without a column. @return whether any path from
    // there ends at a free column
    bool Search()
    {
        std::ranges::fill(m_level, kNone);
        m_rows.clear();
        for (int row = 0; row < m_matrix.rows; ++row)
            if (!m_isMatched[Index(row)]) {
                m_level[Index(row)] = 0;
                m_rows.push_back(row);
            }
        bool isEnded = false;
        for (std::size_t k = 0; k < m_rows.size(); ++k) {
            int const row = m_rows[k];
            for (unsigned entry = m_matrix.rowStart[row]; entry < m_matrix.rowStart[row + 1]; ++entry) {
                if (m_matrix.values[entry] == 0.0)
                    continue;
                int const further = m_rowOf[Index(m_matrix.columnIndices[entry])];
                if (further == kNone) {
                    isEnded = true;
                } else if (m_level[Index(further)] == kNone) {
                    m_level[Index(further)] = m_level[Index(row)] + 1;
                    m_rows.push_back(further);
                }
            }
        }
        return isEnded;
    }

    // Along a path that descends by the levels from a row without a column to a free column, each row changes to the column behind it.
    // What an earlier path of the same search has met is not met again.
    void ExtendFrom(int start)
    {
        m_rows.assign(1, start);
        while (!m_rows.empty()) {
            int const row = m_rows.back();
            unsigned const entry = m_next[Index(row)]++;
            if (entry >= m_matrix.rowStart[row + 1]) {
                m_rows.pop_back();
                m_level[Index(row)] = kNone;
                continue;
            }
            if (m_matrix.values[entry] == 0.0)
                continue;
            int const further = m_rowOf[Index(m_matrix.columnIndices[entry])];
            if (further == kNone) {
                for (int const one : m_rows)
                    Match(one, m_matrix.columnIndices[m_next[Index(one)] - 1]);
                ++m_size;
                return;
            }
            if (m_level[Index(further)] == m_level[Index(row)] + 1)
                m_rows.push_back(further);
        }
    }

    KVOSrvSparseRows const& m_matrix;
    std::vector<bool> m_isMatched;
    std::vector<int> m_rowOf; // of each column
    std::vector<int> m_level;
    std::vector<unsigned> m_next; // entry of each row that was not tried yet
    std::vector<int> m_rows;      // of the search, or of the path
    int m_size = 0;
};

} // namespace

int FindStructuralRank(KVOSrvSparseRows const& matrix)
{
    return Matching(matrix).Size();
}
