#include "KVOFortran.h"
#include "dense.h"

#include <complex>
#include <string>

namespace
{

using Complex = std::complex<double>;

int const n = 12, lwork = 100 * n, liwork = 20 * n;
double const abstol = 0.0;

// Residuals and orthogonality to a modest multiple of n |A| u, with |A| at most 2 n for these matrices (LAPACK Users' Guide, 4.7).
double const kEigenTolerance = 50.0 * n * n * kEpsilon;

class LapackEigen : public testing::Test
{
protected:
    // A z = w B z and z^T B z = 1 for each of the first `count` pairs.
    static void ExpectPairs(Dense const& a, Dense const& b, Vector const& w, Dense const& z, int count)
    {
        Dense const vectors = Filled(n, count, [&](int i, int j) { return z(i, j); });
        Dense const scaled = Filled(n, count, [&](int i, int j) { return w[j] * z(i, j); });
        ExpectNear(Combined(1.0, a * vectors, -1.0, b * scaled), Dense(n, count), kEigenTolerance);
        Dense const identity = Filled(count, count, [](int i, int j) { return i == j ? 1.0 : 0.0; });
        ExpectNear(Transposed(vectors) * (b * vectors), identity, kEigenTolerance);
    }

    static Dense Diagonal(Vector const& d, Vector const& e)
    {
        return Filled(n, n, [&](int i, int j) { return i == j ? d[i] : i == j + 1 ? e[j] : j == i + 1 ? e[i] : 0.0; });
    }

    Dense const a = Symmetric(Random(n, n, 1), 'U');
    Dense const b = PositiveDefinite(n, 2);
    Dense const unit = Diagonal(Vector(n, 1.0), Vector(n, 0.0));
    Vector w = Vector(n), work = Vector(lwork);
    Dense z = Dense(n, n);
    std::vector<int> iwork = std::vector<int>(liwork), isuppz = std::vector<int>(2 * n), ifail = std::vector<int>(n);
    int info = -1, found = -1;
};

} // namespace

TEST_F(LapackEigen, AllPairsOfASymmetricMatrix)
{
    char const vectors = 'V', values = 'N';
    Vector alone(n);
    for (char const uplo : {'U', 'L'}) {
        SCOPED_TRACE(uplo);
        z = Stored(a, uplo);
        BLAC_DSYEV(&vectors, &uplo, &n, z.data(), &z.ld, w.data(), work.data(), &lwork, &info);
        EXPECT_EQ(info, 0);
        ExpectPairs(a, unit, w, z, n);

        z = Stored(a, uplo);
        BLAC_DSYEV(&values, &uplo, &n, z.data(), &z.ld, alone.data(), work.data(), &lwork, &info);
        EXPECT_EQ(info, 0);
        for (int i = 0; i < n; ++i)
            EXPECT_NEAR(alone[i], w[i], kEigenTolerance);
    }
}

// Each routine for selected pairs, by number and by value; the eigenvalues are compared with those of all.
TEST_F(LapackEigen, SelectedPairs)
{
    char const vectors = 'V';
    Dense full = a;
    Vector all(n), d(n), e(n), tau(n);
    BLAC_DSYEV(&vectors, "U", &n, full.data(), &full.ld, all.data(), work.data(), &lwork, &info);
    int const il = 3, iu = 6;
    double const vl = 0.5 * (all[1] + all[2]), vu = 0.5 * (all[5] + all[6]);

    auto const expectSelection = [&](Dense const& matrix) {
        EXPECT_EQ(info, 0);
        ASSERT_EQ(found, 4);
        for (int i = 0; i < 4; ++i)
            EXPECT_NEAR(w[i], all[i + 2], kEigenTolerance);
        ExpectPairs(matrix, unit, w, z, 4);
        info = found = -1;
        z = Dense(n, n);
    };

    for (char const range : {'I', 'V'})
        for (char const uplo : {'U', 'L'}) {
            SCOPED_TRACE((std::string{range, uplo}));
            Dense stored = Stored(a, uplo);
            BLAC_DSYEVX(&vectors, &range, &uplo, &n, stored.data(), &stored.ld, &vl, &vu, &il, &iu, &abstol, &found, w.data(), z.data(),
                        &z.ld, work.data(), &lwork, iwork.data(), ifail.data(), &info);
            expectSelection(a);

            Vector packed = Packed(a, uplo);
            BLAC_DSPEVX(&vectors, &range, &uplo, &n, packed.data(), &vl, &vu, &il, &iu, &abstol, &found, w.data(), z.data(), &z.ld,
                        work.data(), iwork.data(), ifail.data(), &info);
            expectSelection(a);

            stored = Stored(a, uplo);
            BLAC_DSYTRD(&uplo, &n, stored.data(), &stored.ld, d.data(), e.data(), tau.data(), work.data(), &lwork, &info);
            EXPECT_EQ(info, 0);
            Dense const tridiagonal = Diagonal(d, e);
            // Q^T A Q = T, with Q from the left and from the right.
            Dense product = a;
            BLAC_DORMTR("L", &uplo, "T", &n, &n, stored.data(), &stored.ld, tau.data(), product.data(), &product.ld, work.data(), &lwork,
                        &info);
            EXPECT_EQ(info, 0);
            BLAC_DORMTR("R", &uplo, "N", &n, &n, stored.data(), &stored.ld, tau.data(), product.data(), &product.ld, work.data(), &lwork,
                        &info);
            EXPECT_EQ(info, 0);
            ExpectNear(product, tridiagonal, kEigenTolerance);

            Vector diagonal = d, beside = e;
            BLAC_DSTEVR(&vectors, &range, &n, diagonal.data(), beside.data(), &vl, &vu, &il, &iu, &abstol, &found, w.data(), z.data(),
                        &z.ld, isuppz.data(), work.data(), &lwork, iwork.data(), &liwork, &info);
            expectSelection(tridiagonal);

            diagonal = d, beside = e;
            int accurate = 1;
            BLAC_DSTEMR(&vectors, &range, &n, diagonal.data(), beside.data(), &vl, &vu, &il, &iu, &found, w.data(), z.data(), &z.ld, &n,
                        isuppz.data(), &accurate, work.data(), &lwork, iwork.data(), &liwork, &info);
            expectSelection(tridiagonal);
        }
}

