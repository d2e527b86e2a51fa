#include "Dense.h"
#include "KVOFortran.h"

#include <string>

namespace
{

int const m = 17, n = 11, k = 14;
double const alpha = 1.25, beta = -0.75;

} // namespace

// Vectors are rows of matrices, here and below: their increments differ, and what they skip is seen to stay.
TEST(Blas, Vectors)
{
    Dense const x0 = Seeded(1, n, 1), y0 = Seeded(1, n, 2);
    Dense x = x0, y = y0;
    double const c = 0.6, s = 0.8;
    double sum = 0.0;
    int largest = 0;
    for (int i = 0; i < n; ++i) {
        sum += std::abs(x.At(0, i));
        largest = std::abs(x.At(0, i)) > std::abs(x.At(0, largest)) ? i : largest;
    }

    EXPECT_NEAR(BLAC_DASUM(&n, x.data(), &x.ld), sum, ProductTolerance(n));
    EXPECT_NEAR(BLAC_DDOT(&n, x.data(), &x.ld, y.data(), &y.ld), (x * Transposed(y)).At(0, 0), ProductTolerance(n));
    EXPECT_NEAR(BLAC_DNRM2(&n, x.data(), &x.ld), std::sqrt((x * Transposed(x)).At(0, 0)), ProductTolerance(n));
    EXPECT_EQ(BLAC_IDAMAX(&n, x.data(), &x.ld), largest + 1);

    BLAC_DROT(&n, x.data(), &x.ld, y.data(), &y.ld, &c, &s);
    ExpectNear(x, Combined(c, x0, s, y0), ProductTolerance(2));
    ExpectNear(y, Combined(c, y0, -s, x0), ProductTolerance(2));

    x = x0, y = y0;
    BLAC_DAXPY(&n, &alpha, x.data(), &x.ld, y.data(), &y.ld);
    Dense const axpy = y;
    ExpectNear(y, Combined(alpha, x0, 1.0, y0), ProductTolerance(2, alpha));
    BLAC_DSWAP(&n, x.data(), &x.ld, y.data(), &y.ld);
    ExpectNear(x, axpy, 0.0);
    ExpectNear(y, x0, 0.0);
    BLAC_DCOPY(&n, x.data(), &x.ld, y.data(), &y.ld);
    ExpectNear(y, axpy, 0.0);
    BLAC_DSCAL(&n, &alpha, x.data(), &x.ld);
    ExpectNear(x, Combined(alpha, axpy, 0.0, axpy), 0.0);
}

TEST(Blas, GeneralMatrices)
{
    for (char const transa : {'N', 'T', 'C', 'n', 't', 'c'})
        for (char const transb : {'N', 'T', 'C', 'n', 't', 'c'}) {
            SCOPED_TRACE((std::string{transa, transb}));
            Dense const opA = Seeded(m, k, 1), opB = Seeded(k, n, 2), a = Op(transa, opA), b = Op(transb, opB);
            Dense const x = Seeded(1, k, 3), y0 = Seeded(1, m, 4), c0 = Seeded(m, n, 5);
            Dense y = y0, updated = a, c = c0;

            BLAC_DGEMV(&transa, &a.rows, &a.columns, &alpha, a.data(), &a.ld, x.data(), &x.ld, &beta, y.data(), &y.ld);
            ExpectNear(y, Combined(alpha, x * Transposed(opA), beta, y0), ProductTolerance(k, 2.0));

            Dense const u = Seeded(1, a.rows, 6), w = Seeded(1, a.columns, 7);
            BLAC_DGER(&a.rows, &a.columns, &alpha, u.data(), &u.ld, w.data(), &w.ld, updated.data(), &updated.ld);
            ExpectNear(updated, Combined(alpha, Transposed(u) * w, 1.0, a), ProductTolerance(2, 2.0));

            BLAC_DGEMM(&transa, &transb, &m, &n, &k, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c.data(), &c.ld);
            ExpectNear(c, Combined(alpha, opA * opB, beta, c0), ProductTolerance(k, 2.0));
        }
}

TEST(Blas, SymmetricOperands)
{
    for (char const side : {'L', 'R'})
        for (char const uplo : {'U', 'L'}) {
            SCOPED_TRACE((std::string{side, uplo}));
            int const order = side == 'L' ? m : n;
            Dense const a = Seeded(order, order, 1), symmetric = Symmetric(a, uplo), stored = Stored(a, uplo);
            Dense const x = Seeded(1, order, 2), y0 = Seeded(1, order, 3), b = Seeded(m, n, 4), c0 = Seeded(m, n, 5);
            Dense full = y0, packed = y0, c = c0;

            BLAC_DSYMV(&uplo, &order, &alpha, stored.data(), &stored.ld, x.data(), &x.ld, &beta, full.data(), &full.ld);
            BLAC_DSPMV(&uplo, &order, &alpha, Packed(a, uplo).data(), x.data(), &x.ld, &beta, packed.data(), &packed.ld);
            BLAC_DSYMM(&side, &uplo, &m, &n, &alpha, stored.data(), &stored.ld, b.data(), &b.ld, &beta, c.data(), &c.ld);

            ExpectNear(full, Combined(alpha, x * symmetric, beta, y0), ProductTolerance(order, 2.0));
            ExpectNear(packed, full, ProductTolerance(order, 2.0));
            ExpectNear(c, Combined(alpha, side == 'L' ? symmetric * b : b * symmetric, beta, c0), ProductTolerance(order, 2.0));
        }
}

