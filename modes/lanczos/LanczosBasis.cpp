#include "LanczosBasis.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace
{

// Rows of a chunk, so that one of eight columns has a megabyte.
constexpr int kChunkRows = 16384;

std::unique_ptr<KVOSrvScratchDenseMatrix> Scratch(int n, int columns, int blockColumns)
{
    return std::make_unique<KVOSrvScratchDenseMatrix>(n, columns, std::min(n, kChunkRows), std::min(columns, blockColumns));
}

} // namespace

LanczosBasis::LanczosBasis(int order, int capacity, int blockColumns)
    : m_blockColumns(blockColumns), m_values(Scratch(order, capacity, blockColumns))
{
}

// A view of the columns that are there.
std::unique_ptr<KVOSrvScratchDenseMatrix> LanczosBasis::Held() const
{
    return std::unique_ptr<KVOSrvScratchDenseMatrix>(m_values->ConstSubmatrix(0, m_values->NumberOfRows() - 1, 0, m_columns - 1));
}

void LanczosBasis::Append(KVOSrvMatrix const& block)
{
    m_values->SetColumns(m_columns, m_columns + block.NumberOfColumns() - 1, block);
    m_columns += block.NumberOfColumns();
}

void LanczosBasis::Read(int first, KVOSrvMatrix& columns) const
{
    m_values->GetColumns(first, first + columns.NumberOfColumns() - 1, columns);
}

void LanczosBasis::Project(KVOSrvMatrix const& block, KVOSrvMatrix& coefficients) const
{
    if (m_columns > 0)
        Held()->TransposeMultiply(block.Values(), block.NumberOfColumns(), coefficients.Values(), block.NumberOfRows());
}

void LanczosBasis::Subtract(KVOSrvMatrix const& coefficients, KVOSrvMatrix& block) const
{
    if (m_columns == 0)
        return;
    std::vector<double> negative(coefficients.Values(), coefficients.Values() + std::ptrdiff_t{m_columns} * block.NumberOfColumns());
    std::ranges::transform(negative, negative.begin(), [](double value) { return -value; });
    Held()->Multiply(negative.data(), block.NumberOfColumns(), block.Values());
}

void LanczosBasis::Combine(KVOSrvMatrix const& combinations, KVOSrvMatrix& block) const
{
    Held()->Multiply(combinations, block);
}

void LanczosBasis::Rotate(KVOSrvMatrix const& combinations)
{
    auto rotated = Scratch(m_values->NumberOfRows(), Capacity(), m_blockColumns);
    Held()->Multiply(
        1.0, combinations, 0.0,
        *std::unique_ptr<KVOSrvDenseMatrix>(rotated->Submatrix(0, rotated->NumberOfRows() - 1, 0, combinations.NumberOfColumns() - 1)));
    m_values = std::move(rotated);
    m_columns = combinations.NumberOfColumns();
}

void LanczosBasis::Reserve(int capacity)
{
    if (capacity <= Capacity())
        return;
    auto larger = Scratch(m_values->NumberOfRows(), capacity, m_blockColumns);
    for (int c = 0; c < m_columns; c += m_blockColumns) {
        int const last = std::min(c + m_blockColumns, m_columns) - 1;
        KVOSrvMatrix block(m_values->NumberOfRows(), last - c + 1, nullptr, false, false);
        m_values->GetColumns(c, last, block);
        larger->SetColumns(c, last, block);
    }
    m_values = std::move(larger);
}
