#include "KVOFortran.h"
#include "dense.h"

namespace
{

int const n = 7;
int const forward = 2, backward = -3;
double const alpha = 1.5;

// Position of entry i of a vector that a routine walks by `stride`: from its end when the stride is negative.
int At(int i, int stride)
{
    return stride > 0 ? i * stride : (i - (n - 1)) * stride;
}

class Blas1 : public testing::Test
{
protected:
    double x(int i) const { return xs[At(i, forward)]; }
    double y(int i) const { return ys[At(i, backward)]; }

    Vector xs = Column(Random(n * 3, 1, 1)), ys = Column(Random(n * 3, 1, 2));
    Vector const xs0 = xs, ys0 = ys;
    double x0(int i) const { return xs0[At(i, forward)]; }
    double y0(int i) const { return ys0[At(i, backward)]; }

    // Whatever a stride skips stays as it was.
    void TearDown() override
    {
        for (int i = 0; i < n * 3; ++i) {
            if (i % forward != 0 || i / forward >= n) {
                EXPECT_EQ(xs[i], xs0[i]);
            }
            if (i % -backward != 0 || i / -backward >= n) {
                EXPECT_EQ(ys[i], ys0[i]);
            }
        }
    }
};

} // namespace

TEST_F(Blas1, Reductions)
{
    double sum = 0.0, dot = 0.0, squares = 0.0;
    int largest = 0;
    for (int i = 0; i < n; ++i) {
        sum += std::fabs(x(i));
        dot += x(i) * y(i);
        squares += x(i) * x(i);
        if (std::fabs(x(i)) > std::fabs(x(largest)))
            largest = i;
    }

    EXPECT_NEAR(BLAC_DASUM(&n, xs.data(), &forward), sum, ProductTolerance(n));
    EXPECT_NEAR(BLAC_DDOT(&n, xs.data(), &forward, ys.data(), &backward), dot, ProductTolerance(n));
    EXPECT_NEAR(BLAC_DNRM2(&n, xs.data(), &forward), std::sqrt(squares), ProductTolerance(n));
    EXPECT_EQ(BLAC_IDAMAX(&n, xs.data(), &forward), largest + 1);
}

TEST_F(Blas1, Axpy)
{
    BLAC_DAXPY(&n, &alpha, xs.data(), &forward, ys.data(), &backward);

    for (int i = 0; i < n; ++i)
        EXPECT_NEAR(y(i), alpha * x0(i) + y0(i), ProductTolerance(2, alpha));
    EXPECT_EQ(xs, xs0);
}

TEST_F(Blas1, CopySwapAndScale)
{
    BLAC_DSWAP(&n, xs.data(), &forward, ys.data(), &backward);
    for (int i = 0; i < n; ++i) {
        EXPECT_EQ(x(i), y0(i));
        EXPECT_EQ(y(i), x0(i));
    }

    BLAC_DCOPY(&n, xs.data(), &forward, ys.data(), &backward);
    for (int i = 0; i < n; ++i)
        EXPECT_EQ(y(i), y0(i));

    BLAC_DSCAL(&n, &alpha, xs.data(), &forward);
    for (int i = 0; i < n; ++i)
        EXPECT_EQ(x(i), alpha * y0(i));
}

TEST_F(Blas1, Rotation)
{
    double const c = 0.6, s = 0.8;

    BLAC_DROT(&n, xs.data(), &forward, ys.data(), &backward, &c, &s);

    for (int i = 0; i < n; ++i) {
        EXPECT_NEAR(x(i), c * x0(i) + s * y0(i), ProductTolerance(2));
        EXPECT_NEAR(y(i), c * y0(i) - s * x0(i), ProductTolerance(2));
    }
}
