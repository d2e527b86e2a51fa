#pragma once

#include "sparse_kernels.h"

#include <cstdint>
#include <cstring>
#include <emmintrin.h>

namespace
{

using blac::SparseRows;

// The unknowns of one node of a finite-element mesh have rows of equal pattern, one after the other, in which the unknowns of each
// neighbour are consecutive columns. So up to three rows of equal pattern are taken together, which loads x (or y) once for all of them and
// has as many independent chains of sums, and consecutive columns, a run, are handled at once.
constexpr int kMostFused = 3;
constexpr int kRun = 4; // columns that are recognised as a run at once; a longer one is taken in pieces

struct Row {
    double const* a;
    int const* ja;
    std::ptrdiff_t length;
};

[[gnu::always_inline]] inline Row RowAt(SparseRows const& rows, std::ptrdiff_t i)
{
    std::ptrdiff_t const r = rows.index ? rows.index[i] : i;
    std::ptrdiff_t const first = rows.ia[r], end = rows.ie[r];
    return {rows.a + first, rows.ja + first, end - first};
}

// Finds the rows from row i on that have its pattern.
[[gnu::always_inline]] inline int FindRowsOfOnePattern(SparseRows const& rows, std::ptrdiff_t i, Row (&row)[kMostFused])
{
    row[0] = RowAt(rows, i);
    int found = 1;
    for (; found < kMostFused && i + found < rows.count; ++found) {
        Row const next = row[found] = RowAt(rows, i + found);
        if (next.length != row[0].length)
            break;
        if (next.length > 0 && std::memcmp(next.ja, row[0].ja, static_cast<std::size_t>(next.length) * sizeof(int)) != 0)
            break;
    }
    return found;
}

// How many of the `left` columns from ja[0] on ascend by one, kRun at most.
[[gnu::always_inline]] inline int RunOf(int const* ja, std::ptrdiff_t left)
{
    if (left < kRun) {
        int length = 1;
        while (length < left && ja[length] == ja[0] + length)
            ++length;
        return length;
    }
    __m128i const columns = _mm_loadu_si128(reinterpret_cast<__m128i const*>(ja));
    __m128i const run = _mm_add_epi32(_mm_set1_epi32(ja[0]), _mm_setr_epi32(0, 1, 2, 3));
    int const equal = _mm_movemask_ps(_mm_castsi128_ps(_mm_cmpeq_epi32(columns, run)));
    return __builtin_ctz(~static_cast<unsigned>(equal));
}

// Whether no column occurs twice in a row, as in every assembled matrix; the columns of a direct caller may be in any order.
inline bool Ascends(Row const& row)
{
    std::ptrdiff_t k = 0;
    for (; k + 4 < row.length; k += 4) {
        __m128i const here = _mm_loadu_si128(reinterpret_cast<__m128i const*>(row.ja + k));
        __m128i const next = _mm_loadu_si128(reinterpret_cast<__m128i const*>(row.ja + k + 1));
        if (_mm_movemask_epi8(_mm_cmplt_epi32(here, next)) != 0xffff)
            return false;
    }
    for (; k + 1 < row.length; ++k)
        if (row.ja[k] >= row.ja[k + 1])
            return false;
    return true;
}

// Prefetches the matrix. Rows that are taken together are as many streams for the processor, which it does not foresee well; here they are
// swept in their order in memory, as far ahead as those rows are long (on Zen 4, 32 to 160 entries more lose 5 %, 256 a third).
//
// The hint is that for all caches on every processor. Past the second-level cache (NTA), where those rows of X stay that the next rows
// need, gains too little to be seen on Zen 4, and loses up to nine tenths on Intel's; without a hint both lose. ms, one thread, A X with 1
// and 8 vectors, then A^T X:
//
//                                       T0                    NTA                   none
//   Zen 4, 107 811 rows                 4.8  7.3   4.7  9.7   4.6  7.3   4.6  9.6  10.4 15.7  10.7 20.0
//   Intel Xeon, 1536 pages, 192 000    17.7 31.3  17.7 48.9  31.0 59.0  35.6 91.0  23.4 42.0
class Sweep
{
public:
    Sweep(Row const& row, int fused)
        : m_a(reinterpret_cast<std::uintptr_t>(row.a) + static_cast<std::uintptr_t>(fused * row.length + kAhead) * sizeof(double)),
          m_ja(reinterpret_cast<std::uintptr_t>(row.ja) + static_cast<std::uintptr_t>(fused * row.length + kAhead) * sizeof(int))
    {
    }
    template<int entries>
    [[gnu::always_inline]] void Advance()
    {
        static_assert(entries * sizeof(double) <= 3 * kLine);
        Prefetch(m_a);
        if constexpr (entries * sizeof(double) > kLine)
            Prefetch(m_a + kLine);
        if constexpr (entries * sizeof(double) > 2 * kLine)
            Prefetch(m_a + 2 * kLine);
        Prefetch(m_ja);
        if constexpr (entries * sizeof(int) > kLine)
            Prefetch(m_ja + kLine);
        m_a += entries * sizeof(double);
        m_ja += entries * sizeof(int);
    }

private:
    [[gnu::always_inline]] static void Prefetch(std::uintptr_t address)
    {
        _mm_prefetch(reinterpret_cast<char const*>(address), _MM_HINT_T0);
    }

    static constexpr std::ptrdiff_t kAhead = 8; // a cache line
    static constexpr std::size_t kLine = 64;
    std::uintptr_t m_a, m_ja; // addresses, not pointers: they leave the arrays
};

} // namespace
