#include "KVOFortran.h"
#include "dense.h"

#include <string>

namespace
{

int const m = 9, n = 13, one = 1;
double const alpha = 1.25, beta = -0.75;

Dense AsColumn(Vector const& v)
{
    return Filled(static_cast<int>(v.size()), 1, [&](int i, int) { return v[i]; });
}

void ExpectNear(Vector const& actual, Dense const& expected, double tolerance)
{
    ExpectNear(AsColumn(actual), expected, tolerance);
}

} // namespace

TEST(Blas2, GeneralProductAndRankOneUpdate)
{
    Dense const a = Random(m, n, 1);
    for (char const trans : {'N', 'T', 'C', 'n', 't', 'c'}) {
        SCOPED_TRACE(trans);
        Dense const opA = Op(trans, a), x = Random(opA.n, 1, 2), y = Random(opA.m, 1, 3);
        Vector result = Column(y);

        BLAC_DGEMV(&trans, &m, &n, &alpha, a.data(), &a.ld, x.data(), &one, &beta, result.data(), &one);

        ExpectNear(result, Combined(alpha, opA * x, beta, y), ProductTolerance(n, 2.0));
    }

    Dense const x = Random(m, 1, 4), y = Random(n, 1, 5);
    Dense updated = a;
    BLAC_DGER(&m, &n, &alpha, x.data(), &one, y.data(), &one, updated.data(), &updated.ld);
    ExpectNear(updated, Combined(alpha, x * Transposed(y), 1.0, a), ProductTolerance(2, 2.0));
}

TEST(Blas2, SymmetricProducts)
{
    Dense const x = Random(n, 1, 2), y = Random(n, 1, 3);
    for (char const uplo : {'U', 'L'}) {
        SCOPED_TRACE(uplo);
        Dense const a = Random(n, n, 1), stored = Stored(a, uplo);
        Vector const packed = Packed(a, uplo);
        Dense const expected = Combined(alpha, Symmetric(a, uplo) * x, beta, y);
        Vector full = Column(y), fromPacked = Column(y);

        BLAC_DSYMV(&uplo, &n, &alpha, stored.data(), &stored.ld, x.data(), &one, &beta, full.data(), &one);
        BLAC_DSPMV(&uplo, &n, &alpha, packed.data(), x.data(), &one, &beta, fromPacked.data(), &one);

        ExpectNear(full, expected, ProductTolerance(n, 2.0));
        ExpectNear(fromPacked, expected, ProductTolerance(n, 2.0));
    }
}

TEST(Blas2, SymmetricUpdates)
{
    Dense const a = Random(n, n, 1), x = Random(n, 1, 2), y = Random(n, 1, 3);
    Dense const square = x * Transposed(x), cross = x * Transposed(y);
    for (char const uplo : {'U', 'L'}) {
        SCOPED_TRACE(uplo);
        Dense const rank1 = Combined(alpha, square, 1.0, a), rank2 = Combined(alpha, Combined(1.0, cross, 1.0, Transposed(cross)), 1.0, a);
        Dense full1 = Stored(a, uplo), full2 = full1;
        Vector packed1 = Packed(a, uplo), packed2 = packed1;

        BLAC_DSYR(&uplo, &n, &alpha, x.data(), &one, full1.data(), &full1.ld);
        BLAC_DSYR2(&uplo, &n, &alpha, x.data(), &one, y.data(), &one, full2.data(), &full2.ld);
        BLAC_DSPR(&uplo, &n, &alpha, x.data(), &one, packed1.data());
        BLAC_DSPR2(&uplo, &n, &alpha, x.data(), &one, y.data(), &one, packed2.data());

        ExpectTriangleNear(full1, rank1, uplo, ProductTolerance(3, 2.0));
        ExpectTriangleNear(full2, rank2, uplo, ProductTolerance(3, 2.0));
        ExpectNear(Unpacked(packed1, uplo, n), Triangle(rank1, uplo), ProductTolerance(3, 2.0));
        ExpectNear(Unpacked(packed2, uplo, n), Triangle(rank2, uplo), ProductTolerance(3, 2.0));
    }
}

TEST(Blas2, TriangularProductsAndSolves)
{
    // Small entries beside the diagonal, so that the solve is as accurate as the product.
    Dense const a = Filled(n, n, [entries = Random(n, n, 1)](int i, int j) { return i == j ? 2.0 + entries(i, j) : entries(i, j) / n; });
    Dense const x = Random(n, 1, 2);
    for (char const uplo : {'U', 'L'})
        for (char const trans : {'N', 'T', 'C'})
            for (char const diag : {'N', 'U'}) {
                SCOPED_TRACE((std::string{uplo, trans, diag}));
                Dense const stored = Stored(a, uplo, diag), expected = Op(trans, Triangle(a, uplo, diag)) * x;
                Vector const packed = Packed(stored, uplo);
                Vector full = Column(x), fromPacked = full;

                BLAC_DTRMV(&uplo, &trans, &diag, &n, stored.data(), &stored.ld, full.data(), &one);
                BLAC_DTPMV(&uplo, &trans, &diag, &n, packed.data(), fromPacked.data(), &one);
                ExpectNear(full, expected, ProductTolerance(n, 3.0));
                ExpectNear(fromPacked, expected, ProductTolerance(n, 3.0));

                BLAC_DTRSV(&uplo, &trans, &diag, &n, stored.data(), &stored.ld, full.data(), &one);
                BLAC_DTPSV(&uplo, &trans, &diag, &n, packed.data(), fromPacked.data(), &one);
                ExpectNear(full, x, 4.0 * ProductTolerance(n, 3.0));
                ExpectNear(fromPacked, x, 4.0 * ProductTolerance(n, 3.0));
            }
}
