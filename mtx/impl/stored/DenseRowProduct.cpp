#include "DenseRowProduct.h"

namespace DenseSlabs
{

std::int64_t BlockRowsPerSlab(KVOSrvDenseMatrix const& A, int p, int resultColumns)
{
    if (p <= kFewVectors || std::int64_t{A.StoredRowBlocks().MaxNumberInBlock()} * A.NumberOfColumns() <= kWholeSlab)
        return 1;
    return (std::int64_t{A.NumberOfColumns()} + resultColumns) / std::max(1, A.StoredColumnBlocks().MaxNumberInBlock() + resultColumns);
}

RowProduct::RowProduct(KVOSrvDenseMatrix const& A, int maxRows, int p, int slabs)
    : m_source(A, p, A.StoredRowBlocks().MaxNumberInBlock(), std::int64_t{maxRows} * A.NumberOfColumns()), m_vectors(p),
      m_panels(p > kFewVectors && maxRows > A.StoredRowBlocks().MaxNumberInBlock() ? Walk(A.StoredColumnBlocks())
                                                                                   : CachedPanels(A.StoredColumnBlocks(), maxRows)),
      m_memory(BuffersAtOnce(std::int64_t{maxRows} * m_panels.MaxCount(), m_source.AtOnce(slabs)))
{
}

void RowProduct::operator()(std::span<Span const> slabs, double alpha, Factor const& X, double beta, Result const& C) const
{
    Span const rows = WholeOf(slabs);
    int const columns = m_source.Matrix().NumberOfColumns();
    if (columns == 0) // the product is zero
        return Multiply("N", {rows.Count(), m_vectors, 0}, alpha, {m_memory.front().Values(), rows.Count()}, X, beta, C);
    if (m_source.IsByBlocks())
        return MultiplyByBlocks(m_source, m_memory, "N", rows, {0, columns - 1}, alpha, X, m_vectors, beta, C);
    for (int panel = 0; panel < m_panels.Slabs(); ++panel) {
        Span const part = m_panels.At(panel);
        ReadAndMultiply(
            static_cast<int>(slabs.size()), m_memory,
            [&](int k, Buffer const& buffer) {
                buffer.Read(m_source.Matrix(),
                            {slabs[static_cast<std::size_t>(k)].first, slabs[static_cast<std::size_t>(k)].last, part.first, part.last});
            },
            [&](int k, Buffer const& buffer) {
                Span const some = slabs[static_cast<std::size_t>(k)];
                Multiply("N", {some.Count(), m_vectors, part.Count()}, alpha, {buffer.Values(), some.Count()}, X.At(part.first, 0),
                         panel == 0 ? beta : 1.0, C.At(some.first - rows.first, 0));
            });
    }
}

} // namespace DenseSlabs
