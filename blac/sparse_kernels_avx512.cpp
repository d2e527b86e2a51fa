// The loops of the sparse kernels for processors with AVX-512.

#include "sparse_times.h"
#include "sparse_transposed.h"

#include <immintrin.h>

namespace
{

// The vectors stand in the order 0 1 4 5 2 3 6 7, which takes the fewest shuffles.
struct Eight {
    __m512d v;

    [[gnu::always_inline]] static Eight Zero() { return {_mm512_setzero_pd()}; }
    [[gnu::always_inline]] void AddProduct(double a, Eight const& x) { v = _mm512_add_pd(v, _mm512_mul_pd(_mm512_set1_pd(a), x.v)); }

    // Rows 0 to 3 of vectors j and j + 4.
    [[gnu::always_inline]] static __m512d Join4(double const* xj, double const* xj4)
    {
        return _mm512_insertf64x4(_mm512_castpd256_pd512(_mm256_loadu_pd(xj)), _mm256_loadu_pd(xj4), 1);
    }
    [[gnu::always_inline]] static void Load(EightVectors::Row const& x, Eight (&column)[4])
    {
        __m512d const x0 = Join4(x[0], x[4]), x1 = Join4(x[1], x[5]), x2 = Join4(x[2], x[6]), x3 = Join4(x[3], x[7]);
        __m512d const even01 = _mm512_unpacklo_pd(x0, x1), odd01 = _mm512_unpackhi_pd(x0, x1);
        __m512d const even23 = _mm512_unpacklo_pd(x2, x3), odd23 = _mm512_unpackhi_pd(x2, x3);
        column[0].v = _mm512_shuffle_f64x2(even01, even23, 0x88);
        column[1].v = _mm512_shuffle_f64x2(odd01, odd23, 0x88);
        column[2].v = _mm512_shuffle_f64x2(even01, even23, 0xdd);
        column[3].v = _mm512_shuffle_f64x2(odd01, odd23, 0xdd);
    }

    // Two rows of four vectors.
    [[gnu::always_inline]] static __m512d Join2(double const* p, double const* q, double const* r, double const* s)
    {
        __m256d const low = _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(p)), _mm_loadu_pd(q), 1);
        __m256d const high = _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(r)), _mm_loadu_pd(s), 1);
        return _mm512_insertf64x4(_mm512_castpd256_pd512(low), high, 1);
    }
    [[gnu::always_inline]] static void Load(EightVectors::Row const& x, Eight (&column)[2])
    {
        __m512d const even = Join2(x[0], x[4], x[2], x[6]), odd = Join2(x[1], x[5], x[3], x[7]);
        column[0].v = _mm512_unpacklo_pd(even, odd);
        column[1].v = _mm512_unpackhi_pd(even, odd);
    }

    [[gnu::always_inline]] static __m128d Pair(double const* p, double const* q) { return _mm_loadh_pd(_mm_load_sd(p), q); }
    [[gnu::always_inline]] static void Load(EightVectors::Row const& x, Eight (&column)[1])
    {
        __m256d const low = _mm256_insertf128_pd(_mm256_castpd128_pd256(Pair(x[0], x[1])), Pair(x[4], x[5]), 1);
        __m256d const high = _mm256_insertf128_pd(_mm256_castpd128_pd256(Pair(x[2], x[3])), Pair(x[6], x[7]), 1);
        column[0].v = _mm512_insertf64x4(_mm512_castpd256_pd512(low), high, 1);
    }

    [[gnu::always_inline]] static void StorePair(double* y, std::ptrdiff_t ld, int j, __m128d pair)
    {
        _mm_storel_pd(y + j * ld, pair);
        _mm_storeh_pd(y + (j + 1) * ld, pair);
    }
    [[gnu::always_inline]] void Store(double* y, std::ptrdiff_t ld) const
    {
        StorePair(y, ld, 0, _mm512_castpd512_pd128(v));
        StorePair(y, ld, 4, _mm512_extractf64x2_pd(v, 1));
        StorePair(y, ld, 2, _mm512_extractf64x2_pd(v, 2));
        StorePair(y, ld, 6, _mm512_extractf64x2_pd(v, 3));
    }
};

} // namespace

blac::SparseKernels const blac::sparseKernelsAvx512{
    {TimesEight<Eight>, TimesSome<4>, TimesSome<2>, TimesOne},
    {TransposedTimes<8, 8>, TransposedTimes<8, 4>, TransposedTimes<8, 2>, TransposedTimes<8, 1>},
    {TransposedTimesInterleaved<8, 8>, TransposedTimesInterleaved<8, 4>, TransposedTimesInterleaved<8, 2>, TransposedTimes<8, 1>}};
