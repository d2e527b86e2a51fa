#include "sparse_parts.h"

#include "tasks.h"

#include <algorithm>
#include <climits>

namespace
{

std::ptrdiff_t RowNumber(blac::SparseRows const& rows, std::ptrdiff_t i) noexcept
{
    return rows.index != nullptr ? rows.index[i] : i;
}

} // namespace

blac::SparseRows blac::PartOf(SparseRows const& rows, std::ptrdiff_t first, std::ptrdiff_t end) noexcept
{
    SparseRows part = rows;
    part.count = end - first;
    if (rows.index != nullptr) {
        part.index += first;
    } else {
        part.ia += first;
        part.ie += first;
    }
    return part;
}

std::ptrdiff_t blac::FirstRowOf(unsigned const* rowStart, std::ptrdiff_t count, int parts, int part) noexcept
{
    // A row without entries takes its time too.
    auto const work = [&](std::ptrdiff_t row) { return std::int64_t{rowStart[row] - rowStart[0]} + row; };
    std::int64_t const before = PieceBegin(work(count), parts, part);
    std::ptrdiff_t low = 0, high = count;
    while (low < high) {
        std::ptrdiff_t const middle = low + (high - low) / 2;
        if (work(middle) < before)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

blac::SparseColumnParts::SparseColumnParts(SparseRows const& rows, int parts)
    : m_rows(rows), m_count(std::min(parts, kMostParts)),
      m_strips(static_cast<Strip*>(mem_Malloc(mem_ArrayBytes(rows.count / kStrip + 1, sizeof(Strip)))))
{
    if (m_strips == nullptr)
        return;
    CutColumns();
    LookAtStrips();
}

// By the columns of some of the rows.
void blac::SparseColumnParts::CutColumns() noexcept
{
    constexpr std::ptrdiff_t kBins = 1024, kRows = 1024;
    std::int64_t counts[kBins] = {}, all = 0;
    std::ptrdiff_t const width = m_rows.columns / kBins + 1, step = m_rows.count / kRows + 1;
    for (std::ptrdiff_t i = 0; i < m_rows.count; i += step) {
        std::ptrdiff_t const row = RowNumber(m_rows, i);
        for (unsigned k = m_rows.ia[row]; k < m_rows.ie[row]; ++k, ++all)
            ++counts[m_rows.ja[k] / width];
    }
    m_begin[0] = 0;
    std::int64_t before = 0;
    std::ptrdiff_t bin = 0;
    for (int part = 1; part < m_count; ++part) {
        while (bin < kBins && before < PieceBegin(all, m_count, part))
            before += counts[bin++];
        m_begin[part] = std::min(bin * width, m_rows.columns);
    }
    m_begin[m_count] = m_rows.columns;
}

void blac::SparseColumnParts::LookAtStrips()
{
    std::ptrdiff_t const strips = (m_rows.count + kStrip - 1) / kStrip;
    int const pieces = PiecesFor(m_rows.count, 1 << 14);
    InTasks(pieces, [&](int piece) {
        for (std::ptrdiff_t b = PieceBegin(strips, pieces, piece); b < PieceBegin(strips, pieces, piece + 1); ++b) {
            Strip strip{INT_MAX, -1};
            for (std::ptrdiff_t i = b * kStrip; i < std::min((b + 1) * kStrip, m_rows.count); ++i) {
                std::ptrdiff_t const row = RowNumber(m_rows, i);
                if (m_rows.ia[row] == m_rows.ie[row])
                    continue;
                strip.firstColumn = std::min(strip.firstColumn, m_rows.ja[m_rows.ia[row]]);
                strip.lastColumn = std::max(strip.lastColumn, m_rows.ja[m_rows.ie[row] - 1]);
            }
            m_strips[b] = strip;
        }
    });
}

// The entries in the part's columns of the rows of a strip.
blac::SparseRows blac::SparseColumnParts::Search(std::ptrdiff_t first, int part, unsigned* begin, unsigned* end) const noexcept
{
    std::ptrdiff_t const count = std::min(kStrip, m_rows.count - first);
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        std::ptrdiff_t const row = RowNumber(m_rows, first + i);
        int const* const rowBegin = m_rows.ja + m_rows.ia[row];
        int const* const rowEnd = m_rows.ja + m_rows.ie[row];
        int const* const from = part == 0 ? rowBegin : std::lower_bound(rowBegin, rowEnd, static_cast<int>(Begin(part)));
        int const* const to = part + 1 == m_count ? rowEnd : std::lower_bound(from, rowEnd, static_cast<int>(End(part)));
        begin[i] = static_cast<unsigned>(from - m_rows.ja);
        end[i] = static_cast<unsigned>(to - m_rows.ja);
    }
    return {m_rows.a, begin, end, m_rows.ja, count, nullptr, m_rows.columns, m_rows.ld};
}
