#include "MatrixSupport.h"

#include <utility>

namespace
{

bool const kDiagonal = true;

TEST(KVOSrvMatrixArithmetic, Scaling)
{
    KVOSrvMatrix matrix = RandomMatrix(3, 5);
    matrix.Values()[4] = std::numeric_limits<double>::signaling_NaN(); // arithmetic would make it quiet
    Snapshot const before(matrix);
    matrix.Multiply(1.0);
    before.ExpectUnchanged();
    double const last = matrix.Values()[14];
    matrix.Multiply(-2.5);
    EXPECT_EQ(matrix.Values()[14], -2.5 * last);
    matrix.Multiply(0.0);
    EXPECT_TRUE(std::isnan(matrix.Values()[4]));
    EXPECT_EQ(std::count(matrix.Values(), matrix.Values() + 15, 0.0), 14);
    GuardedMatrix diagonal(5, 5, false, kDiagonal);
    diagonal.matrix = 2.0;
    diagonal.matrix.Multiply(3.0);
    EXPECT_TRUE(diagonal.matrix == 6.0);
}

TEST(KVOSrvMatrixArithmetic, Interpolate)
{
    for (bool diagonal : {false, true})
        for (double t : {0.0, 1.0, 0.3}) {
            KVOSrvMatrix const a = RandomMatrix(7, 7, diagonal), b = RandomMatrix(7, 7, diagonal);
            KVOSrvMatrix result(7, 7, nullptr, false, diagonal), intoA(a), intoB(b);
            result.Interpolate(t, a, b);
            intoA.Interpolate(t, intoA, b);
            intoB.Interpolate(t, a, intoB);
            ExpectSame(result, [&](int i, int j) { return diagonal && i != j ? 0.0 : (1 - t) * Element(a, i, j) + t * Element(b, i, j); });
            EXPECT_TRUE(intoA == result && intoB == result);
        }
    KVOSrvMatrix matrix = RandomMatrix(3, 3), other = RandomMatrix(3, 4), diagonal = RandomMatrix(3, 3, kDiagonal);
    for (double t : {-1e-300, 1.5})
        ExpectRefused("Interpolate", matrix, [&] { matrix.Interpolate(t, matrix, matrix); });
    for (KVOSrvMatrix const* wrong : {&other, &diagonal}) {
        ExpectRefused("Interpolate", matrix, [&] { matrix.Interpolate(0.5, *wrong, matrix); });
        ExpectRefused("Interpolate", matrix, [&] { matrix.Interpolate(0.5, matrix, *wrong); });
    }
    ExpectRefused("Interpolate", diagonal, [&] { diagonal.Interpolate(0.5, matrix, matrix); });
    matrix.Interpolate(kNotANumber, matrix, matrix);
    EXPECT_TRUE(std::all_of(matrix.Values(), matrix.Values() + 9, [](double x) { return std::isnan(x); }));
}

// The sizes m, n, k of products.
int const kSizes[][3] = {{0, 0, 0}, {3, 2, 0}, {0, 3, 2}, {1, 1, 1}, {9, 9, 9}, {7, 8, 9}, {9, 1, 8}, {33, 65, 17}, {144, 145, 31}};

TEST(KVOSrvMatrixArithmetic, ProductIntoAnotherMatrix)
{
    for (auto const& [m, n, k] : kSizes)
        for (int accumulate : {0, -5})
            for (char trans : {'N', 'T'}) {
                SCOPED_TRACE(testing::Message() << m << ", " << n << ", " << k << ", accumulate " << accumulate << ", " << trans);
                KVOSrvMatrix const a = trans == 'T' ? RandomMatrix(k, m) : RandomMatrix(m, k), b = RandomMatrix(k, n);
                GuardedMatrix c(m, n);
                if (accumulate == 0)
                    c.matrix = kNotANumber; // overwritten, not multiplied by 0
                Dense const expected = Combined(1.0, Op(trans, Dense(a)) * Dense(b), accumulate != 0 ? 1.0 : 0.0, Dense(c.matrix));
                trans == 'T' ? a.TransposeMultiply(b, c.matrix, 0, accumulate) : a.Multiply(b, c.matrix, 99, accumulate);
                ExpectSame(c.matrix, expected, ProductTolerance(k + 1));
            }
}

TEST(KVOSrvMatrixArithmetic, ProductsOfEveryKind)
{
    for (int kinds = 0; kinds < 8; ++kinds)
        for (auto const& [m, n, k] : kSizes) {
            bool const d = (kinds & 1) != 0 && m == n, aDiagonal = (kinds & 2) != 0, bDiagonal = (kinds & 4) != 0 && (m == n || !aDiagonal);
            SCOPED_TRACE(testing::Message() << "kinds " << kinds << ", " << m << ", " << n << ", " << k);
            GuardedMatrix guarded(m, n, false, d);
            KVOSrvMatrix& target = guarded.matrix;
            int const inner = aDiagonal ? m : bDiagonal ? n : k;
            KVOSrvMatrix const a = RandomMatrix(m, inner, aDiagonal), b = RandomMatrix(inner, n, bDiagonal);
            if (d && !(aDiagonal && bDiagonal)) {
                ExpectRefused("Multiply", target, [&] { target.Multiply(a, b); });
                continue;
            }
            Dense expected = Dense(a) * Dense(b);
            for (int j = 1; aDiagonal && bDiagonal && !d && j < n; ++j) // only the first column is cleared
                for (int i = 0; i < m; ++i)
                    expected.At(i, j) = i == j ? expected.At(i, j) : Element(target, i, j);
            target.Multiply(a, b);
            ExpectSame(target, expected, ProductTolerance(inner));
        }
    KVOSrvMatrix target = RandomMatrix(3, 4), a = RandomMatrix(3, 5), b = RandomMatrix(5, 4), square = RandomMatrix(3, 3);
    KVOSrvMatrix const wideDiagonal = RandomMatrix(3, 5, kDiagonal), other(square);
    ExpectRefused("Multiply", target, [&] { target.Multiply(b, a); });
    ExpectRefused("Multiply", square, [&] { square.Multiply(a, b); });
    ExpectRefused("Multiply", square, [&] { square.Multiply(square, other); });
    ExpectRefused("Multiply", square, [&] { square.Multiply(other, square); });
    ExpectRefused("Multiply", target, [&] { target.Multiply(wideDiagonal, b); });
}

TEST(KVOSrvMatrixArithmetic, SymmetricMultiplyComputesTheLowerBlocks)
{
    for (int n : {0, 1, 127, 128, 129, 300, 520}) {
        SCOPED_TRACE(n);
        KVOSrvMatrix const a = RandomMatrix(n, n), b = RandomMatrix(n, n);
        GuardedMatrix c(n, n, true);
        c.matrix = kNotANumber;
        Dense const product = Dense(a) * Dense(b);
        c.matrix.SymmetricMultiply(a, b);
        int const firstBlock = n % 128 == 0 ? 128 : n % 128; // the first takes the remainder
        auto const block = [&](int i) { return i < firstBlock ? 0 : 1 + (i - firstBlock) / 128; };
        double const tolerance = ProductTolerance(n);
        ExpectSame(c.matrix, [&](int i, int j) { return block(j) > block(i) ? Expected(0.0) : Expected(product.At(i, j), tolerance); });
    }
    KVOSrvMatrix square = RandomMatrix(3, 3), wide = RandomMatrix(3, 4), tall = RandomMatrix(4, 3), other(square),
                 diagonal = RandomMatrix(3, 3, kDiagonal);
    KVOSrvMatrix* const refused[][3] = {{&wide, &other, &other},      {&square, &wide, &tall},     {&square, &tall, &other},
                                        {&square, &other, &wide},     {&diagonal, &other, &other}, {&square, &diagonal, &other},
                                        {&square, &other, &diagonal}, {&square, &square, &other},  {&square, &other, &square}};
    for (auto const& r : refused)
        ExpectRefused("SymmetricMultiply", *r[0], [&] { r[0]->SymmetricMultiply(*r[1], *r[2]); });
}

TEST(KVOSrvMatrixArithmetic, TransposeMultiplyWithSymmetricResultComputesOneTriangleOfBlocks)
{
    for (auto const& [m, n] :
         {std::pair(0, 0), {1, 1}, {144, 144}, {145, 145}, {300, 300}, {150, 300}, {300, 150}, {1, 150}, {290, 430}, {730, 590}})
        for (int accumulate : {0, 1}) {
            SCOPED_TRACE(testing::Message() << m << " x " << n << ", accumulate " << accumulate);
            KVOSrvMatrix const a = RandomMatrix(21, m), b = RandomMatrix(21, n);
            GuardedMatrix c(m, n);
            Dense const before(c.matrix), sum = Combined(1.0, Transposed(Dense(a)) * Dense(b), accumulate, before);
            a.TransposeMultiply(b, c.matrix, 1, accumulate);
            auto const computed = [m = m, n = n](int i, int j) { return m < n ? i / 144 <= j / 144 : i / 144 >= j / 144; };
            ExpectSame(c.matrix, [&](int i, int j) {
                return computed(i, j) ? Expected(sum.At(i, j), ProductTolerance(22)) : Expected(before.At(i, j));
            });
        }
}

TEST(KVOSrvMatrixArithmetic, MultiplyInPlace)
{
    int const cases[][4] = {{9, 9, 1, 1}, {9, 9, 0, 1}, {9, 9, 0, 0}, {9, 1, 0, 0}, {9, 1, 0, 1},    {1, 1, 0, 0},
                            {1, 1, 1, 0}, {1, 1, 0, 1}, {0, 0, 0, 0}, {0, 1, 0, 0}, {150, 150, 0, 0}};
    for (auto const& [rows, columns, isDiagonal, otherIsDiagonal] : cases) {
        SCOPED_TRACE(testing::Message() << rows << " x " << columns << ", diagonal " << isDiagonal << otherIsDiagonal);
        GuardedMatrix guarded(rows, columns, false, isDiagonal != 0);
        KVOSrvMatrix const other = RandomMatrix(rows, rows, otherIsDiagonal != 0);
        Dense const x(guarded.matrix), b(other);
        FailEachAllocation(guarded.matrix, [&] { guarded.matrix *= other; });
        ExpectSame(guarded.matrix, columns == 1 ? b * x : x * b, ProductTolerance(rows)); // a column is multiplied from the left
    }
    KVOSrvMatrix square = RandomMatrix(3, 3), wide = RandomMatrix(3, 4), tall = RandomMatrix(4, 3), column = RandomMatrix(3, 1);
    KVOSrvMatrix diagonal = RandomMatrix(3, 3, kDiagonal), other = RandomMatrix(3, 3), wideDiagonal = RandomMatrix(4, 3, kDiagonal);
    KVOSrvMatrix sameArray(3, 3, square.Values(), false, false);
    auto const refused = [](char const* name, KVOSrvMatrix& matrix, KVOSrvMatrix const& factor) {
        ExpectRefused(name, matrix, [&] { matrix *= factor; });
    };
    refused("*=", square, square);
    refused("*=", tall, other);
    refused("*=", square, wideDiagonal);
    refused("Multiply", wide, other);
    refused("Multiply", wide, diagonal);
    refused("Multiply", square, tall);
    refused("Multiply", column, tall); // the result would not fit
    refused("Multiply", diagonal, other);
    refused("Multiply", square, sameArray);
}

TEST(KVOSrvMatrixArithmetic, PermuteRowsInPlace)
{
    for (int n : {0, 1, 9}) {
        std::vector<int> perm(n);
        for (int i = 0; i < n; ++i)
            perm[i] = (5 * i + 2) % n;
        GuardedMatrix guarded(n, 4);
        KVOSrvMatrix const before(guarded.matrix);
        EXPECT_EQ(FailEachAllocation(guarded.matrix, [&] { guarded.matrix.PermuteRowsInPlace(perm.data(), n); }), 1);
        ExpectSame(before, [&](int i, int j) { return Element(guarded.matrix, perm[i], j); });
    }
    GuardedMatrix guarded(3, 2);
    KVOSrvMatrix matrix(guarded.matrix), diagonal = RandomMatrix(3, 3, kDiagonal);
    Dense const before(matrix);
    int const beyond[] = {1, 4, 0}, atBound[] = {1, 3, -1}, fine[] = {1, 2, 0};
    ExpectRefused("PermuteRowsInPlace", matrix, [&] { matrix.PermuteRowsInPlace(fine, 2); });
    ExpectRefused("PermuteRowsInPlace", diagonal, [&] { diagonal.PermuteRowsInPlace(fine, 3); });
    EXPECT_THROW(matrix.PermuteRowsInPlace(beyond, 3), KVOSrvMtxIllegalPermVect);
    ExpectSame(matrix, [&](int i, int j) { return i == 1 && j == 0 ? before.At(0, 0) : before.At(i, j); });
    guarded.matrix.PermuteRowsInPlace(atBound, 3); // passes, and its rows go nowhere
    ExpectSame(guarded.matrix, [&](int i, int j) { return i == 1 ? before.At(0, j) : before.At(i, j); });
}

} // namespace
