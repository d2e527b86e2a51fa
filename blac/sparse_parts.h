#pragma once

#include "mem_Allocator.h"
#include "sparse_kernels.h"

#include <cstddef>
#include <cstdint>
#include <memory>

/// How products with a sparse matrix are cut into tasks (tasks.h).
namespace blac
{

/// Tasks of fewer multiplications take about as long as handing them over.
constexpr std::int64_t kLeastMultiplications = std::int64_t{1} << 17;

/// Rows first to end - 1 of `rows`.
SparseRows PartOf(SparseRows const& rows, std::ptrdiff_t first, std::ptrdiff_t end) noexcept;

/// Where part `part` of `parts` begins when `count` rows are cut so that all parts have about as many entries; for part `parts` `count`.
std::ptrdiff_t FirstRowOf(unsigned const* rowStart, std::ptrdiff_t count, int parts, int part) noexcept;

/// The columns of a matrix in parts of about as many entries, for tasks that each form the sums of their columns: every task takes the
/// rows in their order, of each row the entries in its columns. The columns of each row ascend strictly.
///
/// Rows are looked at in strips: most strips of a finite-element matrix lie in one part, and only the others have their rows searched.
class SparseColumnParts
{
public:
    /// Looks through the first and last columns of the rows, in tasks.
    SparseColumnParts(SparseRows const& rows, int parts);

    /// 0 when there was no memory for 8 bytes a strip.
    int Count() const noexcept { return m_strips != nullptr ? m_count : 0; }
    std::ptrdiff_t Begin(int part) const noexcept { return m_begin[part]; }
    std::ptrdiff_t End(int part) const noexcept { return m_begin[part + 1]; }

    /// take(rows, number of the first) for rows, or parts of rows, that hold all entries of the part, in their order.
    template<class Take>
    void ForEach(int part, Take const& take) const
    {
        std::ptrdiff_t whole = -1; // the first of whole rows not taken yet
        auto const flush = [&](std::ptrdiff_t end) {
            if (whole >= 0)
                take(PartOf(m_rows, whole, end), whole);
            whole = -1;
        };
        for (std::ptrdiff_t first = 0; first < m_rows.count; first += kStrip) {
            Strip const& strip = m_strips[first / kStrip];
            if (strip.firstColumn >= Begin(part) && strip.lastColumn < End(part)) {
                whole = whole < 0 ? first : whole;
                continue;
            }
            flush(first);
            if (strip.firstColumn < End(part) && strip.lastColumn >= Begin(part)) {
                unsigned begin[kStrip], end[kStrip];
                take(Search(first, part, begin, end), first);
            }
        }
        flush(m_rows.count);
    }

private:
    static constexpr std::ptrdiff_t kStrip = 64; // rows; their entries stay in a second-level cache
    static constexpr int kMostParts = 64;

    struct Strip {
        int firstColumn; // above lastColumn where there are no entries
        int lastColumn;
    };
    void CutColumns() noexcept;
    void LookAtStrips();
    SparseRows Search(std::ptrdiff_t first, int part, unsigned* begin, unsigned* end) const noexcept;

    SparseRows m_rows;
    int m_count;
    std::ptrdiff_t m_begin[kMostParts + 1];
    std::unique_ptr<Strip[], mem_Deleter> m_strips;
};

} // namespace blac
