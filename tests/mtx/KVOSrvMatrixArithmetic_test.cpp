#include "MatrixSupport.h"

#include <array>
#include <limits>

namespace
{

double const kNaN = std::numeric_limits<double>::quiet_NaN();
double const kUnitRoundoff = std::numeric_limits<double>::epsilon() / 2;
bool const kDiagonal = true;

// c + op(a) b with the error bound of a product that is summed in any order: |error| <= gamma_k |op(a)| |b|, gamma_k being k u / (1 - k u)
// (Higham, Accuracy and Stability of Numerical Algorithms, section 3.5), and one operation more for the sum with c.
Expected ProductElement(Dense const& a, bool transposed, Dense const& b, int i, int j, double c = 0.0)
{
    long double sum = c, magnitude = std::abs(c);
    for (int l = 0; l < b.rows; ++l) {
        long double const term = static_cast<long double>(transposed ? a.At(l, i) : a.At(i, l)) * b.At(l, j);
        sum += term;
        magnitude += std::abs(term);
    }
    return {static_cast<double>(sum), static_cast<double>(magnitude) * (b.rows + 2) * kUnitRoundoff * 1.01};
}

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

TEST(KVOSrvMatrixArithmetic, SumsOfEveryKind)
{
    for (int kinds = 0; kinds < 4; ++kinds)
        for (double f : {1.0, -1.0, 0.3}) {
            bool const targetDiagonal = (kinds & 1) != 0, sourceDiagonal = (kinds & 2) != 0;
            SCOPED_TRACE(testing::Message() << "kinds " << kinds << ", factor " << f);
            GuardedMatrix guarded(9, 9, false, targetDiagonal);
            KVOSrvMatrix& target = guarded.matrix;
            Dense const before(target);
            KVOSrvMatrix const source = RandomMatrix(9, 9, sourceDiagonal);
            if (targetDiagonal && !sourceDiagonal) {
                ExpectRefused("Add", target, [&] { target.Add(f, source); });
                ExpectRefused("*=", target, [&] { target += source; });
                continue;
            }
            f == 1.0 ? static_cast<void>(target += source) : target.Add(f, source);
            ExpectElements(target, [&](int i, int j) {
                return sourceDiagonal && i != j ? before.At(i, j) : before.At(i, j) + f * Element(source, i, j);
            });
        }
    KVOSrvMatrix matrix = RandomMatrix(3, 5), other = RandomMatrix(5, 3);
    Dense const before(matrix);
    ExpectRefused("Add", matrix, [&] { matrix.Add(kNaN, other); });
    ExpectRefused("*=", matrix, [&] { matrix += other; });
    ExpectRefused("*=", matrix, [&] { matrix += matrix; });
    matrix.Add(-0.0, other);
    matrix.Add(2.0, matrix);
    ExpectElements(matrix, [&](int i, int j) { return before.At(i, j) + 2.0 * before.At(i, j); });
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
            ExpectElements(result,
                           [&](int i, int j) { return diagonal && i != j ? 0.0 : (1 - t) * Element(a, i, j) + t * Element(b, i, j); });
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
    matrix.Interpolate(kNaN, matrix, matrix);
    EXPECT_TRUE(std::all_of(matrix.Values(), matrix.Values() + 9, [](double x) { return std::isnan(x); }));
}

int const kSizes[][3] = {{0, 0, 0}, {3, 2, 0}, {0, 3, 2}, {1, 1, 1}, {7, 8, 9}, {9, 1, 8}, {33, 65, 17}, {144, 145, 31}}; // m, n, k

TEST(KVOSrvMatrixArithmetic, ProductIntoAnotherMatrix)
{
    for (auto const& [m, n, k] : kSizes)
        for (int accumulate : {0, -5})
            for (bool transposed : {false, true}) {
                SCOPED_TRACE(testing::Message()
                             << m << ", " << n << ", " << k << ", accumulate " << accumulate << ", transposed " << transposed);
                KVOSrvMatrix const a = transposed ? RandomMatrix(k, m) : RandomMatrix(m, k), b = RandomMatrix(k, n);
                GuardedMatrix c(m, n, false, false);
                if (accumulate == 0)
                    c.matrix = kNaN; // overwritten, not multiplied by 0
                Dense const before(c.matrix), denseA(a), denseB(b);
                transposed ? a.TransposeMultiply(b, c.matrix, 0, accumulate) : a.Multiply(b, c.matrix, 99, accumulate);
                ExpectElements(c.matrix, [&](int i, int j) {
                    return ProductElement(denseA, transposed, denseB, i, j, accumulate != 0 ? before.At(i, j) : 0.0);
                });
            }
}

TEST(KVOSrvMatrixArithmetic, ProductsOfEveryKind)
{
    for (int kinds = 0; kinds < 8; ++kinds)
        for (auto const& [m, n, k] : {std::array{0, 0, 0}, {1, 1, 1}, {9, 9, 9}, {7, 8, 9}, {144, 145, 31}}) {
            bool const d = (kinds & 1) != 0 && m == n, aDiagonal = (kinds & 2) != 0, bDiagonal = (kinds & 4) != 0 && (m == n || !aDiagonal);
            SCOPED_TRACE(testing::Message() << "kinds " << kinds << ", " << m << ", " << n << ", " << k);
            GuardedMatrix guarded(m, n, false, d);
            KVOSrvMatrix& target = guarded.matrix;
            int const inner = aDiagonal ? m : bDiagonal ? n : k;
            KVOSrvMatrix const a = RandomMatrix(m, inner, aDiagonal), b = RandomMatrix(inner, n, bDiagonal);
            Dense const before(target), denseA(a), denseB(b);
            if (d && !(aDiagonal && bDiagonal)) {
                ExpectRefused("Multiply", target, [&] { target.Multiply(a, b); });
                continue;
            }
            target.Multiply(a, b);
            ExpectElements(target, [&](int i, int j) {
                if (aDiagonal && bDiagonal && i != j) // only the first column is cleared
                    return Expected(d || j == 0 ? 0.0 : before.At(i, j));
                return ProductElement(denseA, false, denseB, i, j);
            });
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
    for (int n : {0, 1, 128, 129, 200, 300}) {
        SCOPED_TRACE(n);
        KVOSrvMatrix const a = RandomMatrix(n, n), b = RandomMatrix(n, n);
        GuardedMatrix c(n, n, true, false);
        c.matrix = kNaN;
        Dense const denseA(a), denseB(b);
        c.matrix.SymmetricMultiply(a, b);
        int const firstBlock = n % 128 == 0 ? 128 : n % 128; // the first takes the remainder
        auto const block = [&](int i) { return i < firstBlock ? 0 : 1 + (i - firstBlock) / 128; };
        ExpectElements(c.matrix,
                       [&](int i, int j) { return block(j) > block(i) ? Expected(0.0) : ProductElement(denseA, false, denseB, i, j); });
    }
    KVOSrvMatrix square = RandomMatrix(3, 3), wide = RandomMatrix(3, 4), tall = RandomMatrix(4, 3),
                 diagonal = RandomMatrix(3, 3, kDiagonal);
    KVOSrvMatrix other = RandomMatrix(3, 3);
    KVOSrvMatrix* const refused[][3] = {{&wide, &other, &other},      {&square, &wide, &tall},     {&square, &tall, &other},
                                        {&square, &other, &wide},     {&diagonal, &other, &other}, {&square, &diagonal, &other},
                                        {&square, &other, &diagonal}, {&square, &square, &other},  {&square, &other, &square}};
    for (auto const& [target, a, b] : refused)
        ExpectRefused("SymmetricMultiply", *target, [&, target = target, a = a, b = b] { target->SymmetricMultiply(*a, *b); });
}

TEST(KVOSrvMatrixArithmetic, TransposeMultiplyWithSymmetricResultComputesOneTriangleOfBlocks)
{
    for (auto const& [m, n] : {std::pair(0, 0), {1, 1}, {144, 144}, {145, 145}, {300, 300}, {150, 300}, {300, 150}, {1, 150}, {290, 430}})
        for (int accumulate : {0, 1}) {
            SCOPED_TRACE(testing::Message() << m << " x " << n << ", accumulate " << accumulate);
            KVOSrvMatrix const a = RandomMatrix(21, m), b = RandomMatrix(21, n);
            GuardedMatrix c(m, n, false, false);
            Dense const before(c.matrix), denseA(a), denseB(b);
            a.TransposeMultiply(b, c.matrix, 1, accumulate);
            ExpectElements(c.matrix, [&, m = m, n = n](int i, int j) {
                bool const computed = m < n ? i / 144 <= j / 144 : i / 144 >= j / 144;
                return computed ? ProductElement(denseA, true, denseB, i, j, accumulate != 0 ? before.At(i, j) : 0.0)
                                : Expected(before.At(i, j));
            });
        }
}

TEST(KVOSrvMatrixArithmetic, MultiplyInPlace)
{
    struct Case {
        int rows, columns;
        bool diagonal, otherDiagonal;
    };
    for (Case const& c : {Case{9, 9, true, true},
                          {9, 9, false, true},
                          {9, 9, false, false},
                          {9, 1, false, false},
                          {9, 1, false, true},
                          {1, 1, false, false},
                          {1, 1, true, false},
                          {1, 1, false, true},
                          {0, 0, false, false},
                          {0, 1, false, false},
                          {150, 150, false, false}}) {
        SCOPED_TRACE(testing::Message() << c.rows << " x " << c.columns << ", diagonal " << c.diagonal << c.otherDiagonal);
        GuardedMatrix guarded(c.rows, c.columns, false, c.diagonal);
        KVOSrvMatrix const other = RandomMatrix(c.rows, c.rows, c.otherDiagonal);
        Dense const x(guarded.matrix), b(other);
        FailEachAllocation(guarded.matrix, [&] { guarded.matrix *= other; });
        bool const fromLeft = c.columns == 1;
        ExpectElements(guarded.matrix,
                       [&](int i, int j) { return fromLeft ? ProductElement(b, false, x, i, j) : ProductElement(x, false, b, i, j); });
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
        GuardedMatrix guarded(n, 4, false, false);
        KVOSrvMatrix const before(guarded.matrix);
        EXPECT_EQ(FailEachAllocation(guarded.matrix, [&] { guarded.matrix.PermuteRowsInPlace(perm.data(), n); }), 1);
        ExpectElements(before, [&](int i, int j) { return Element(guarded.matrix, perm[i], j); });
    }
    GuardedMatrix guarded(3, 2, false, false);
    KVOSrvMatrix matrix(guarded.matrix), diagonal = RandomMatrix(3, 3, kDiagonal);
    Dense const before(matrix);
    int const beyond[] = {1, 4, 0}, atBound[] = {1, 3, -1}, fine[] = {1, 2, 0};
    ExpectRefused("PermuteRowsInPlace", matrix, [&] { matrix.PermuteRowsInPlace(fine, 2); });
    ExpectRefused("PermuteRowsInPlace", diagonal, [&] { diagonal.PermuteRowsInPlace(fine, 3); });
    EXPECT_THROW(matrix.PermuteRowsInPlace(beyond, 3), KVOSrvMtxIllegalPermVect);
    ExpectElements(matrix, [&](int i, int j) { return i == 1 && j == 0 ? before.At(0, 0) : before.At(i, j); });
    guarded.matrix.PermuteRowsInPlace(atBound, 3); // passes, and its rows go nowhere
    ExpectElements(guarded.matrix, [&](int i, int j) { return i == 1 ? before.At(0, j) : before.At(i, j); });
}

} // namespace
