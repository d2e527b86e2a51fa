#include "Dense.h"
#include "KVOFortran.h"

#include <complex>
#include <string>
#include <utility>

namespace
{

using Complex = std::complex<double>;

int const n = 12, lwork = 100 * n, liwork = 20 * n;
char const vectors = 'V', none = 'N';
double const abstol = 0.0;

// Residuals and orthogonality to a modest multiple of n |A| u, with |A| at most 2 n for these matrices (LAPACK Users' Guide, 4.7).
double const kTolerance = 50.0 * n * n * kEpsilon;

class LapackEigen : public testing::Test
{
protected:
    void ExpectSuccess() { EXPECT_EQ(std::exchange(info, -1), 0); }

    void ExpectValues(Vector const& expected, int first, int count, double tolerance = kTolerance)
    {
        ExpectSuccess();
        for (int i = 0; i < count; ++i)
            EXPECT_NEAR(w[i], expected[first + i], tolerance);
    }

    // A z = w B z and z^T B z = 1 for each of the first `count` pairs.
    void ExpectPairs(Dense const& A, Dense const& B, int count)
    {
        ExpectSuccess();
        Dense const x = Filled(n, count, [&](int i, int j) { return z.At(i, j); });
        Dense const scaled = Filled(n, count, [&](int i, int j) { return w[j] * z.At(i, j); });
        ExpectNear(Combined(1.0, A * x, -1.0, B * scaled), Dense(n, count), kTolerance);
        ExpectNear(Transposed(x) * (B * x), Identity(count), kTolerance);
    }

    // A v = w v with A(i, j), w(j) and v(i, j) as functions.
    static void ExpectComplexPairs(auto const& A, auto const& value, auto const& v)
    {
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                Complex residual = -value(j) * v(i, j);
                for (int k = 0; k < n; ++k)
                    residual += A(i, k) * v(k, j);
                EXPECT_LT(std::abs(residual), kTolerance);
            }
    }

    Dense const a = Symmetric(Seeded(n, n, 1), 'U'), b = Symmetric(Dominated(n, 2), 'U');
    Vector w = Vector(n), work = Vector(2 * lwork), d = Vector(n), e = Vector(n), tau = Vector(n);
    Dense z = Seeded(n, n, 4);
    std::vector<int> iwork = std::vector<int>(liwork), isuppz = std::vector<int>(2 * n), ifail = std::vector<int>(n);
    int info = -1, found = -1;
};

} // namespace

// All pairs, then each routine for selected ones, by number and by value: their values are compared with those of all.
TEST_F(LapackEigen, SymmetricProblem)
{
    z = Stored(a, 'U');
    BLAC_DSYEV(&vectors, "U", &n, z.data(), &z.ld, w.data(), work.data(), &lwork, &info);
    ExpectPairs(a, Identity(n), n);
    Vector const all = w;
    int const il = 3, iu = 6;
    double const vl = 0.5 * (all[1] + all[2]), vu = 0.5 * (all[5] + all[6]);
    auto const expectSelection = [&](Dense const& matrix) {
        ASSERT_EQ(std::exchange(found, -1), 4);
        ExpectPairs(matrix, Identity(n), 4);
        info = 0;
        ExpectValues(all, 2, 4);
        z = Seeded(n, n, 4);
    };
    for (char const range : {'I', 'V'})
        for (char const uplo : {'U', 'L'}) {
            SCOPED_TRACE((std::string{range, uplo}));
            Dense stored = Stored(a, uplo);
            BLAC_DSYEV(&none, &uplo, &n, stored.data(), &stored.ld, w.data(), work.data(), &lwork, &info);
            ExpectValues(all, 0, n);

            stored = Stored(a, uplo);
            BLAC_DSYEVX(&vectors, &range, &uplo, &n, stored.data(), &stored.ld, &vl, &vu, &il, &iu, &abstol, &found, w.data(), z.data(),
                        &z.ld, work.data(), &lwork, iwork.data(), ifail.data(), &info);
            expectSelection(a);
            BLAC_DSPEVX(&vectors, &range, &uplo, &n, Packed(a, uplo).data(), &vl, &vu, &il, &iu, &abstol, &found, w.data(), z.data(), &z.ld,
                        work.data(), iwork.data(), ifail.data(), &info);
            expectSelection(a);

            stored = Stored(a, uplo);
            BLAC_DSYTRD(&uplo, &n, stored.data(), &stored.ld, d.data(), e.data(), tau.data(), work.data(), &lwork, &info);
            ExpectSuccess();
            Dense const t = Filled(n, n, [&](int i, int j) { return i == j ? d[i] : i == j + 1 ? e[j] : j == i + 1 ? e[i] : 0.0; });
            Dense product = Combined(1.0, a, 0.0, a); // Q^T A Q = T, with Q from the left and from the right
            for (auto const& [side, trans] : {std::pair("L", "T"), std::pair("R", "N")}) {
                BLAC_DORMTR(side, &uplo, trans, &n, &n, stored.data(), &stored.ld, tau.data(), product.data(), &product.ld, work.data(),
                            &lwork, &info);
                ExpectSuccess();
            }
            ExpectNear(product, t, kTolerance);

            Vector diagonal = d, beside = e;
            BLAC_DSTEVR(&vectors, &range, &n, diagonal.data(), beside.data(), &vl, &vu, &il, &iu, &abstol, &found, w.data(), z.data(),
                        &z.ld, isuppz.data(), work.data(), &lwork, iwork.data(), &liwork, &info);
            expectSelection(t);
            diagonal = d, beside = e;
            int accurate = 1;
            BLAC_DSTEMR(&vectors, &range, &n, diagonal.data(), beside.data(), &vl, &vu, &il, &iu, &found, w.data(), z.data(), &z.ld, &n,
                        isuppz.data(), &accurate, work.data(), &lwork, iwork.data(), &liwork, &info);
            expectSelection(t);
        }
}

