#pragma once

#include "sparse_patterns.h"
#include "sparse_vectors.h"

// y = A x: y(i, j) = sum over k of a[k] x(ja[k], j), from 0.0 on and by ascending k.
//
// `Eight` holds one value for each of eight vectors, in registers: Zero(), AddProduct(a, x) += a x, Load(x, column) for 1, 2 or 4
// consecutive rows of x, Store(y, ldy).
namespace
{

// The sums of some rows of one pattern. Recursive, since compilers keep an array of sums in memory.
template<class Eight, int fused>
class Sums
{
public:
    [[gnu::always_inline]] explicit Sums(Row const* row) : m_sum(Eight::Zero()), m_a(row->a), m_others(row + 1) {}
    template<int used, int loaded>
    [[gnu::always_inline]] void Add(Eight const (&column)[loaded])
    {
        AddColumn(0, column[0]);
        if constexpr (used > 1)
            AddColumn(1, column[1]);
        if constexpr (used > 2)
            AddColumn(2, column[2]);
        if constexpr (used > 3)
            AddColumn(3, column[3]);
        Advance(used);
    }
    [[gnu::always_inline]] void Store(double* y, std::ptrdiff_t ldy) const
    {
        m_sum.Store(y, ldy);
        m_others.Store(y + 1, ldy);
    }

    [[gnu::always_inline]] void AddColumn(int c, Eight const& column)
    {
        m_sum.AddProduct(m_a[c], column);
        m_others.AddColumn(c, column);
    }
    [[gnu::always_inline]] void Advance(int entries)
    {
        m_a += entries;
        m_others.Advance(entries);
    }

private:
    Eight m_sum;
    double const* m_a; // the row's next entry
    Sums<Eight, fused - 1> m_others;
};
template<class Eight>
class Sums<Eight, 0>
{
public:
    [[gnu::always_inline]] explicit Sums(Row const*) {}
    [[gnu::always_inline]] void Store(double*, std::ptrdiff_t) const {}
    [[gnu::always_inline]] void AddColumn(int, Eight const&) {}
    [[gnu::always_inline]] void Advance(int) {}
};

// The columns ja[0] ... ja[used - 1], a run, of the rows in `sums`; `loaded` of them are read.
template<int used, int loaded, class Eight, int fused>
[[gnu::always_inline]] inline void AddRun(Sums<Eight, fused>& sums, EightVectors const& vectors, double const* x, Sweep& sweep)
{
    Eight column[loaded];
    Eight::Load(vectors.At(x), column);
    sums.template Add<used>(column);
    sweep.Advance<used * fused>();
}

template<class Eight, int fused>
[[gnu::noinline]] void SomeRowsTimesEight(SparseRows const& rows, Row const* row, double const* x, double* y)
{
    Sums<Eight, fused> sums(row);
    EightVectors const vectors(rows.columns);
    Sweep sweep(*row, fused);
    int const* ja = row->ja;
    int const* const end = ja + row->length;
    double const* const lastFour = rows.columns < 4 ? nullptr : x + (rows.columns - 4);
    while (ja < end) {
        double const* const from = x + *ja;
        int const run = RunOf(ja, end - ja);
        if (run == 4) {
            AddRun<4, 4>(sums, vectors, from, sweep);
            ja += 4;
        } else if (run == 3 && from <= lastFour) {
            AddRun<3, 4>(sums, vectors, from, sweep); // Reads one value more, still of x.
            ja += 3;
        } else if (run >= 2) {
            AddRun<2, 2>(sums, vectors, from, sweep);
            ja += 2;
        } else {
            AddRun<1, 1>(sums, vectors, from, sweep);
            ja += 1;
        }
    }
    sums.Store(y, rows.ld);
}

template<class Eight>
void TimesEight(SparseRows const& rows, double const* x, double* y)
{
    for (std::ptrdiff_t i = 0; i < rows.count;) {
        Row row[kMostFused];
        int const fused = FindRowsOfOnePattern(rows, i, row);
        if (fused == 3)
            SomeRowsTimesEight<Eight, 3>(rows, row, x, y + i);
        else if (fused == 2)
            SomeRowsTimesEight<Eight, 2>(rows, row, x, y + i);
        else
            SomeRowsTimesEight<Eight, 1>(rows, row, x, y + i);
        i += fused;
    }
}

// For columns that are scattered; what these loops wait for is x.
template<int vectors>
void TimesSome(SparseRows const& rows, double const* x, double* y)
{
    for (std::ptrdiff_t i = 0; i < rows.count; ++i) {
        Row const row = RowAt(rows, i);
        double sum[vectors] = {};
        for (std::ptrdiff_t k = 0; k < row.length; ++k)
            for (int j = 0; j < vectors; ++j)
                sum[j] += row.a[k] * x[row.ja[k] + j * rows.columns];
        for (int j = 0; j < vectors; ++j)
            y[i + j * rows.ld] = sum[j];
    }
}

inline double FinishedSum(Row const& row, std::ptrdiff_t from, double sum, double const* x)
{
    for (std::ptrdiff_t k = from; k < row.length; ++k)
        sum += row.a[k] * x[row.ja[k]];
    return sum;
}

// Two rows at a time, whatever their patterns: a sum is a chain of additions, and two chains hide half of each other's latency. Four gain
// 6 % where the matrix is in the cache, but lose as much where it comes from memory and 25 % where the columns are random.
inline void TimesOne(SparseRows const& rows, double const* x, double* y)
{
    std::ptrdiff_t i = 0;
    for (; i + 2 <= rows.count; i += 2) {
        Row const row = RowAt(rows, i), next = RowAt(rows, i + 1);
        std::ptrdiff_t const common = row.length < next.length ? row.length : next.length;
        double sum = 0.0, nextSum = 0.0;
        Sweep sweep(row, 2);
        for (std::ptrdiff_t k = 0; k < common; ++k) {
            sum += row.a[k] * x[row.ja[k]];
            nextSum += next.a[k] * x[next.ja[k]];
            sweep.Advance<2>();
        }
        y[i] = FinishedSum(row, common, sum, x);
        y[i + 1] = FinishedSum(next, common, nextSum, x);
    }
    if (i < rows.count)
        y[i] = FinishedSum(RowAt(rows, i), 0, 0.0, x);
}

} // namespace
