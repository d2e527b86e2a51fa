#pragma once

#include "sparse_patterns.h"

#include <immintrin.h>

// y += A^T x: y(ja[k], j) += a[k] x(i, j), row after row, each by ascending k. A run of columns is a piece of each vector of y, so the
// lanes of a register are columns here.
namespace
{

// `width` consecutive doubles, at any address in memory. Not one template over the vector types: compilers lose their alignment there.
template<int width>
struct Pack;
template<>
struct Pack<1> {
    using Values = double;
    static Values Load(double const* p) { return *p; }
    static void Store(double* p, Values values) { *p = values; }
};
#define KVO_PACK(width)                                                                                                                    \
    template<>                                                                                                                             \
    struct Pack<width> {                                                                                                                   \
        typedef double Values __attribute__((vector_size(width * sizeof(double))));                                                        \
        typedef double Memory __attribute__((vector_size(width * sizeof(double)), aligned(alignof(double)), may_alias));                   \
        [[gnu::always_inline]] static Values Load(double const* p) { return *reinterpret_cast<Memory const*>(p); }                         \
        [[gnu::always_inline]] static void Store(double* p, Values values) { *reinterpret_cast<Memory*>(p) = values; }                     \
    }
KVO_PACK(2);
#ifdef __AVX2__
KVO_PACK(4);
#endif
#ifdef __AVX512VL__
KVO_PACK(8);
// Masked stores of the levels below are slow.
template<>
struct Pack<3> {
    using Values = Pack<4>::Values;
    [[gnu::always_inline]] static Values Load(double const* p) { return _mm256_maskz_loadu_pd(7, p); }
    [[gnu::always_inline]] static void Store(double* p, Values values) { _mm256_mask_storeu_pd(p, 7, values); }
};
#endif
#undef KVO_PACK

template<int widest, int fused, int vectors>
class Scatter
{
public:
    Scatter(SparseRows const& rows, Row const* row, double const* x, double* y)
        : m_length(row->length), m_ja(row->ja), m_y(y), m_ldy(rows.columns), m_sweep(*row, fused)
    {
        for (int r = 0; r < fused; ++r) {
            m_a[r] = row[r].a;
            for (int j = 0; j < vectors; ++j)
                m_x[j][r] = x[r + j * rows.ld];
        }
    }

    [[gnu::always_inline]] void ByRuns()
    {
        while (m_k < m_length) {
            int const run = RunOf(m_ja + m_k, m_length - m_k);
            if constexpr (widest >= 8)
                if (run == 4 && m_length - m_k >= 8 && m_ja[m_k + 4] == m_ja[m_k] + 4 && RunOf(m_ja + m_k + 4, 4) == 4) {
                    Add<8>();
                    continue;
                }
            if constexpr (widest >= 4)
                if (run == 4) {
                    Add<4>();
                    continue;
                }
            if constexpr (widest >= 8)
                if (run == 3) {
                    Add<3>();
                    continue;
                }
            if (run >= 2)
                Add<2>();
            else
                Add<1>();
        }
    }

    [[gnu::always_inline]] void ByEntries()
    {
        while (m_k < m_length)
            Add<1>();
    }

private:
    // y(column + c, j) += a[r][k + c] x(r, j) for `width` columns of a run; at each place row after row.
    template<int width>
    [[gnu::always_inline]] void Add()
    {
        double* const y = m_y + m_ja[m_k];
        typename Pack<width>::Values a[fused];
#pragma GCC unroll 3
        for (int r = 0; r < fused; ++r)
            a[r] = Pack<width>::Load(m_a[r] + m_k);
#pragma GCC unroll 8
        for (int j = 0; j < vectors; ++j) {
            auto sum = Pack<width>::Load(y + j * m_ldy);
#pragma GCC unroll 3
            for (int r = 0; r < fused; ++r)
                sum += a[r] * m_x[j][r];
            Pack<width>::Store(y + j * m_ldy, sum);
        }
        m_sweep.template Advance<width * fused>();
        m_k += width;
    }

    std::ptrdiff_t m_k = 0, m_length;
    int const* m_ja;
    double* m_y;
    std::ptrdiff_t m_ldy;
    double const* m_a[fused];
    double m_x[vectors][fused];
    Sweep m_sweep;
};

template<int widest, int fused, int vectors>
[[gnu::noinline]] void ScatterRows(SparseRows const& rows, Row const* row, double const* x, double* y)
{
    Scatter<widest, fused, vectors> scatter(rows, row, x, y);
    scatter.ByRuns();
}

// A row that begins without a run will hardly have some further on; looking for them costs a third.
template<int vectors>
[[gnu::noinline]] void ScatterEntries(SparseRows const& rows, Row const* row, double const* x, double* y)
{
    Scatter<1, 1, vectors> scatter(rows, row, x, y);
    scatter.ByEntries();
}

template<int widest, int vectors>
void TransposedTimes(SparseRows const& rows, double const* x, double* y)
{
    for (std::ptrdiff_t i = 0; i < rows.count;) {
        Row row[kMostFused];
        int fused = FindRowsOfOnePattern(rows, i, row);
        if (fused > 1 && !Ascends(row[0]))
            fused = 1; // Of a column that occurs twice, both entries of this row come before those of the next.
        if (fused == 3)
            ScatterRows<widest, 3, vectors>(rows, row, x + i, y);
        else if (fused == 2)
            ScatterRows<widest, 2, vectors>(rows, row, x + i, y);
        else if (row[0].length > 1 && RunOf(row[0].ja, row[0].length) > 1)
            ScatterRows<widest, 1, vectors>(rows, row, x + i, y);
        else
            ScatterEntries<vectors>(rows, row, x + i, y);
        i += fused;
    }
}

// For columns that are scattered; what this loop waits for is y. In registers by name: compilers keep the array of
// factors in memory, which takes two to four times as long.
template<int widest, int vectors>
void TransposedTimesInterleaved(SparseRows const& rows, double const* x, double* y)
{
    constexpr int kWidth = widest < vectors ? widest : vectors, kPacks = vectors / kWidth;
    for (std::ptrdiff_t i = 0; i < rows.count; ++i) {
        Row const row = RowAt(rows, i);
        double values[vectors];
        for (int j = 0; j < vectors; ++j)
            values[j] = x[i + j * rows.ld];
        typename Pack<kWidth>::Values xi[kPacks];
#pragma GCC unroll 4
        for (int p = 0; p < kPacks; ++p)
            xi[p] = Pack<kWidth>::Load(values + p * kWidth);
        for (std::ptrdiff_t k = 0; k < row.length; ++k) {
            double* const target = y + std::ptrdiff_t{row.ja[k]} * vectors;
            double const a = row.a[k];
#pragma GCC unroll 4
            for (int p = 0; p < kPacks; ++p)
                Pack<kWidth>::Store(target + p * kWidth, Pack<kWidth>::Load(target + p * kWidth) + a * xi[p]);
        }
    }
}

} // namespace
