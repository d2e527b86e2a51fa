// The loops of the sparse kernels for processors with AVX2.

#include "sparse_times.h"
#include "sparse_transposed.h"

#include <immintrin.h>

namespace
{

struct Eight {
    __m256d low, high;

    [[gnu::always_inline]] static Eight Zero() { return {_mm256_setzero_pd(), _mm256_setzero_pd()}; }
    [[gnu::always_inline]] void AddProduct(double a, Eight const& x)
    {
        __m256d const factor = _mm256_set1_pd(a);
        low = _mm256_add_pd(low, _mm256_mul_pd(factor, x.low));
        high = _mm256_add_pd(high, _mm256_mul_pd(factor, x.high));
    }

    [[gnu::always_inline]] static __m256d Join(double const* p, double const* q)
    {
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(p)), _mm_loadu_pd(q), 1);
    }
    [[gnu::always_inline]] static void Load(EightVectors::Row const& x, Eight (&column)[2])
    {
        __m256d const x02 = Join(x[0], x[2]), x13 = Join(x[1], x[3]), x46 = Join(x[4], x[6]), x57 = Join(x[5], x[7]);
        column[0] = {_mm256_unpacklo_pd(x02, x13), _mm256_unpacklo_pd(x46, x57)};
        column[1] = {_mm256_unpackhi_pd(x02, x13), _mm256_unpackhi_pd(x46, x57)};
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

    [[gnu::always_inline]] static __m256d Four(double const* p, double const* q, double const* r, double const* s)
    {
        __m128d const low = _mm_loadh_pd(_mm_load_sd(p), q), high = _mm_loadh_pd(_mm_load_sd(r), s);
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(low), high, 1);
    }
    [[gnu::always_inline]] static void Load(EightVectors::Row const& x, Eight (&column)[1])
    {
        column[0] = {Four(x[0], x[1], x[2], x[3]), Four(x[4], x[5], x[6], x[7])};
    }

    [[gnu::always_inline]] static void StoreFour(double* y, std::ptrdiff_t ld, __m256d four)
    {
        __m128d const y01 = _mm256_castpd256_pd128(four), y23 = _mm256_extractf128_pd(four, 1);
        _mm_storel_pd(y, y01);
        _mm_storeh_pd(y + ld, y01);
        _mm_storel_pd(y + 2 * ld, y23);
        _mm_storeh_pd(y + 3 * ld, y23);
    }
    [[gnu::always_inline]] void Store(double* y, std::ptrdiff_t ld) const
    {
        StoreFour(y, ld, low);
        StoreFour(y + 4 * ld, ld, high);
    }
};

} // namespace

blac::SparseKernels const blac::sparseKernelsAvx2{
    {TimesEight<Eight>, TimesSome<4>, TimesSome<2>, TimesOne},
    {TransposedTimes<4, 8>, TransposedTimes<4, 4>, TransposedTimes<4, 2>, TransposedTimes<4, 1>},
    {TransposedTimesInterleaved<4, 8>, TransposedTimesInterleaved<4, 4>, TransposedTimesInterleaved<4, 2>, TransposedTimes<4, 1>}};
