#include "MatrixSupport.h"

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
    KVOSrvMatrix matrix = RandomMatrix(3, 3);
    for (double t : {-1e-300, 1.5})
        ExpectRefused("Interpolate", matrix, [&] { matrix.Interpolate(t, matrix, matrix); });
    matrix.Interpolate(kNotANumber, matrix, matrix);
    EXPECT_TRUE(std::all_of(matrix.Values(), matrix.Values() + 9, [](double x) { return std::isnan(x); }));
}

// m, n, k
int const kSizes[][3] = {{0, 0, 0}, {3, 2, 0}, {0, 3, 2}, {1, 1, 1}, {9, 9, 9}, {7, 8, 9}, {9, 1, 8}, {33, 65, 17}, {144, 145, 31}};

TEST(KVOSrvMatrixArithmetic, ProductIntoAnotherMatrix)
{
    std::vector<std::array<int, 3>> sizes{{1, 1, 21},     {144, 144, 21}, {145, 145, 21}, {300, 300, 21}, {150, 300, 21},
                                          {300, 150, 21}, {1, 150, 21},   {290, 430, 21}, {730, 590, 21}};
    for (auto const& [m, n, k] : kSizes)
        sizes.push_back({m, n, k});
    for (auto const& [m, n, k] : sizes)
        for (int accumulate : {0, -5})
            for (std::string const kind : {"plain", "transposed", "symmetric"}) {
                SCOPED_TRACE(testing::Message() << m << ", " << n << ", " << k << ", accumulate " << accumulate << ", " << kind);
                bool const transposed = kind != "plain", triangle = kind == "symmetric";
                KVOSrvMatrix const a = transposed ? RandomMatrix(k, m) : RandomMatrix(m, k), b = RandomMatrix(k, n);
                GuardedMatrix c(m, n);
                if (accumulate == 0)
                    c.matrix = kNotANumber; // overwritten, not multiplied by 0
                Dense const before(c.matrix);
                Dense const sum = Combined(1.0, Product(Dense(a), transposed, Dense(b)), accumulate != 0 ? 1.0 : 0.0, before);
                transposed ? a.TransposeMultiply(b, c.matrix, triangle, accumulate) : a.Multiply(b, c.matrix, 99, accumulate);
                bool const upper = m < n;
                double const tolerance = ProductTolerance(k + 1);
                ExpectSame(c.matrix, [&](int i, int j) { // with a symmetric result one triangle of blocks is computed
                    bool const computed = !triangle || (upper ? i / 144 <= j / 144 : i / 144 >= j / 144);
                    return computed ? Expected(sum.At(i, j), tolerance) : Expected(before.At(i, j));
                });
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
}

TEST(KVOSrvMatrixArithmetic, RefusesOperandsThatDoNotFit)
{
    // Square ones and a view of one, wide ones, a tall one, a column, a larger one, and diagonal ones, which may be square, wide or tall.
    KVOSrvMatrix s = RandomMatrix(3, 3), s2(s), s3(3, 3, s.Values(), false, false), w = RandomMatrix(3, 4), w2(w), t = RandomMatrix(4, 3),
                 c = RandomMatrix(3, 1), l = RandomMatrix(4, 4), d = RandomMatrix(3, 3, kDiagonal), dw = RandomMatrix(3, 4, kDiagonal),
                 dt = RandomMatrix(4, 3, kDiagonal);
    using Operation = void (*)(KVOSrvMatrix & target, KVOSrvMatrix const& a, KVOSrvMatrix const& b);
    auto const expectRefused = [](char const* operation, std::vector<std::vector<KVOSrvMatrix*>> const& operands, Operation run) {
        for (auto const& o : operands) { // the target first
            SCOPED_TRACE(testing::Message() << operation << ", operands " << &o - operands.data());
            ExpectRefused(operation, *o[0], [&] { run(*o[0], *o[1], *o[2]); });
        }
    };
    expectRefused("Interpolate", {{&s, &w, &s}, {&s, &s, &w}, {&s, &d, &s}, {&s, &s, &d}, {&d, &s, &s}},
                  [](auto& target, auto& a, auto& b) { target.Interpolate(0.5, a, b); });
    expectRefused("Multiply", {{&w, &w2, &w2}, {&s, &w, &l}, {&s, &t, &s2}, {&w, &dw, &l}, {&w, &s2, &dw}, {&s, &s, &s2}, {&s, &s2, &s}},
                  [](auto& target, auto& a, auto& b) { target.Multiply(a, b); });
    Operation const symmetric = [](auto& target, auto& a, auto& b) { target.SymmetricMultiply(a, b); };
    expectRefused("SymmetricMultiply", {{&w, &s2, &s2}, {&s, &w, &t}, {&s, &t, &s2}, {&s, &s2, &w}, {&d, &s2, &s2}}, symmetric);
    expectRefused("SymmetricMultiply", {{&s, &d, &s2}, {&s, &s2, &d}, {&s, &s, &s2}, {&s, &s2, &s}}, symmetric);
    expectRefused("*=", {{&s, &s, &s}, {&t, &s, &s}, {&s, &dt, &s}}, [](auto& target, auto& a, auto&) { target *= a; });
    expectRefused("Multiply", {{&w, &s, &s}, {&w, &d, &s}, {&s, &t, &s}, {&c, &t, &s}, {&d, &s, &s}, {&s, &s3, &s}},
                  [](auto& target, auto& a, auto&) { target *= a; });
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
