// The entry points hand over what they are given: on the same arrays they leave the bits that the provider's routines leave, which are
// called here by their documented arguments. Sizes, leading dimensions and increments differ, so that none can stand for another.

#include "Dense.h"
#include "KVOFortran.h"
#include "provider.h"

#include <tuple>
#include <utility>

namespace
{

template<class T>
T* Address(T& scalar)
{
    return &scalar;
}
template<class T>
T* Address(std::vector<T>& array)
{
    return array.data();
}

template<class Ours, class Theirs, class... Arguments>
void ExpectForwarded(Ours const& ours, Theirs const& theirs, Arguments... arguments)
{
    auto const before = std::tuple(arguments...);
    auto const resultOf = [&](auto const& routine) {
        std::tie(arguments...) = before; // where they were: bits may depend on how arrays are aligned
        double result = 0.0;
        if constexpr (std::is_void_v<decltype(routine(Address(arguments)...))>)
            routine(Address(arguments)...);
        else
            result = routine(Address(arguments)...);
        return std::pair(result, std::tuple(arguments...));
    };
    constexpr std::size_t kCharacters = (std::is_same_v<Arguments, char> + ...);
    auto const expected = [&]<std::size_t... k>(std::index_sequence<k...>)
    {
        return resultOf([&](auto*... a) { return theirs(a..., (static_cast<void>(k), blac::kLength1)...); });
    }
    (std::make_index_sequence<kCharacters>());
    EXPECT_TRUE(resultOf(ours) == expected);
    EXPECT_TRUE(expected != std::pair(0.0, before)) << "it does nothing";
}

#define EXPECT_FORWARDED(ours, theirs, ...)                                                                                                \
    {                                                                                                                                      \
        SCOPED_TRACE(#ours);                                                                                                               \
        ExpectForwarded(ours, theirs, __VA_ARGS__);                                                                                        \
    }

int const m = 7, n = 5, k = 4, nrhs = 3, lwork = 2000, liwork = 200;
double const alpha = 1.25, beta = -0.75;
// Their leading dimensions: of A 9, of B 10, of C 11, increments: of X 3, of Y 2.
int const lda = 9, ldb = 10, ldc = 11, incx = 3, incy = 2;

Vector Numbers(unsigned seed)
{
    return Seeded(lwork, 1, seed).values;
}

// Rows by rows, with a diagonal that dominates: its triangles, and what is symmetric with one of them, are regular.
Vector Regular(int rows, int ld, unsigned seed)
{
    Vector a = Numbers(seed);
    for (int i = 0; i < rows; ++i)
        a[static_cast<std::size_t>(i) * (ld + 1)] += 2 * rows;
    return a;
}

// The same with its triangle packed.
Vector RegularPacked(int order, char uplo)
{
    Vector packed = Numbers(6);
    for (int i = 0; i < order; ++i)
        packed[static_cast<std::size_t>(uplo == 'U' ? i * (i + 3) / 2 : i * (2 * order - i + 1) / 2)] += 2 * order;
    return packed;
}

Vector const a = Regular(m, lda, 1), b = Regular(m, ldb, 2), c = Numbers(3), x = Numbers(4), y = Numbers(5), work(lwork);
std::vector<int> const integers(liwork);

} // namespace

TEST(Forwards, VectorsAndProducts)
{
    EXPECT_FORWARDED(BLAC_DASUM, dasum_, n, x, incy);
    EXPECT_FORWARDED(BLAC_DAXPY, daxpy_, n, alpha, x, incx, y, incy);
    EXPECT_FORWARDED(BLAC_DCOPY, dcopy_, n, x, incx, y, incy);
    EXPECT_FORWARDED(BLAC_DDOT, ddot_, n, x, incx, y, incy);
    EXPECT_FORWARDED(BLAC_DNRM2, dnrm2_, n, x, incy);
    EXPECT_FORWARDED(BLAC_DROT, drot_, n, x, incx, y, incy, 0.6, 0.8);
    EXPECT_FORWARDED(BLAC_DSCAL, dscal_, n, alpha, x, incy);
    EXPECT_FORWARDED(BLAC_DSWAP, dswap_, n, x, incx, y, incy);
    EXPECT_FORWARDED(BLAC_IDAMAX, idamax_, n, x, incy);
    EXPECT_FORWARDED(BLAC_DGER, dger_, m, n, alpha, x, incx, y, incy, a, lda);
    for (char const trans : {'N', 'T'}) {
        EXPECT_FORWARDED(BLAC_DGEMV, dgemv_, trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
        EXPECT_FORWARDED(BLAC_DGEMM, dgemm_, trans, 'T', m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
        EXPECT_FORWARDED(BLAC_DGEMM, dgemm_, 'N', trans, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
    }
    for (char const uplo : {'U', 'L'}) {
        EXPECT_FORWARDED(BLAC_DSYMV, dsymv_, uplo, n, alpha, a, lda, x, incx, beta, y, incy);
        EXPECT_FORWARDED(BLAC_DSPMV, dspmv_, uplo, n, alpha, a, x, incx, beta, y, incy);
        EXPECT_FORWARDED(BLAC_DSYR, dsyr_, uplo, n, alpha, x, incy, a, lda);
        EXPECT_FORWARDED(BLAC_DSYR2, dsyr2_, uplo, n, alpha, x, incx, y, incy, a, lda);
        EXPECT_FORWARDED(BLAC_DSPR, dspr_, uplo, n, alpha, x, incy, a);
        EXPECT_FORWARDED(BLAC_DSPR2, dspr2_, uplo, n, alpha, x, incx, y, incy, a);
        EXPECT_FORWARDED(BLAC_DSYMM, dsymm_, 'R', uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc);
        EXPECT_FORWARDED(BLAC_DSYRK, dsyrk_, uplo, 'T', n, k, alpha, a, lda, beta, c, ldc);
        EXPECT_FORWARDED(BLAC_DSYR2K, dsyr2k_, uplo, 'N', n, k, alpha, a, lda, b, ldb, beta, c, ldc);
        for (char const trans : {'N', 'T'})
            for (char const diag : {'N', 'U'}) {
                EXPECT_FORWARDED(BLAC_DTRMV, dtrmv_, uplo, trans, diag, n, a, lda, x, incy);
                EXPECT_FORWARDED(BLAC_DTPMV, dtpmv_, uplo, trans, diag, n, a, x, incy);
                EXPECT_FORWARDED(BLAC_DTRSV, dtrsv_, uplo, trans, diag, n, a, lda, x, incy);
                EXPECT_FORWARDED(BLAC_DTPSV, dtpsv_, uplo, trans, diag, n, RegularPacked(n, uplo), x, incy);
                EXPECT_FORWARDED(BLAC_DTRMM, dtrmm_, 'R', uplo, trans, diag, m, n, alpha, a, lda, b, ldb);
                EXPECT_FORWARDED(BLAC_DTRSM, dtrsm_, 'R', uplo, trans, diag, m, n, alpha, a, lda, b, ldb);
            }
    }
}

TEST(Forwards, LinearSystems)
{
    std::vector<int> const pivots{3, 2, 4, 4, 5};
    EXPECT_FORWARDED(BLAC_DGELSS, dgelss_, m, n, nrhs, a, lda, b, ldb, x, 1e-10, -1, work, lwork, -1);
    EXPECT_FORWARDED(BLAC_DGESV, dgesv_, n, nrhs, a, lda, integers, b, ldb, -1);
    EXPECT_FORWARDED(BLAC_DGETRF, dgetrf_, m, n, a, lda, integers, -1);
    for (char const trans : {'N', 'T'})
        EXPECT_FORWARDED(BLAC_DGETRS, dgetrs_, trans, n, nrhs, a, lda, pivots, b, ldb, -1);
    for (char const uplo : {'U', 'L'}) {
        Vector const packed = RegularPacked(n, uplo);
        EXPECT_FORWARDED(BLAC_DPOTRF, dpotrf_, uplo, n, a, lda, -1);
        EXPECT_FORWARDED(BLAC_DPPSV, dppsv_, uplo, n, nrhs, packed, b, ldb, -1);
        EXPECT_FORWARDED(BLAC_DPPTRF, dpptrf_, uplo, n, packed, -1);
        EXPECT_FORWARDED(BLAC_DPPTRI, dpptri_, uplo, n, packed, -1);
        EXPECT_FORWARDED(BLAC_DPPTRS, dpptrs_, uplo, n, nrhs, packed, b, ldb, -1);
        EXPECT_FORWARDED(BLAC_DSYTRF, dsytrf_, uplo, n, a, lda, integers, work, lwork, -1);
        EXPECT_FORWARDED(BLAC_DSYTRS, dsytrs_, uplo, n, nrhs, a, lda, pivots, b, ldb, -1);
        EXPECT_FORWARDED(BLAC_DTPTRI, dtptri_, uplo, 'U', n, packed, -1);
    }
}

TEST(Forwards, Eigenproblems)
{
    int const il = 2, iu = 3;
    double const vl = 7.0, vu = 11.0, abstol = 1e-15;
    EXPECT_FORWARDED(BLAC_DGEEV, dgeev_, 'V', 'N', n, a, lda, x, y, b, ldb, c, ldc, work, lwork, -1);
    EXPECT_FORWARDED(BLAC_ZGEEV, zgeev_, 'N', 'V', n, a, lda, x, b, ldb, c, ldc, work, lwork / 2, y, -1); // complex numbers are two
    for (char const uplo : {'U', 'L'}) {
        EXPECT_FORWARDED(BLAC_DSYEV, dsyev_, 'V', uplo, n, a, lda, x, work, lwork, -1);
        EXPECT_FORWARDED(BLAC_DSYGST, dsygst_, 1, uplo, n, a, lda, b, ldb, -1);
        EXPECT_FORWARDED(BLAC_DSYGV, dsygv_, 2, 'V', uplo, n, a, lda, b, ldb, x, work, lwork, -1);
        EXPECT_FORWARDED(BLAC_DSYTRD, dsytrd_, uplo, n, a, lda, x, y, c, work, lwork, -1);
        EXPECT_FORWARDED(BLAC_DORMTR, dormtr_, 'R', uplo, 'T', m, n, a, lda, x, c, ldc, work, lwork, -1);
        for (char const range : {'I', 'V'}) {
            EXPECT_FORWARDED(BLAC_DSYEVX, dsyevx_, 'V', range, uplo, n, a, lda, vl, vu, il, iu, abstol, -1, x, c, ldc, work, lwork,
                             integers, integers, -1);
            EXPECT_FORWARDED(BLAC_DSPEVX, dspevx_, 'V', range, uplo, n, RegularPacked(n, uplo), vl, vu, il, iu, abstol, -1, x, c, ldc, work,
                             integers, integers, -1);
        }
    }
    for (char const range : {'I', 'V'}) {
        EXPECT_FORWARDED(BLAC_DSTEVR, dstevr_, 'V', range, n, x, y, -0.5, 0.5, il, iu, abstol, -1, b, c, ldc, integers, work, lwork,
                         integers, liwork, -1);
        EXPECT_FORWARDED(BLAC_DSTEMR, dstemr_, 'V', range, n, x, y, -0.5, 0.5, il, iu, -1, b, c, ldc, n, integers, 1, work, lwork, integers,
                         liwork, -1);
    }
}

// And the provider, whichever it is, is one that takes 32-bit integers and computes.
TEST(Provider, MultipliesAndFindsEigenpairs)
{
    Dense const first = Seeded(m, k, 1), second = Seeded(n, k, 2), before = Seeded(m, n, 3);
    Dense product = before;
    BLAC_DGEMM("N", "t", &m, &n, &k, &alpha, first.data(), &first.ld, second.data(), &second.ld, &beta, product.data(), &product.ld);
    ExpectSame(product, Combined(alpha, first * Transposed(second), beta, before), ProductTolerance(k, 2.0));

    Dense const matrix = Filled(n, n, [](int i, int j) { return 1.0 / (i + j + 1); });
    Dense vectors = matrix, values(1, n), space(1, lwork);
    int info = -1;
    BLAC_DSYEV("V", "L", &n, vectors.data(), &vectors.ld, values.data(), space.data(), &lwork, &info);
    EXPECT_EQ(info, 0);
    ExpectSame(matrix * vectors, Filled(n, n, [&](int i, int j) { return values.At(0, j) * vectors.At(i, j); }), 100 * n * kEpsilon);
    ExpectSame(Transposed(vectors) * vectors, Filled(n, n, [](int i, int j) { return i == j ? 1.0 : 0.0; }), 100 * n * kEpsilon);
}