TEST_F(LapackEigen, GeneralizedProblem)
{
    char const vectors = 'V', values = 'N';
    for (char const uplo : {'U', 'L'})
        for (int const itype : {1, 2, 3}) {
            SCOPED_TRACE(uplo + std::to_string(itype));
            Dense factor = Stored(b, uplo);
            z = Stored(a, uplo);
            BLAC_DSYGV(&itype, &vectors, &uplo, &n, z.data(), &z.ld, factor.data(), &factor.ld, w.data(), work.data(), &lwork, &info);
            EXPECT_EQ(info, 0);
            if (itype == 1)
                ExpectPairs(a, b, w, z, n);

            // By hand: factor B, reduce, and solve the standard problem.
            Dense reduced = Stored(a, uplo);
            factor = Stored(b, uplo);
            Vector byHand(n);
            BLAC_DPOTRF(&uplo, &n, factor.data(), &factor.ld, &info);
            BLAC_DSYGST(&itype, &uplo, &n, reduced.data(), &reduced.ld, factor.data(), &factor.ld, &info);
            EXPECT_EQ(info, 0);
            BLAC_DSYEV(&values, &uplo, &n, reduced.data(), &reduced.ld, byHand.data(), work.data(), &lwork, &info);
            for (int i = 0; i < n; ++i)
                EXPECT_NEAR(byHand[i], w[i], n * kEigenTolerance);
        }
}

TEST_F(LapackEigen, MassMatrixThatIsNotPositiveDefinite)
{
    int const itype = 1;
    Dense matrix = a, mass = unit;
    mass(4, 4) = -1.0;
    BLAC_DSYGV(&itype, "N", "U", &n, matrix.data(), &matrix.ld, mass.data(), &mass.ld, w.data(), work.data(), &lwork, &info);
    EXPECT_EQ(info, n + 5);
}

TEST_F(LapackEigen, GeneralMatrix)
{
    Dense const general = Random(n, n, 5);
    Dense factors = general, left(n, n), right(n, n);
    Vector wr(n), wi(n);

    BLAC_DGEEV("V", "V", &n, factors.data(), &factors.ld, wr.data(), wi.data(), left.data(), &left.ld, right.data(), &right.ld, work.data(),
               &lwork, &info);

    EXPECT_EQ(info, 0);
    for (int j = 0; j < n; ++j) {
        // Conjugate values share two columns, the real and the imaginary part of the first one's vector.
        int const re = wi[j] < 0.0 ? j - 1 : j;
        auto const vector = [&](Dense const& v, int i) {
            return wi[j] == 0.0 ? Complex(v(i, j)) : Complex(v(i, re), std::copysign(1.0, wi[j]) * v(i, re + 1));
        };
        Complex const value(wr[j], wi[j]);
        for (int i = 0; i < n; ++i) {
            Complex rightResidual = -value * vector(right, i), leftResidual = -value * std::conj(vector(left, i));
            for (int k = 0; k < n; ++k) {
                rightResidual += general(i, k) * vector(right, k);
                leftResidual += std::conj(vector(left, k)) * general(k, i);
            }
            EXPECT_LT(std::abs(rightResidual), kEigenTolerance);
            EXPECT_LT(std::abs(leftResidual), kEigenTolerance);
        }
    }
}

TEST_F(LapackEigen, ComplexMatrixAsInterleavedParts)
{
    Dense const re = Random(n, n, 5), im = Random(n, n, 6);
    Vector matrix, values(2 * n), vectors(2 * n * n), complexWork(2 * lwork), rwork(2 * n);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i)
            matrix.insert(matrix.end(), {re(i, j), im(i, j)});

    BLAC_ZGEEV("N", "V", &n, matrix.data(), &n, values.data(), nullptr, &n, vectors.data(), &n, complexWork.data(), &lwork, rwork.data(),
               &info);

    EXPECT_EQ(info, 0);
    auto const entry = [](Vector const& parts, int i) { return Complex(parts[2 * i], parts[2 * i + 1]); };
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            Complex residual = -entry(values, j) * entry(vectors, j * n + i);
            for (int k = 0; k < n; ++k)
                residual += Complex(re(i, k), im(i, k)) * entry(vectors, j * n + k);
            EXPECT_LT(std::abs(residual), kEigenTolerance);
        }
}