TEST_F(LapackEigen, GeneralizedProblem)
{
    for (char const uplo : {'U', 'L'})
        for (int const itype : {1, 2, 3}) {
            SCOPED_TRACE(uplo + std::to_string(itype));
            Dense factor = Stored(b, uplo);
            z = Stored(a, uplo);
            BLAC_DSYGV(&itype, &vectors, &uplo, &n, z.data(), &z.ld, factor.data(), &factor.ld, w.data(), work.data(), &lwork, &info);
            if (itype == 1)
                ExpectPairs(a, b, n);
            Vector const values = w;

            // By hand: factor B, reduce, and solve the standard problem.
            Dense reduced = Stored(a, uplo);
            factor = Stored(b, uplo);
            BLAC_DPOTRF(&uplo, &n, factor.data(), &factor.ld, &info);
            BLAC_DSYGST(&itype, &uplo, &n, reduced.data(), &reduced.ld, factor.data(), &factor.ld, &info);
            ExpectSuccess();
            BLAC_DSYEV(&none, &uplo, &n, reduced.data(), &reduced.ld, w.data(), work.data(), &lwork, &info);
            ExpectValues(values, 0, n, n * kTolerance);
        }

    int const itype = 1;
    Dense matrix = a, mass = Identity(n);
    mass.At(4, 4) = -1.0;
    BLAC_DSYGV(&itype, &none, "U", &n, matrix.data(), &matrix.ld, mass.data(), &mass.ld, w.data(), work.data(), &lwork, &info);
    EXPECT_EQ(info, n + 5);
}

TEST_F(LapackEigen, GeneralMatrices)
{
    Dense const re = Seeded(n, n, 5), im = Seeded(n, n, 6);
    Dense factors = re, left = Seeded(n, n, 7), right = Seeded(n, n, 8);
    Vector wr(n), wi(n), rwork(2 * n);
    BLAC_DGEEV(&vectors, &vectors, &n, factors.data(), &factors.ld, wr.data(), wi.data(), left.data(), &left.ld, right.data(), &right.ld,
               work.data(), &lwork, &info);
    ExpectSuccess();
    // Conjugate values share two columns, the real and the imaginary part of the first one's vector.
    auto const vectorOf = [&](Dense const& v, int i, int j) {
        int const first = wi[j] < 0.0 ? j - 1 : j;
        return wi[j] == 0.0 ? Complex(v.At(i, j)) : Complex(v.At(i, first), std::copysign(1.0, wi[j]) * v.At(i, first + 1));
    };
    auto const value = [&](int j) { return Complex(wr[j], wi[j]); };
    ExpectComplexPairs([&](int i, int k) { return re.At(i, k); }, value, [&](int i, int j) { return vectorOf(right, i, j); });
    ExpectComplexPairs([&](int i, int k) { return re.At(k, i); }, [&](int j) { return std::conj(value(j)); },
                       [&](int i, int j) { return vectorOf(left, i, j); });

    // Complex numbers are interleaved: rows 2 i and 2 i + 1 of a real array.
    auto const interleaved = [](Dense const& v) { return [&](int i, int j) { return Complex(v.At(2 * i, j), v.At(2 * i + 1, j)); }; };
    Dense const matrix = Filled(
        2 * n, n, [&](int i, int j) { return (i % 2 == 0 ? re : im).At(i / 2, j); }, 6);
    Dense values(2 * n, 1);
    factors = matrix, left = Dense(2 * n, n, 0.0, 2), right = Dense(2 * n, n, 0.0, 4);
    int const lda = factors.ld / 2, ldvl = left.ld / 2, ldvr = right.ld / 2;
    BLAC_ZGEEV(&vectors, &vectors, &n, factors.data(), &lda, values.data(), left.data(), &ldvl, right.data(), &ldvr, work.data(), &lwork,
               rwork.data(), &info);
    ExpectSuccess();
    auto const A = interleaved(matrix), W = interleaved(values);
    ExpectComplexPairs(
        A, [&](int j) { return W(j, 0); }, interleaved(right));
    ExpectComplexPairs([&](int i, int k) { return std::conj(A(k, i)); }, [&](int j) { return std::conj(W(j, 0)); }, interleaved(left));
}
