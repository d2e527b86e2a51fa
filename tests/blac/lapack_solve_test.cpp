#include "Dense.h"
#include "KVOFortran.h"

#include <string>
#include <utility>

namespace
{

int const n = 12, nrhs = 3, lwork = 64 * n;

// Residual bound of a solve with a well-conditioned matrix of entries up to about n: Higham, 9.4, with a growth factor of at most 4.
double const kTolerance = 100.0 * n * n * kEpsilon;

class LapackSolve : public testing::Test
{
protected:
    void ExpectSuccess() { EXPECT_EQ(std::exchange(info, -1), 0); }
    // The routine before left the solution of A x = b; the next one is to find it again.
    void ExpectSolution(Dense const& a)
    {
        ExpectSuccess();
        ExpectNear(a * x, b, kTolerance);
        x = b;
    }

    Dense const b = Seeded(n, nrhs, 7);
    Dense x = b;
    Vector work = Vector(lwork);
    int ipiv[n] = {}, info = -1;
};

} // namespace

TEST_F(LapackSolve, General)
{
    Dense const a = Seeded(n, n, 1);
    Dense factors = a;
    BLAC_DGESV(&n, &nrhs, factors.data(), &factors.ld, ipiv, x.data(), &x.ld, &info);
    ExpectSolution(a);

    factors = a;
    BLAC_DGETRF(&n, &n, factors.data(), &factors.ld, ipiv, &info);
    ExpectSuccess();
    for (char const trans : {'N', 'T', 'C'}) {
        BLAC_DGETRS(&trans, &n, &nrhs, factors.data(), &factors.ld, ipiv, x.data(), &x.ld, &info);
        ExpectSolution(Op(trans, a));
    }

    // Three rows of five columns; the third row is the first one that is found to depend on the others.
    Dense singular = Seeded(3, 5, 2);
    for (int j = 0; j < 3; ++j)
        singular.At(2, j) = 0.0;
    BLAC_DGETRF(&singular.rows, &singular.columns, singular.data(), &singular.ld, ipiv, &info);
    EXPECT_EQ(info, 3);
}

TEST_F(LapackSolve, LeastSquaresOfDeficientRank)
{
    int const rows = 20;
    int rank = -1;
    double const rcond = 1e-10;
    Dense a = Seeded(rows, n, 1);
    for (int i = 0; i < rows; ++i)
        a.At(i, n - 1) = a.At(i, 0) + a.At(i, 1);
    Dense const rhs = Seeded(rows, nrhs, 2);
    Dense factors = a, solution = rhs;
    Vector s(n);

    BLAC_DGELSS(&rows, &n, &nrhs, factors.data(), &factors.ld, solution.data(), &solution.ld, s.data(), &rcond, &rank, work.data(), &lwork,
                &info);

    ExpectSuccess();
    EXPECT_EQ(rank, n - 1);
    Dense const least = Filled(n, nrhs, [&](int i, int j) { return solution.At(i, j); });
    // The residual is normal to the columns, and the solution, of least norm, to the kernel (1, 1, 0, ..., 0, -1).
    ExpectNear(Transposed(a) * Combined(1.0, a * least, -1.0, rhs), Dense(n, nrhs), kTolerance);
    for (int j = 0; j < nrhs; ++j)
        EXPECT_NEAR(least.At(0, j) + least.At(1, j) - least.At(n - 1, j), 0.0, kTolerance);
}

TEST_F(LapackSolve, Symmetric)
{
    for (char const uplo : {'U', 'L'}) {
        SCOPED_TRACE(uplo);
        Dense const a = Symmetric(Dominated(n, 1), uplo), indefinite = Symmetric(Seeded(n, n, 3), uplo);
        Dense factor = Stored(a, uplo);
        BLAC_DPOTRF(&uplo, &n, factor.data(), &factor.ld, &info);
        ExpectSuccess();
        Dense const r = Triangle(factor, uplo);
        ExpectNear(uplo == 'U' ? Transposed(r) * r : r * Transposed(r), a, kTolerance);

        factor = Stored(indefinite, uplo);
        BLAC_DSYTRF(&uplo, &n, factor.data(), &factor.ld, ipiv, work.data(), &lwork, &info);
        ExpectSuccess();
        BLAC_DSYTRS(&uplo, &n, &nrhs, factor.data(), &factor.ld, ipiv, x.data(), &x.ld, &info);
        ExpectSolution(indefinite);

        Vector packed = Packed(a, uplo);
        BLAC_DPPSV(&uplo, &n, &nrhs, packed.data(), x.data(), &x.ld, &info);
        ExpectSolution(a);
        packed = Packed(a, uplo);
        BLAC_DPPTRF(&uplo, &n, packed.data(), &info);
        ExpectSuccess();
        BLAC_DPPTRS(&uplo, &n, &nrhs, packed.data(), x.data(), &x.ld, &info);
        ExpectSolution(a);
        BLAC_DPPTRI(&uplo, &n, packed.data(), &info);
        ExpectSuccess();
        ExpectNear(a * Symmetric(Unpacked(packed, uplo, n), uplo), Identity(n), kTolerance);

        for (char const diag : {'N', 'U'}) {
            Dense const entries = Combined(1.0 / n, a, 0.0, a); // a unit triangle of it is well conditioned as well
            packed = Packed(Stored(entries, uplo, diag), uplo);
            BLAC_DTPTRI(&uplo, &diag, &n, packed.data(), &info);
            ExpectSuccess();
            ExpectNear(Triangle(entries, uplo, diag) * Triangle(Unpacked(packed, uplo, n), uplo, diag), Identity(n), kTolerance);
        }
    }
}
