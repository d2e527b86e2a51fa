#include "MatrixSupport.h"

#include <climits>

namespace
{

bool const kDiagonal = true;

TEST(KVOSrvMatrix, RefusesSizesThatCannotBe)
{
    KVOSrvMatrix small = RandomMatrix(2, 2);
    ExpectRefused("KVOSrvMatrix", small, [] { KVOSrvMatrix(-1, 2, nullptr, false, false); });
    ExpectRefused("KVOSrvMatrix", small, [] { KVOSrvMatrix(2, -1, nullptr, false, kDiagonal); });
    for (int order : {65536, 46341, INT_MAX}) // the first squared is 0 in 32 bits
        EXPECT_THROW(KVOSrvMatrix(order, order, nullptr, false, false), mem_OutOfMemory);
    KVOSrvMatrix(70000, 70000, nullptr, false, kDiagonal) = 1.0; // its diagonal alone

    double value = 0.0;
    KVOSrvMatrix const tooLarge(65536, 65536, &value, false, false);
    Snapshot const before(small);
    EXPECT_THROW(small = tooLarge, mem_OutOfMemory);
    before.ExpectUnchanged();
}

TEST(KVOSrvMatrix, BlocksGoInAndOutPacked)
{
    int const blocks[][4] = {{0, 8, 0, 6}, {0, 8, 2, 5}, {3, 3, 4, 4}, {2, 7, 0, 6}, {8, 8, 0, 6}}; // of 9 x 7: first and last row, column
    for (auto const& b : blocks) {
        SCOPED_TRACE(testing::PrintToString(b));
        int const rows = b[1] - b[0] + 1, columns = b[3] - b[2] + 1;
        GuardedMatrix target(9, 7), out(columns, rows); // the shape of `out` plays no part
        Dense expected(target.matrix);
        KVOSrvMatrix const block = RandomMatrix(rows, columns);

        columns == 7 ? target.matrix.SetRows(b[0], b[1], block) : target.matrix.SetValues(b[0], b[1], b[2], b[3], block);
        columns == 7 ? target.matrix.GetRows(b[0], b[1], out.matrix) : target.matrix.GetValues(b[0], b[1], b[2], b[3], out.matrix);

        Put(expected, Dense(block), b[0], b[2]);
        ExpectSame(target.matrix, expected);
        EXPECT_TRUE(std::equal(block.Values(), block.Values() + StoredEntries(block), out.matrix.Values()));
    }
}

TEST(KVOSrvMatrix, RefusesBlocksThatDoNotFit)
{
    KVOSrvMatrix matrix = RandomMatrix(4, 3), large = RandomMatrix(4, 3), small = RandomMatrix(1, 3), noColumns = RandomMatrix(4, 0);
    int const wrong[][4] = {{-1, 0, 0, 0}, {0, 4, 0, 0}, {0, 0, -1, 0},  {0, 0, 0, 3},
                            {2, 1, 0, 0},  {0, 0, 2, 1}, {3, -1, 2, -1}, {INT_MIN, INT_MAX, INT_MIN, INT_MAX}};
    for (auto const& w : wrong) {
        SCOPED_TRACE(testing::PrintToString(w));
        ExpectRefused(
            "SetValues", matrix,
            {[&] { matrix.SetValues(w[0], w[1], w[2], w[3], large.Values()); }, [&] { matrix.SetValues(w[0], w[1], w[2], w[3], large); }});
        ExpectRefused("GetValues", large, [&] { matrix.GetValues(w[0], w[1], w[2], w[3], large); });
    }
    ExpectRefused("SetValues", matrix, [&] { matrix.SetRows(0, 1, small); });
    ExpectRefused("GetValues", small, [&] { matrix.GetRows(0, 1, small); });
    ExpectRefused("SetValues", noColumns, [&] { noColumns.SetRows(0, 0, large); });

    // An array that was allocated for a diagonal ends there; whoever wraps one as a diagonal has it taken as full storage.
    KVOSrvMatrix diagonal = RandomMatrix(3, 3, kDiagonal);
    ExpectRefused("SetValues", diagonal, [&] { diagonal.SetValues(0, 0, 1, 1, large); });
    ExpectRefused("SetValues", large, [&] { large.SetValues(0, 1, 0, 1, diagonal); });
    ExpectRefused("GetValues", diagonal, [&] { large.GetValues(0, 1, 0, 1, diagonal); });
    double values[4] = {1, 2, 3, 4};
    KVOSrvMatrix(2, 2, values, false, kDiagonal).SetValues(1, 1, 1, 1, large);
    EXPECT_EQ(values[3], large.Values()[0]);
}

TEST(KVOSrvMatrix, CopiesAndAssignmentsOfEveryKind)
{
    for (int rows : {5, 3})
        for (int kinds = 0; kinds < 8; ++kinds) {
            bool const targetDiagonal = (kinds & 1) != 0 && rows == 5, sourceDiagonal = (kinds & 2) != 0, owned = (kinds & 4) != 0;
            SCOPED_TRACE(testing::Message() << rows << " rows, kinds " << kinds);
            GuardedMatrix wrapped(rows, 5, false, targetDiagonal), source(5, 5, true, sourceDiagonal);
            KVOSrvMatrix own(wrapped.matrix);
            EXPECT_TRUE(own == wrapped.matrix && own.Values() != wrapped.matrix.Values() && !own.IsSymmetric());
            KVOSrvMatrix& target = owned ? own : wrapped.matrix;
            bool const inPlace = rows == 5 && !(targetDiagonal && !sourceDiagonal);
            if (!inPlace && !owned) {
                ExpectRefused("Assignment operator", target, [&] { target = source.matrix; });
                continue;
            }
            EXPECT_EQ(FailEachAllocation(target, [&] { target = source.matrix; }), inPlace ? 0 : 1);

            ExpectSame(target, Dense(source.matrix));
            EXPECT_EQ(target.IsSymmetric(), !inPlace);
            EXPECT_EQ(target.IsDiagonal(), inPlace ? targetDiagonal : sourceDiagonal);
        }
    KVOSrvMatrix matrix = RandomMatrix(4, 6), before(matrix);
    matrix = KVOSrvMatrix(8, 3, matrix.Values(), false, false); // from a view of its own array
    EXPECT_TRUE(matrix == KVOSrvMatrix(8, 3, before.Values(), false, false));
}

TEST(KVOSrvMatrix, ComparesExactly)
{
    KVOSrvMatrix const a = RandomMatrix(3, 3);
    KVOSrvMatrix b(a), zeros(3, 3, nullptr, false, false), diagonalZeros(3, 3, nullptr, false, kDiagonal);
    KVOSrvMatrix const& same = b;
    b.Values()[8] = std::nextafter(b.Values()[8], 2.0);
    EXPECT_FALSE(a == b);
    b.Values()[8] = kNotANumber;
    EXPECT_TRUE(b == same && RandomMatrix(0, 4) == kNotANumber);
    EXPECT_FALSE(b == KVOSrvMatrix(b) || b == kNotANumber || RandomMatrix(0, 3) == RandomMatrix(3, 0));
    zeros = -0.0;
    diagonalZeros = 0.0;
    EXPECT_TRUE(zeros == 0.0 && !(diagonalZeros == zeros));
}

// What brings a source into a target, element by element, at an offset or not, with a factor or not.
struct Operation {
    char const* name; // by which it refuses a source that a diagonal target has no room for
    bool offset, refusesEveryDiagonal;
    void (*run)(KVOSrvMatrix& target, double factor, KVOSrvMatrix const& source, int row, int column);
    double (*expected)(double before, double factor, double source, bool onDiagonal);
};
Operation const kOperations[] = {
    {"SetDiagonal", false, false, [](auto& t, double, auto& s, int, int) { t.SetDiagonal(s); },
     [](double x, double, double s, bool onDiagonal) { return onDiagonal ? s : x; }},
    {"SetSlice", true, false, [](auto& t, double f, auto& s, int r, int c) { t.SetSlice(f, s, r, c); },
     [](double, double f, double s, bool) { return 0.0 + f * s; }},
    {"Assignment operator", true, true, [](auto& t, double f, auto& s, int r, int c) { t.AddSlice(f, s, r, c); },
     [](double x, double f, double s, bool) { return x + f * s; }},
    {"*=", false, false, [](auto& t, double, auto& s, int, int) { t += s; }, [](double x, double, double s, bool) { return x + s; }},
    {"Add", false, false, [](auto& t, double f, auto& s, int, int) { t.Add(f, s); },
     [](double x, double f, double s, bool) { return x + f * s; }},
};

TEST(KVOSrvMatrix, ElementwiseOperationsOfEveryKind)
{
    for (Operation const& operation : kOperations)
        for (double const factor : {1.0, -1.0, 0.3})
            for (int kinds = 0; kinds < 8; ++kinds) {
                bool const targetDiagonal = (kinds & 1) != 0, sourceDiagonal = (kinds & 2) != 0,
                           part = (kinds & 4) != 0 && operation.offset;
                SCOPED_TRACE(testing::Message() << operation.name << ", factor " << factor << ", kinds " << kinds);
                int const order = part ? 4 : 9, row = part ? 2 : 0, column = part ? 5 : 0;
                GuardedMatrix guarded(9, 9, false, targetDiagonal);
                KVOSrvMatrix& target = guarded.matrix;
                KVOSrvMatrix const source = RandomMatrix(order, order, sourceDiagonal);
                Dense const before(target);
                if (targetDiagonal && (!sourceDiagonal || operation.refusesEveryDiagonal)) {
                    ExpectRefused(operation.name, target, [&] { operation.run(target, factor, source, row, column); });
                    continue;
                }
                operation.run(target, factor, source, row, column);
                ExpectSame(target, [&](int i, int j) {
                    int const y = i - row, x = j - (targetDiagonal ? row : column); // the column offset plays no part in a diagonal
                    bool const inside = y >= 0 && y < order && x >= 0 && x < order && !(targetDiagonal && x != y);
                    return inside ? operation.expected(before.At(i, j), factor, Element(source, y, x), i == j) : before.At(i, j);
                });
            }

    KVOSrvMatrix matrix = RandomMatrix(5, 4), other = RandomMatrix(4, 5); // into itself
    Dense const before(matrix);
    matrix.SetSlice(-3.0, matrix, 0, 0);
    matrix.AddSlice(0.5, matrix, 0, 0);
    matrix.Add(-0.0, other);
    matrix.Add(2.0, matrix);
    ExpectSame(matrix, [&](int i, int j) {
        double const x = -3.0 * before.At(i, j), y = x + 0.5 * x;
        return y + 2.0 * y;
    });

    KVOSrvMatrix square = RandomMatrix(3, 3), wide = RandomMatrix(3, 4), smaller = RandomMatrix(2, 2), larger = RandomMatrix(5, 5);
    for (auto const& [target, source] : {std::pair(&square, &wide), {&wide, &square}, {&square, &smaller}})
        ExpectRefused("SetDiagonal", *target, [&, target = target, source = source] { target->SetDiagonal(*source); });
    ExpectRefused("Add", matrix, [&] { matrix.Add(kNotANumber, other); });
    ExpectRefused("*=", matrix, {[&] { matrix += other; }, [&] { matrix += matrix; }});
    square.SetDiagonal(larger);
    smaller.SetDiagonal(larger.Values());
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(Element(square, i, i), Element(larger, i, i));
    EXPECT_EQ(Element(smaller, 1, 1), larger.Values()[1]);
}

TEST(KVOSrvMatrix, TransposesOwnedAndWrappedArraysAndMirrorsTheTriangleThatTheShapeNames)
{
    for (auto const& [m, n] : {std::pair(0, 0), {0, 3}, {1, 1}, {1, 9}, {9, 1}, {2, 3}, {8, 8}, {9, 7}, {40, 40}, {17, 130}, {300, 145}}) {
        SCOPED_TRACE(testing::Message() << m << " x " << n);
        GuardedMatrix wrapped(m, n), mirrored(m, n), skew(m, n);
        KVOSrvMatrix owned(wrapped.matrix);
        Dense const before(owned);
        mirrored.matrix = owned;
        skew.matrix = owned;
        double const* const array = wrapped.matrix.Values();

        int const allocations = m == n ? 0 : 1;
        EXPECT_EQ(FailEachAllocation(owned, [&] { owned.Transpose(); }), allocations);
        EXPECT_EQ(FailEachAllocation(wrapped.matrix, [&] { wrapped.matrix.Transpose(); }), allocations);
        mirrored.matrix.SetSymmetricResults();
        skew.matrix.SetSkewSymmetricResults();

        EXPECT_EQ(wrapped.matrix.Values(), array);
        ExpectSame(owned, Transposed(before));
        EXPECT_TRUE(owned == wrapped.matrix);
        ExpectSame(mirrored.matrix, Mirrored(before));
        ExpectSame(skew.matrix, Mirrored(before, -1.0));
        EXPECT_EQ(mirrored.matrix.IsSymmetricNumerically(), m == n);
        EXPECT_EQ(skew.matrix.IsSymmetricNumerically(), m == n && m < 2);
    }

    // Flags that leave nothing to do.
    double values[6] = {1, 2, 3, 4, 5, 6};
    KVOSrvMatrix symmetric(2, 3, values, true, false), diagonal = RandomMatrix(3, 3, kDiagonal);
    Snapshot const before(symmetric), beforeDiagonal(diagonal);
    symmetric.Transpose();
    diagonal.Transpose();
    diagonal.SetSymmetricResults();
    diagonal.SetSkewSymmetricResults();
    before.ExpectUnchanged();
    beforeDiagonal.ExpectUnchanged();
    EXPECT_TRUE(!symmetric.IsSymmetricNumerically() && diagonal.IsSymmetricNumerically());
}

} // namespace
