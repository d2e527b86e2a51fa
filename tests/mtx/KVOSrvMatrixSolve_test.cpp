#include "Eigenpairs.h"

bool const kSymmetric = true;
bool const kDiagonal = true;

// The residual is bounded as those of the eigenpairs.
TEST(KVOSrvMatrixSolve, FactorsAndSolvesWithSmallResiduals)
{
    for (int n : {0, 1, 2, 7, 64, 145})
        for (bool symmetric : {false, true})
            for (bool transposed : {false, true}) {
                SCOPED_TRACE(testing::Message() << "order " << n << ", symmetric " << symmetric << ", transposed " << transposed);
                KVOSrvMatrix a = symmetric ? RandomSymmetric(n, 0.0, kSymmetric) : RandomMatrix(n, n);
                Dense const denseA(a);
                for (int j = 0; symmetric && j < n; ++j) // the upper triangle is not read
                    std::fill_n(a.Values() + std::ptrdiff_t{j} * n, j, kNotANumber);
                GuardedMatrix x(n, 3);
                Dense const rhs(x.matrix);
                std::vector<int> pivots(static_cast<std::size_t>(n) + 1, -7);

                EXPECT_EQ(FailEachAllocation(a, [&] { a.Factorize(pivots.data()); }), symmetric ? 1 : 0);
                a.ForwardBackwardPass(pivots.data(), x.matrix, transposed);

                EXPECT_EQ(pivots.back(), -7);
                Dense const solution(x.matrix);
                EXPECT_LE(Norm(Product(denseA, transposed, solution) - rhs), 15.0 * n * kEpsilon * Norm(denseA) * Norm(solution));
            }
    double singular[4] = {1, 2, 2, 4};
    int pivots[2];
    for (bool symmetric : {false, true})
        EXPECT_NO_THROW(KVOSrvMatrix(2, 2, singular, symmetric, false).Factorize(pivots));
}

TEST(KVOSrvMatrixSolve, DiagonalMatricesAreInverted)
{
    double values[3] = {2.0, 4.0, kNotANumber}, singular[3] = {2.0, -0.0, 4.0};
    KVOSrvMatrix const x = RandomMatrix(3, 2);
    KVOSrvMatrix a(3, 3, values, kSymmetric, kDiagonal), solution(x);
    a.Factorize(nullptr);
    a.ForwardBackwardPass(nullptr, solution, true);
    EXPECT_EQ(values[1], 0.25);
    EXPECT_EQ(solution.Values()[1], 0.25 * x.Values()[1]);
    EXPECT_EQ(solution.Values()[3], 0.5 * x.Values()[3]);

    EXPECT_THROW(KVOSrvMatrix(3, 3, singular, false, kDiagonal).Factorize(nullptr), KVOSrvMtxDivByZero);
    EXPECT_EQ(std::vector(singular, singular + 3), (std::vector{0.5, -0.0, 4.0}));
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
            GuardedMatrix values(n, 1), vectors(n, n);
            Dense const denseA(a), denseB(b);
            Snapshot const beforeA(a), beforeB(b);

            EXPECT_EQ(FailEachAllocation(vectors.matrix, [&] { a.SolveEigenproblemSymmetric(b, values.matrix, vectors.matrix); }), 2);

            beforeA.ExpectUnchanged();
            beforeB.ExpectUnchanged();
            ExpectEigenpairs(denseA, denseB, Dense(values.matrix).values, vectors.matrix);
            if (kinds == 0) { // the results may replace an operand
                KVOSrvMatrix const copyOfB(b);
                Vector diagonal(static_cast<std::size_t>(n));
                KVOSrvMatrix diagonalOfValues(n, n, diagonal.data(), false, kDiagonal);
                a.SolveEigenproblemSymmetric(b, diagonalOfValues, b);
                a.SolveEigenproblemSymmetric(copyOfB, diagonalOfValues, a);
                ExpectEigenpairs(denseA, denseB, diagonal, b);
                ExpectEigenpairs(denseA, denseB, diagonal, a);
            }
        }
}

TEST(KVOSrvMatrixSolve, RefusesIllegalInput)
{
    KVOSrvMatrix a = RandomSymmetric(3, 0.0), b = RandomPositive(3), wide = RandomMatrix(3, 4), larger = RandomPositive(4);
    KVOSrvMatrix values = RandomMatrix(3, 1), vectors = RandomMatrix(3, 3), noColumns = RandomMatrix(3, 0), almost(a), notANumber(b);
    KVOSrvMatrix diagonal = RandomMatrix(3, 3, kDiagonal), wrongValues = RandomMatrix(2, 2), empty = RandomMatrix(0, 0);
    GuardedMatrix highSymmetric(4, 3, kSymmetric);
    int pivots[4] = {1, 2, 3, 4};
    ExpectRefused("Factorize", highSymmetric.matrix, [&] { highSymmetric.matrix.Factorize(pivots); });
    ExpectRefused("ForwardBackwardPass", a, [&] { highSymmetric.matrix.ForwardBackwardPass(pivots, a, false); });
    ExpectRefused("ForwardBackwardPass", diagonal, [&] { a.ForwardBackwardPass(pivots, diagonal, false); });

    almost.Values()[2] = std::nextafter(almost.Values()[2], 2.0);
    notANumber.Values()[1] = notANumber.Values()[3] = kNotANumber;
    KVOSrvMatrix* const refused[][4] = {
        {&empty, &empty, &empty, &empty},    {&wide, &b, &values, &vectors},   {&wide, &wide, &values, &wide},
        {&a, &wide, &values, &vectors},      {&a, &larger, &values, &vectors}, {&a, &b, &wrongValues, &vectors},
        {&a, &b, &noColumns, &vectors},      {&a, &b, &values, &wide},         {&a, &b, &values, &diagonal},
        {&a, &b, &vectors, &vectors},        {&almost, &b, &values, &vectors}, {&a, &almost, &values, &vectors},
        {&a, &notANumber, &values, &vectors}};
    for (auto const& r : refused) {
        Snapshot const before(*r[2]);
        ExpectRefused("SolveEigenproblemSymmetric", *r[3], [&] { r[0]->SolveEigenproblemSymmetric(*r[1], *r[2], *r[3]); });
        before.ExpectUnchanged();
    }
    b.Values()[8] = -1.0;
    EXPECT_THROW(a.SolveEigenproblemSymmetric(b, values, vectors), KVOSrvMtxSolveNotPositive);
}
