#include "KVOSrvSparseMatrix.h"

#include "SparseRows.h"

#include <algorithm>
#include <climits>
#include <cmath>

using namespace KVOSrvSparseSupport;

namespace
{

// Entries to the right of the diagonal minus those to the left of it.
std::int64_t UpperMinusLower(unsigned const* rowStart, int const* columns, int rows)
{
    std::int64_t difference = 0;
    for (int row = 0; row < rows; ++row)
        for (unsigned k = rowStart[row]; k < rowStart[row + 1]; ++k)
            difference += (columns[k] > row) - (columns[k] < row);
    return difference;
}

// Deliberate: 1e-16 is below half the distance of neighbouring numbers, so values that differ at all fail, and a NaN, which is not
// greater than anything, passes.
bool Differ(double a, double b)
{
    return std::abs((a - b) * (a == 0 ? 1.0 : 1.0 / a)) > 1e-16;
}

// Every entry left of the diagonal has its like at the mirrored place. The rows ask for their mirrored places in ascending order, so one
// pass through each row finds them all.
bool MirrorsAgree(unsigned const* rowStart, int const* columns, double const* values, int rows)
{
    auto const next = AllocateArray<unsigned>(rows);
    std::copy_n(rowStart, rows, next.get());
    for (int row = 0; row < rows; ++row)
        for (unsigned k = rowStart[row]; k < rowStart[row + 1]; ++k) {
            int const column = columns[k];
            if (column >= row)
                continue;
            unsigned& mirror = next[column];
            while (mirror < rowStart[column + 1] && columns[mirror] < row)
                ++mirror;
            if (mirror == rowStart[column + 1] || columns[mirror] != row || Differ(values[mirror], values[k]))
                return false;
        }
    return true;
}

} // namespace

KVOSrvSparseMatrix::KVOSrvSparseMatrix(int rows, int columns) : m_rowCount(rows), m_columnCount(columns)
{
    Require(rows >= 0 && columns >= 0, "KVOSrvSparseMatrix", "a size is negative");
}

KVOSrvSparseMatrix::KVOSrvSparseMatrix(unsigned* rowStart, int* columnIndices, double* values, double* diagonal, int nonzeroCount, int rows,
                                       int columns)
    : m_values(values), m_columnIndices(columnIndices), m_rowStart(rowStart), m_diagonal(diagonal), m_nonzeroCount(nonzeroCount),
      m_rowCount(rows), m_columnCount(columns), m_symmetryState(diagonal != nullptr ? 1 : 0), m_assembled(true)
{
}

KVOSrvSparseMatrix::~KVOSrvSparseMatrix() = default;

int KVOSrvSparseMatrix::StoredEntries() const noexcept
{
    return m_rowStart != nullptr ? static_cast<int>(m_rowStart[m_rowCount]) : 0;
}

bool KVOSrvSparseMatrix::IsNull() const
{
    auto const isZero = [](double value) { return value == 0; }; // not so for a NaN
    return std::all_of(m_values.get(), m_values.get() + StoredEntries(), isZero) &&
           !(HoldsDiagonal() && !std::all_of(m_diagonal.get(), m_diagonal.get() + m_rowCount, isZero));
}

bool KVOSrvSparseMatrix::IsSymmetric() const
{
    if (m_symmetryState != 0)
        return m_symmetryState == 1;
    bool const symmetric = m_rowStart == nullptr || (UpperMinusLower(m_rowStart.get(), m_columnIndices.get(), m_rowCount) == 0 &&
                                                     MirrorsAgree(m_rowStart.get(), m_columnIndices.get(), m_values.get(), m_rowCount));
    // Deliberate: kept also where entries wait to be assembled. EndAssembly() keeps the verdict, whatever they are.
    m_symmetryState = symmetric ? 1 : 2;
    return symmetric;
}

void KVOSrvSparseMatrix::RequireAssembled(char const* operation, int line) const
{
    if (!m_assembled && m_pendingEntries.Size() > 0)
        KVOSrvMtxNotAssembled(operation).Throw(kSource, line);
}

KVOSrvSparseMatrixEntry* KVOSrvSparseMatrix::GetEntries(int& count) const
{
    RequireAssembled("GetEntries");
    if (m_rowCount == 0) {
        count = 0;
        return nullptr;
    }
    bool const mirrored = HoldsDiagonal();
    std::int64_t const length = mirrored ? m_rowCount + 2 * std::int64_t{StoredEntries()} : StoredEntries();
    Require(length <= INT_MAX, "GetEntries", "there are more than 2^31 - 1 entries");
    auto list = AllocateList<KVOSrvSparseMatrixEntry>(length);
    KVOSrvSparseMatrixEntry* next = list.get();
    for (unsigned row = 0; length > 0 && row < static_cast<unsigned>(m_rowCount); ++row) {
        if (mirrored)
            *next++ = {row, row, m_diagonal[row]};
        for (unsigned k = m_rowStart[row]; k < m_rowStart[row + 1]; ++k) {
            auto const column = static_cast<unsigned>(m_columnIndices[k]);
            if (mirrored)
                *next++ = {column, row, m_values[k]};
            *next++ = {row, column, m_values[k]};
        }
    }
    count = static_cast<int>(length);
    return list.release();
}
