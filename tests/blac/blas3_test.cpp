#include "KVOFortran.h"
#include "dense.h"

#include <string>

namespace
{

int const m = 17, n = 11, k = 14;
double const alpha = 1.25, beta = -0.75;

} // namespace

TEST(Blas3, GeneralProduct)
{
    for (char const transa : {'N', 'T', 'C'})
        for (char const transb : {'n', 't', 'c'}) {
            SCOPED_TRACE((std::string{transa, transb}));
            Dense const opA = Random(m, k, 1), opB = Random(k, n, 2), before = Random(m, n, 3);
            Dense const a = Op(transa, opA), b = Op(transb, opB);
            Dense c = before;

            BLAC_DGEMM(&transa, &transb, &m, &n, &k, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c.data(), &c.ld);

            ExpectNear(c, Combined(alpha, opA * opB, beta, before), ProductTolerance(k, 2.0));
        }
}

TEST(Blas3, SymmetricOperand)
{
    Dense const b = Random(m, n, 2), before = Random(m, n, 3);
    for (char const side : {'L', 'R'})
        for (char const uplo : {'U', 'L'}) {
            SCOPED_TRACE((std::string{side, uplo}));
            int const order = side == 'L' ? m : n;
            Dense const a = Random(order, order, 1), symmetric = Symmetric(a, uplo), stored = Stored(a, uplo);
            Dense c = before;

            BLAC_DSYMM(&side, &uplo, &m, &n, &alpha, stored.data(), &stored.ld, b.data(), &b.ld, &beta, c.data(), &c.ld);

            ExpectNear(c, Combined(alpha, side == 'L' ? symmetric * b : b * symmetric, beta, before), ProductTolerance(m, 2.0));
        }
}

TEST(Blas3, SymmetricResult)
{
    Dense const opA = Random(n, k, 1), opB = Random(n, k, 2), before = Symmetric(Random(n, n, 3), 'U');
    Dense const cross = opA * Transposed(opB);
    Dense const rankK = Combined(alpha, opA * Transposed(opA), beta, before);
    Dense const rank2K = Combined(alpha, Combined(1.0, cross, 1.0, Transposed(cross)), beta, before);
    for (char const uplo : {'U', 'L'})
        for (char const trans : {'N', 'T'}) {
            SCOPED_TRACE((std::string{uplo, trans}));
            Dense const a = Op(trans, opA), b = Op(trans, opB);
            Dense c1 = Stored(before, uplo), c2 = c1;

            BLAC_DSYRK(&uplo, &trans, &n, &k, &alpha, a.data(), &a.ld, &beta, c1.data(), &c1.ld);
            BLAC_DSYR2K(&uplo, &trans, &n, &k, &alpha, a.data(), &a.ld, b.data(), &b.ld, &beta, c2.data(), &c2.ld);

            ExpectTriangleNear(c1, rankK, uplo, ProductTolerance(k, 2.0));
            ExpectTriangleNear(c2, rank2K, uplo, ProductTolerance(2 * k, 2.0));
        }
}

TEST(Blas3, TriangularProductAndSolve)
{
    Dense const before = Random(m, n, 2);
    for (char const side : {'L', 'R'})
        for (char const uplo : {'U', 'L'})
            for (char const trans : {'N', 'T', 'C'})
                for (char const diag : {'N', 'U'}) {
                    SCOPED_TRACE((std::string{side, uplo, trans, diag}));
                    int const order = side == 'L' ? m : n;
                    Dense const entries = Random(order, order, 1);
                    Dense const a =
                        Filled(order, order, [&](int i, int j) { return i == j ? 2.0 + entries(i, j) : entries(i, j) / order; });
                    Dense const stored = Stored(a, uplo, diag), opA = Op(trans, Triangle(a, uplo, diag));
                    double const inverse = 1.0 / alpha;
                    Dense b = before;

                    BLAC_DTRMM(&side, &uplo, &trans, &diag, &m, &n, &alpha, stored.data(), &stored.ld, b.data(), &b.ld);
                    ExpectNear(b, Combined(alpha, side == 'L' ? opA * before : before * opA, 0.0, before), ProductTolerance(m, 4.0));

                    BLAC_DTRSM(&side, &uplo, &trans, &diag, &m, &n, &inverse, stored.data(), &stored.ld, b.data(), &b.ld);
                    ExpectNear(b, before, 4.0 * ProductTolerance(m, 4.0));
                }
}
