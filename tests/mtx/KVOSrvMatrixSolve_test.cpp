#include "MatrixSupport.h"

#include <functional>
#include <limits>

namespace
{

double const kNaN = std::numeric_limits<double>::quiet_NaN();
double const kUnitRoundoff = std::numeric_limits<double>::epsilon() / 2;
bool const kSymmetric = true;
bool const kDiagonal = true;

Dense Product(Dense const& a, bool transposed, Dense const& b)
{
    Dense c(transposed ? a.columns : a.rows, b.columns);
    for (int j = 0; j < c.columns; ++j)
        for (int l = 0; l < b.rows; ++l)
            for (int i = 0; i < c.rows; ++i)
                c.At(i, j) += (transposed ? a.At(l, i) : a.At(i, l)) * b.At(l, j);
    return c;
}

Dense operator-(Dense a, Dense const& b)
{
    std::transform(a.values.begin(), a.values.end(), b.values.begin(), a.values.begin(), std::minus<>());
    return a;
}

// The greatest sum of magnitudes in a column; NaN if there is one.
double Norm(Dense const& a)
{
    double norm = 0.0;
    for (int j = 0; j < a.columns; ++j) {
        double sum = 0.0;
        for (int i = 0; i < a.rows; ++i)
            sum += std::abs(a.At(i, j));
        norm = sum <= norm ? norm : sum;
    }
    return norm;
}

KVOSrvMatrix RandomSymmetric(int n, double shift, bool flag = false)
{
    KVOSrvMatrix matrix(n, n, nullptr, flag, false);
    FillRandom(matrix);
    matrix.SetSymmetricResults();
    for (int i = 0; i < n; ++i)
        matrix.Values()[i * (n + 1)] += shift;
    return matrix;
}

KVOSrvMatrix RandomPositive(int n)
{
    return RandomSymmetric(n, 2.0 * n);
} // dominated by its diagonal

// Residuals are bounded as in LAPACK's own tests: by 30 in units of n u and of the norms that the backward error of the method scales with.

TEST(KVOSrvMatrixSolve, FactorsAndSolvesWithSmallResiduals)
{
    for (int n : {0, 1, 2, 7, 64, 145})
        for (bool symmetric : {false, true})
            for (bool transposed : {false, true}) {
                SCOPED_TRACE(testing::Message() << "order " << n << ", symmetric " << symmetric << ", transposed " << transposed);
                KVOSrvMatrix a = symmetric ? RandomSymmetric(n, 0.0, kSymmetric) : RandomMatrix(n, n);
                Dense const denseA(a);
                for (int j = 0; symmetric && j < n; ++j) // the upper triangle is not read
                    std::fill_n(a.Values() + std::ptrdiff_t{j} * n, j, kNaN);
                GuardedMatrix x(n, 3, false, false);
                Dense const rhs(x.matrix);
                std::vector<int> pivots(static_cast<std::size_t>(n) + 1, -7);

                EXPECT_EQ(FailEachAllocation(a, [&] { a.Factorize(pivots.data()); }), symmetric ? 1 : 0);
                a.ForwardBackwardPass(pivots.data(), x.matrix, transposed);

                EXPECT_EQ(pivots.back(), -7);
                Dense const solution(x.matrix);
                EXPECT_LE(Norm(Product(denseA, transposed, solution) - rhs), 30.0 * n * kUnitRoundoff * Norm(denseA) * Norm(solution));
            }
    double singular[4] = {1, 2, 2, 4};
    int pivots[2];
    for (bool symmetric : {false, true})
        EXPECT_NO_THROW(KVOSrvMatrix(2, 2, singular, symmetric, false).Factorize(pivots));
}

TEST(KVOSrvMatrixSolve, DiagonalMatricesAreInverted)
{
    double values[3] = {2.0, 4.0, kNaN};
    KVOSrvMatrix const x = RandomMatrix(3, 2);
    KVOSrvMatrix a(3, 3, values, kSymmetric, kDiagonal), solution(x);
    a.Factorize(nullptr);
    a.ForwardBackwardPass(nullptr, solution, true);
    EXPECT_EQ(values[0], 0.5);
    EXPECT_EQ(values[1], 0.25);
    EXPECT_EQ(solution.Values()[1], 0.25 * x.Values()[1]);
    EXPECT_EQ(solution.Values()[3], 0.5 * x.Values()[3]);

    double singular[3] = {2.0, -0.0, 4.0};
    EXPECT_THROW(KVOSrvMatrix(3, 3, singular, false, kDiagonal).Factorize(nullptr), KVOSrvMtxDivByZero);
    EXPECT_EQ(singular[0], 0.5);
    EXPECT_EQ(singular[2], 4.0);
}

TEST(KVOSrvMatrixSolve, RefusesWhatWouldLeaveTheArrays)
{
    KVOSrvMatrix wide(2, 3, nullptr, kSymmetric, false), square = RandomMatrix(2, 2), diagonal = RandomMatrix(2, 2, kDiagonal);
    FillRandom(wide);
    int pivots[3] = {1, 2, 3};
    ExpectRefused("Factorize", wide, [&] { wide.Factorize(pivots); });
    ExpectRefused("ForwardBackwardPass", square, [&] { wide.ForwardBackwardPass(pivots, square, false); });
    ExpectRefused("ForwardBackwardPass", diagonal, [&] { square.ForwardBackwardPass(pivots, diagonal, false); });
}

void ExpectEigenpairs(Dense const& a, Dense const& b, KVOSrvMatrix const& values, KVOSrvMatrix const& vectors)
{
    int const n = a.rows;
    double const unit = 30.0 * n * kUnitRoundoff;
    Dense const x(vectors);
    Dense bx = Product(b, false, x), orthogonality = Product(x, true, bx);
    for (int i = 0; i < n; ++i)
        orthogonality.At(i, i) -= 1.0;
    EXPECT_LE(Norm(orthogonality), unit * Norm(b) * Norm(x) * Norm(x));
    for (int k = 0; k < n * n; ++k)
        bx.values[k] *= values.Values()[k / n];
    EXPECT_LE(Norm(Product(a, false, x) - bx), unit * Norm(a) * Norm(b) * Norm(x));
    EXPECT_TRUE(std::is_sorted(values.Values(), values.Values() + n));
}

TEST(KVOSrvMatrixSolve, EigenpairsOfEveryKind)
{
    for (int n : {1, 2, 7, 64, 145})
        for (int kinds = 0; kinds < 4; ++kinds) {
            SCOPED_TRACE(testing::Message() << "order " << n << ", kinds " << kinds);
            KVOSrvMatrix a = (kinds & 1) != 0 ? RandomMatrix(n, n, kDiagonal) : RandomSymmetric(n, 0.0);
            KVOSrvMatrix b = (kinds & 2) != 0 ? RandomMatrix(n, n, kDiagonal) : RandomPositive(n);
            for (int i = 0; b.IsDiagonal() && i < n; ++i)
                b.Values()[i] += 1.5;
            GuardedMatrix values(n, 1, false, false), vectors(n, n, false, false);
            Dense const denseA(a), denseB(b);
            Snapshot const beforeA(a), beforeB(b);

            EXPECT_EQ(FailEachAllocation(vectors.matrix, [&] { a.SolveEigenproblemSymmetric(b, values.matrix, vectors.matrix); }), 2);

            beforeA.ExpectUnchanged();
            beforeB.ExpectUnchanged();
            ExpectEigenpairs(denseA, denseB, values.matrix, vectors.matrix);
            if (kinds == 0) { // the results may replace an operand
                KVOSrvMatrix const copyOfB(b);
                KVOSrvMatrix diagonalOfValues(n, n, nullptr, false, kDiagonal);
                a.SolveEigenproblemSymmetric(b, diagonalOfValues, b);
                a.SolveEigenproblemSymmetric(copyOfB, diagonalOfValues, a);
                ExpectEigenpairs(denseA, denseB, diagonalOfValues, b);
                ExpectEigenpairs(denseA, denseB, diagonalOfValues, a);
            }
        }
}

TEST(KVOSrvMatrixSolve, RefusesIllegalEigenproblems)
{
    KVOSrvMatrix a = RandomSymmetric(3, 0.0), b = RandomPositive(3), wide = RandomMatrix(3, 4), larger = RandomPositive(4);
    KVOSrvMatrix values = RandomMatrix(3, 1), vectors = RandomMatrix(3, 3), noColumns(3, 0, nullptr, false, false), almost(a),
                 notANumber(b);
    KVOSrvMatrix diagonalVectors = RandomMatrix(3, 3, kDiagonal), wrongValues = RandomMatrix(2, 2), empty(0, 0, nullptr, false, false);
    almost.Values()[2] = std::nextafter(almost.Values()[2], 2.0);
    notANumber.Values()[1] = notANumber.Values()[3] = kNaN;
    KVOSrvMatrix* const refused[][4] = {
        {&empty, &empty, &empty, &empty},    {&wide, &b, &values, &vectors},   {&wide, &wide, &values, &wide},
        {&a, &wide, &values, &vectors},      {&a, &larger, &values, &vectors}, {&a, &b, &wrongValues, &vectors},
        {&a, &b, &noColumns, &vectors},      {&a, &b, &values, &wide},         {&a, &b, &values, &diagonalVectors},
        {&a, &b, &vectors, &vectors},        {&almost, &b, &values, &vectors}, {&a, &almost, &values, &vectors},
        {&a, &notANumber, &values, &vectors}};
    for (auto const& [left, right, lambda, x] : refused) {
        Snapshot const before(*lambda);
        ExpectRefused("SolveEigenproblemSymmetric", *x,
                      [&, left = left, right = right, lambda = lambda, x = x] { left->SolveEigenproblemSymmetric(*right, *lambda, *x); });
        before.ExpectUnchanged();
    }
    b.Values()[8] = -1.0;
    EXPECT_THROW(a.SolveEigenproblemSymmetric(b, values, vectors), KVOSrvMtxSolveNotPositive);
}

} // namespace
