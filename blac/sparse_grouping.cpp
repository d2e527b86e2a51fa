// How many vectors a sparse product takes at a time.

#include "interleaved.h"
#include "sparse_kernels.h"

#include <algorithm>
#include <bitset>

// The vectors are columns of x (of y in the transposed product): every entry touches as many memory pages as there are vectors in the
// group. In a finite-element matrix neighbouring rows touch the same pages. If the columns are random, nearly every entry needs other ones,
// and once the pages of the whole group outnumber the processor's translation buffer, each access waits for a walk through the page tables:
// groups of four then take half the time of groups of eight, and groups of two less still (docs/measurements.md, "Sparse kernels").

namespace
{

constexpr std::ptrdiff_t kPage = 4096 / sizeof(double); // rows of x in a page
constexpr std::ptrdiff_t kWindow = 4096;                // entries that are looked at in one place ...
constexpr std::ptrdiff_t kPlaces = 4;                   // ... and places

// The pages of one vector that some consecutive rows touch. Numbers are taken modulo the size of the set, which is well above what matters.
std::ptrdiff_t TouchedPages(blac::SparseRows const& rows, std::ptrdiff_t firstRow)
{
    std::bitset<4096> touched;
    std::ptrdiff_t left = kWindow;
    for (std::ptrdiff_t i = firstRow; i < rows.count && left > 0; ++i) {
        std::ptrdiff_t const r = rows.index ? rows.index[i] : i;
        for (unsigned k = rows.ia[r]; k < rows.ie[r] && left > 0; ++k, --left)
            touched.set(static_cast<std::size_t>(rows.ja[k] / kPage) % touched.size());
    }
    return static_cast<std::ptrdiff_t>(touched.count());
}

std::ptrdiff_t TouchedPages(blac::SparseRows const& rows)
{
    std::ptrdiff_t touched = 0;
    for (std::ptrdiff_t place = 0; place < kPlaces; ++place)
        touched = std::max(touched, TouchedPages(rows, rows.count / kPlaces * place));
    return touched;
}

} // namespace

bool blac::InterleavingPays(SparseRows const& rows, std::size_t l2Bytes)
{
    constexpr std::ptrdiff_t kEntriesPerColumn = 8;
    auto const pagesInCache = static_cast<std::ptrdiff_t>(l2Bytes / 4096);
    return rows.index == nullptr && rows.count > 0 && rows.columns <= kMostInterleavedRows &&
           std::ptrdiff_t{rows.ie[rows.count - 1] - rows.ia[0]} >= kEntriesPerColumn * rows.columns &&
           8 * (rows.columns / kPage) > 2 * pagesInCache && 8 * TouchedPages(rows) > 2 * pagesInCache;
}

int blac::SparseGroupSize(SparseRows const& rows, int reachablePages)
{
    int group = 8;
    std::ptrdiff_t const pages = rows.columns / kPage;
    if (group * pages <= reachablePages)
        return group;

    std::ptrdiff_t const touched = TouchedPages(rows);
    if (group * touched <= reachablePages)
        return group;
    while (group > 1 && group * pages > reachablePages)
        group /= 2;
    return group;
}
