#include "DenseSlabs.h"

namespace DenseSlabs
{

Walk CachedPanels(KVOSrvBlockCut const& columns, int rows)
{
    constexpr std::int64_t kPanelEntries = std::int64_t{1} << 18; // 2 MiB
    return Walk(columns, kPanelEntries / std::max<std::int64_t>(1, std::int64_t{columns.perBlock} * rows));
}

void RowProduct::operator()(Span rows, double alpha, Factor const& X, int p, double beta, Result const& C) const
{
    if (m_matrix.NumberOfColumns() == 0) // the product is zero
        return Multiply("N", {rows.Count(), p, 0}, alpha, {m_slab.Values(), rows.Count()}, X, beta, C);
    for (int panel = 0; panel < m_panels.Slabs(); ++panel) {
        Span const columns = m_panels.At(panel);
        m_slab.Read(m_matrix, {rows.first, rows.last, columns.first, columns.last});
        Multiply("N", {rows.Count(), p, columns.Count()}, alpha, {m_slab.Values(), rows.Count()}, X.At(columns.first, 0),
                 panel == 0 ? beta : 1.0, C);
    }
}

} // namespace DenseSlabs
