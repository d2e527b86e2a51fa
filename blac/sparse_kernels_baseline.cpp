// The loops of the sparse kernels for every 64-bit processor.

#include "sparse_times.h"
#include "sparse_transposed.h"

#include <emmintrin.h>

namespace
{

struct Eight {
    __m128d pair[4];

    [[gnu::always_inline]] static Eight Zero() { return {{_mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd()}}; }
    [[gnu::always_inline]] void AddProduct(double a, Eight const& x)
    {
        __m128d const factor = _mm_set1_pd(a);
        pair[0] = _mm_add_pd(pair[0], _mm_mul_pd(factor, x.pair[0]));
        pair[1] = _mm_add_pd(pair[1], _mm_mul_pd(factor, x.pair[1]));
        pair[2] = _mm_add_pd(pair[2], _mm_mul_pd(factor, x.pair[2]));
        pair[3] = _mm_add_pd(pair[3], _mm_mul_pd(factor, x.pair[3]));
    }

    [[gnu::always_inline]] static void LoadPair(double const* p, double const* q, __m128d& first, __m128d& second)
    {
        __m128d const even = _mm_loadu_pd(p), odd = _mm_loadu_pd(q);
        first = _mm_unpacklo_pd(even, odd);
        second = _mm_unpackhi_pd(even, odd);
    }
    [[gnu::always_inline]] static void Load(EightVectors::Row const& x, Eight (&column)[2])
    {
        LoadPair(x[0], x[1], column[0].pair[0], column[1].pair[0]);
        LoadPair(x[2], x[3], column[0].pair[1], column[1].pair[1]);
        LoadPair(x[4], x[5], column[0].pair[2], column[1].pair[2]);
        LoadPair(x[6], x[7], column[0].pair[3], column[1].pair[3]);
    }
    [[gnu::always_inline]] static void Load(EightVectors::Row const& x, Eight (&column)[4])
    {
        Eight two[2];
        Load(x, two);
        column[0] = two[0];
        column[1] = two[1];
        Load(x.Down(2), two);
        column[2] = two[0];
        column[3] = two[1];
    }
    [[gnu::always_inline]] static void Load(EightVectors::Row const& x, Eight (&column)[1])
    {
        column[0] = {{_mm_loadh_pd(_mm_load_sd(x[0]), x[1]), _mm_loadh_pd(_mm_load_sd(x[2]), x[3]), _mm_loadh_pd(_mm_load_sd(x[4]), x[5]),
                      _mm_loadh_pd(_mm_load_sd(x[6]), x[7])}};
    }

    [[gnu::always_inline]] void Store(double* y, std::ptrdiff_t ld) const
    {
        for (int p = 0; p < 4; ++p) {
            _mm_storel_pd(y + 2 * p * ld, pair[p]);
            _mm_storeh_pd(y + (2 * p + 1) * ld, pair[p]);
        }
    }
};

} // namespace

blac::SparseKernels const blac::sparseKernelsBaseline{
    {TimesEight<Eight>, TimesSome<4>, TimesSome<2>, TimesOne},
    {TransposedTimes<2, 8>, TransposedTimes<2, 4>, TransposedTimes<2, 2>, TransposedTimes<2, 1>},
    {TransposedTimesInterleaved<2, 8>, TransposedTimesInterleaved<2, 4>, TransposedTimesInterleaved<2, 2>, TransposedTimes<2, 1>}};