TEST(Blas, SymmetricResults)
{
    for (char const uplo : {'U', 'L'})
        for (char const trans : {'N', 'T'}) {
            SCOPED_TRACE((std::string{uplo, trans}));
            Dense const c = Symmetric(Seeded(n, n, 1), 'U'), opA = Seeded(n, k, 2), opB = Seeded(n, k, 3), a = Op(trans, opA),
                        b = Op(trans, opB), x = Seeded(1, n, 4), y = Seeded(1, n, 5);
            auto const expectUpdate = [&](Dense const& actual, Dense const& product, double factor, int terms) {
                ExpectNear(actual, Stored(Combined(alpha, product, factor, c), uplo), ProductTolerance(terms, 2.0));
            };
            auto const expectPackedUpdate = [&](Vector const& actual, Dense const& full) {
                ExpectNear(Unpacked(actual, uplo, n), Triangle(full, uplo), ProductTolerance(3, 2.0));
            };
            auto const plusTransposed = [](Dense const& product) { return Combined(1.0, product, 1.0, Transposed(product)); };
            Dense syr = Stored(c, uplo), syr2 = syr, syrk = syr, syr2k = syr;
            Vector spr = Packed(c, uplo), spr2 = spr;

            BLAC_DSYR(&uplo, &n, &alpha, x.data(), &x.ld, syr.data(), &syr.ld);
            BLAC_DSPR(&uplo, &n, &alpha, x.data(), &x.ld, spr.data());
            BLAC_DSYR2(&uplo, &n, &alpha, x.data(), &x.ld, y.data(), &y.ld, syr2.data(), &syr2.ld);
            BLAC_DSPR2(&uplo, &n, &alpha, x.data(), &x.ld, y.data(), &y.ld, spr2.data());
            BLAC_DSYRK(&uplo, &trans, &n, &k, &alpha, a.data(), &a.ld, &beta, syrk.data(), &syrk.ld);
            BLAC_DSYR2K(&uplo, &trans, &n, &k, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, syr2k.data(), &syr2k.ld);

            expectUpdate(syr, Transposed(x) * x, 1.0, 3);
            expectPackedUpdate(spr, syr);
            expectUpdate(syr2, plusTransposed(Transposed(x) * y), 1.0, 3);
            expectPackedUpdate(spr2, syr2);
            expectUpdate(syrk, opA * Transposed(opA), beta, k);
            expectUpdate(syr2k, plusTransposed(opA * Transposed(opB)), beta, 2 * k);
        }
}

TEST(Blas, TriangularProductsAndSolves)
{
    double const inverse = 1.0 / alpha;
    for (char const side : {'L', 'R'})
        for (char const uplo : {'U', 'L'})
            for (char const trans : {'N', 'T', 'C'})
                for (char const diag : {'N', 'U'}) {
                    SCOPED_TRACE((std::string{side, uplo, trans, diag}));
                    int const order = side == 'L' ? m : n;
                    Dense const a = Combined(diag == 'U' ? 1.0 / order : 2.0 / order, Dominated(order, 1), 0.0, Dense(order, order));
                    Dense const stored = Stored(a, uplo, diag), opA = Op(trans, Triangle(a, uplo, diag));
                    Dense const x = Seeded(1, order, 3), b0 = Seeded(m, n, 4);
                    Vector const packed = Packed(stored, uplo);
                    Dense full = x, fromPacked = x, b = b0;

                    BLAC_DTRMV(&uplo, &trans, &diag, &order, stored.data(), &stored.ld, full.data(), &full.ld);
                    BLAC_DTPMV(&uplo, &trans, &diag, &order, packed.data(), fromPacked.data(), &fromPacked.ld);
                    BLAC_DTRMM(&side, &uplo, &trans, &diag, &m, &n, &alpha, stored.data(), &stored.ld, b.data(), &b.ld);
                    ExpectNear(full, x * Transposed(opA), ProductTolerance(order, 3.0));
                    ExpectNear(fromPacked, full, ProductTolerance(order, 3.0));
                    ExpectNear(b, Combined(alpha, side == 'L' ? opA * b0 : b0 * opA, 0.0, b0), ProductTolerance(order, 4.0));

                    BLAC_DTRSV(&uplo, &trans, &diag, &order, stored.data(), &stored.ld, full.data(), &full.ld);
                    BLAC_DTPSV(&uplo, &trans, &diag, &order, packed.data(), fromPacked.data(), &fromPacked.ld);
                    BLAC_DTRSM(&side, &uplo, &trans, &diag, &m, &n, &inverse, stored.data(), &stored.ld, b.data(), &b.ld);
                    ExpectNear(full, x, 4.0 * ProductTolerance(order, 3.0));
                    ExpectNear(fromPacked, x, 4.0 * ProductTolerance(order, 3.0));
                    ExpectNear(b, b0, 4.0 * ProductTolerance(order, 4.0));
                }
}
