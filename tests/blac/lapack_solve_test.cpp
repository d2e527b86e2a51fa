#include "KVOFortran.h"
#include "dense.h"

#include <string>

namespace
{

int const n = 12, nrhs = 3;
int info = -1;

// Residual bound of a solve with a well-conditioned matrix of entries up to about n: Higham, 9.4, with a growth factor of at most 4.
double const kSolveTolerance = 100.0 * n * n * kEpsilon;

class LapackSolve : public testing::Test
{
protected:
    Dense const b = Random(n, nrhs, 7);
    Dense x = b;
    int ipiv[n] = {};
};

Dense Identity()
{
    return Filled(n, n, [](int i, int j) { return i == j ? 1.0 : 0.0; });
}

} // namespace

TEST_F(LapackSolve, General)
{
    Dense const a = Random(n, n, 1);
    Dense factors = a;
    BLAC_DGESV(&n, &nrhs, factors.data(), &factors.ld, ipiv, x.data(), &x.ld, &info);
    EXPECT_EQ(info, 0);
    ExpectNear(a * x, b, kSolveTolerance);

    factors = a;
    BLAC_DGETRF(&n, &n, factors.data(), &factors.ld, ipiv, &info);
    EXPECT_EQ(info, 0);
    for (char const trans : {'N', 'T', 'C'}) {
        SCOPED_TRACE(trans);
        x = b;
        BLAC_DGETRS(&trans, &n, &nrhs, factors.data(), &factors.ld, ipiv, x.data(), &x.ld, &info);
        EXPECT_EQ(info, 0);
        ExpectNear(Op(trans, a) * x, b, kSolveTolerance);
    }
}

TEST_F(LapackSolve, SingularMatrixIsReportedByItsPivot)
{
    Dense zero(n, n);
    BLAC_DGETRF(&n, &n, zero.data(), &zero.ld, ipiv, &info);
    EXPECT_EQ(info, 1);
}

TEST_F(LapackSolve, LeastSquaresOfDeficientRank)
{
    int const rows = 20, lwork = 500;
    int rank = -1;
    double const rcond = 1e-10;
    Dense a = Random(rows, n, 1);
    for (int i = 0; i < rows; ++i)
        a(i, n - 1) = a(i, 0) + a(i, 1);
    Dense const rhs = Random(rows, nrhs, 2);
    Dense factors = a, solution = rhs;
    Vector s(n), work(lwork);

    BLAC_DGELSS(&rows, &n, &nrhs, factors.data(), &factors.ld, solution.data(), &solution.ld, s.data(), &rcond, &rank, work.data(), &lwork,
                &info);

    EXPECT_EQ(info, 0);
    EXPECT_EQ(rank, n - 1);
    Dense const least = Filled(n, nrhs, [&](int i, int j) { return solution(i, j); });
    ExpectNear(Transposed(a) * Combined(1.0, a * least, -1.0, rhs), Dense(n, nrhs),
               kSolveTolerance); // the residual is normal to the columns
    // Of least norm: normal to the kernel (1, 1, 0, ..., 0, -1).
    for (int j = 0; j < nrhs; ++j)
        EXPECT_NEAR(least(0, j) + least(1, j) - least(n - 1, j), 0.0, kSolveTolerance);
}

TEST_F(LapackSolve, PositiveDefinite)
{
    Dense const a = PositiveDefinite(n, 1);
    for (char const uplo : {'U', 'L'}) {
        SCOPED_TRACE(uplo);
        Dense factor = Stored(a, uplo);
        BLAC_DPOTRF(&uplo, &n, factor.data(), &factor.ld, &info);
        EXPECT_EQ(info, 0);
        Dense const r = Triangle(factor, uplo);
        ExpectNear(uplo == 'U' ? Transposed(r) * r : r * Transposed(r), a, kSolveTolerance);

        Vector packed = Packed(a, uplo);
        x = b;
        BLAC_DPPSV(&uplo, &n, &nrhs, packed.data(), x.data(), &x.ld, &info);
        EXPECT_EQ(info, 0);
        ExpectNear(a * x, b, kSolveTolerance);

        packed = Packed(a, uplo);
        x = b;
        BLAC_DPPTRF(&uplo, &n, packed.data(), &info);
        EXPECT_EQ(info, 0);
        BLAC_DPPTRS(&uplo, &n, &nrhs, packed.data(), x.data(), &x.ld, &info);
        EXPECT_EQ(info, 0);
        ExpectNear(a * x, b, kSolveTolerance);
        BLAC_DPPTRI(&uplo, &n, packed.data(), &info);
        EXPECT_EQ(info, 0);
        ExpectNear(a * Symmetric(Unpacked(packed, uplo, n), uplo), Identity(), kSolveTolerance);
    }
}

TEST_F(LapackSolve, SymmetricIndefinite)
{
    int const lwork = 64 * n;
    Vector work(lwork);
    for (char const uplo : {'U', 'L'}) {
        SCOPED_TRACE(uplo);
        Dense const a = Symmetric(Random(n, n, 3), uplo);
        Dense factors = Stored(a, uplo);
        x = b;

        BLAC_DSYTRF(&uplo, &n, factors.data(), &factors.ld, ipiv, work.data(), &lwork, &info);
        EXPECT_EQ(info, 0);
        BLAC_DSYTRS(&uplo, &n, &nrhs, factors.data(), &factors.ld, ipiv, x.data(), &x.ld, &info);

        EXPECT_EQ(info, 0);
        ExpectNear(a * x, b, kSolveTolerance);
    }
}

TEST_F(LapackSolve, PackedTriangularInverse)
{
    Dense const a = PositiveDefinite(n, 4);
    for (char const uplo : {'U', 'L'})
        for (char const diag : {'N', 'U'}) {
            SCOPED_TRACE((std::string{uplo, diag}));
            // A unit triangle of the unscaled matrix is well conditioned as well.
            Dense const entries = diag == 'U' ? Combined(1.0 / n, a, 0.0, a) : a;
            Vector packed = Packed(Stored(entries, uplo, diag), uplo);

            BLAC_DTPTRI(&uplo, &diag, &n, packed.data(), &info);

            EXPECT_EQ(info, 0);
            ExpectNear(Triangle(entries, uplo, diag) * Triangle(Unpacked(packed, uplo, n), uplo, diag), Identity(), kSolveTolerance);
        }
}
