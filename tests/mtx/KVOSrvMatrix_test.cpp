#include "MatrixSupport.h"

#include <climits>
#include <limits>

namespace
{

double const kNaN = std::numeric_limits<double>::quiet_NaN();
int const kShapes[][2] = {{0, 0}, {0, 3}, {1, 1}, {1, 9}, {9, 1}, {2, 3}, {8, 8}, {9, 7}, {40, 40}, {17, 130}, {300, 145}};

TEST(KVOSrvMatrix, RefusesSizesThatCannotBe)
{
    KVOSrvMatrix small = RandomMatrix(2, 2);
    ExpectRefused("KVOSrvMatrix", small, [] { KVOSrvMatrix(-1, 2, nullptr, false, false); });
    ExpectRefused("KVOSrvMatrix", small, [] { KVOSrvMatrix(2, -1, nullptr, false, true); });
    for (int order : {65536, 46341, INT_MAX}) // the first squared is 0 in 32 bits
        EXPECT_THROW(KVOSrvMatrix(order, order, nullptr, false, false), mem_OutOfMemory);
    KVOSrvMatrix(70000, 70000, nullptr, false, true) = 1.0; // its diagonal alone

    double value = 0.0;
    KVOSrvMatrix const tooLarge(65536, 65536, &value, false, false);
    Snapshot const before(small);
    EXPECT_THROW(small = tooLarge, mem_OutOfMemory);
    before.ExpectUnchanged();
}

TEST(KVOSrvMatrix, BlocksGoInAndOutPacked)
{
    int const blocks[][4] = {{0, 8, 0, 6}, {0, 8, 2, 5}, {3, 3, 4, 4}, {2, 7, 0, 6}, {8, 8, 0, 6}}; // of 9 x 7: first and last row, column
    for (auto const& [r0, r1, c0, c1] : blocks) {
        SCOPED_TRACE(testing::Message() << r0 << ".." << r1 << ", " << c0 << ".." << c1);
        GuardedMatrix target(9, 7, false, false), out(c1 - c0 + 1, r1 - r0 + 1, false, false); // the shape of `out` plays no part
        Dense const before(target.matrix);
        KVOSrvMatrix const block = RandomMatrix(r1 - r0 + 1, c1 - c0 + 1);

        c1 - c0 == 6 ? target.matrix.SetRows(r0, r1, block) : target.matrix.SetValues(r0, r1, c0, c1, block);
        c1 - c0 == 6 ? target.matrix.GetRows(r0, r1, out.matrix) : target.matrix.GetValues(r0, r1, c0, c1, out.matrix);

        ExpectElements(target.matrix, [&, r0 = r0, r1 = r1, c0 = c0, c1 = c1](int i, int j) {
            return i >= r0 && i <= r1 && j >= c0 && j <= c1 ? Element(block, i - r0, j - c0) : before.At(i, j);
        });
        EXPECT_TRUE(std::equal(block.Values(), block.Values() + StoredEntries(block), out.matrix.Values()));
    }
}

TEST(KVOSrvMatrix, RefusesBlocksThatDoNotFit)
{
    KVOSrvMatrix matrix = RandomMatrix(4, 3), large = RandomMatrix(4, 3), small = RandomMatrix(1, 3),
                 noColumns(4, 0, nullptr, false, false);
    int const wrong[][4] = {{-1, 0, 0, 0}, {0, 4, 0, 0}, {0, 0, -1, 0},  {0, 0, 0, 3},
                            {2, 1, 0, 0},  {0, 0, 2, 1}, {3, -1, 2, -1}, {INT_MIN, INT_MAX, INT_MIN, INT_MAX}};
    for (auto const& w : wrong) {
        SCOPED_TRACE(testing::Message() << w[0] << ".." << w[1] << ", " << w[2] << ".." << w[3]);
        ExpectRefused("SetValues", matrix, [&] { matrix.SetValues(w[0], w[1], w[2], w[3], large.Values()); });
        ExpectRefused("SetValues", matrix, [&] { matrix.SetValues(w[0], w[1], w[2], w[3], large); });
        ExpectRefused("GetValues", large, [&] { matrix.GetValues(w[0], w[1], w[2], w[3], large); });
    }
    ExpectRefused("SetValues", matrix, [&] { matrix.SetRows(0, 1, small); });
    ExpectRefused("GetValues", small, [&] { matrix.GetRows(0, 1, small); });
    ExpectRefused("SetValues", noColumns, [&] { noColumns.SetRows(0, 0, large); });

    // An array that was allocated for a diagonal ends there; whoever wraps one as a diagonal has it taken as full storage.
    KVOSrvMatrix diagonal = RandomMatrix(3, 3, true);
    ExpectRefused("SetValues", diagonal, [&] { diagonal.SetValues(0, 0, 1, 1, large); });
    ExpectRefused("SetValues", large, [&] { large.SetValues(0, 1, 0, 1, diagonal); });
    ExpectRefused("GetValues", diagonal, [&] { large.GetValues(0, 1, 0, 1, diagonal); });
    double values[4] = {1, 2, 3, 4};
    KVOSrvMatrix(2, 2, values, false, true).SetValues(1, 1, 1, 1, large);
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

            ExpectElements(target, [&](int i, int j) { return Element(source.matrix, i, j); });
            EXPECT_EQ(target.NumberOfRows(), 5);
            EXPECT_EQ(target.IsSymmetric(), !inPlace);
            EXPECT_EQ(target.IsDiagonal(), inPlace ? targetDiagonal : sourceDiagonal);
        }
    KVOSrvMatrix matrix = RandomMatrix(4, 6), before(matrix);
    matrix = KVOSrvMatrix(8, 3, matrix.Values(), false, false); // from a view of its own array
    EXPECT_EQ(matrix.NumberOfRows(), 8);
    EXPECT_TRUE(std::equal(before.Values(), before.Values() + 24, matrix.Values()));
}

TEST(KVOSrvMatrix, ComparesExactly)
{
    KVOSrvMatrix const a = RandomMatrix(3, 3);
    KVOSrvMatrix b(a), zeros(3, 3, nullptr, false, false), diagonalZeros(3, 3, nullptr, false, true);
    b.Values()[8] = std::nextafter(b.Values()[8], 2.0);
    EXPECT_FALSE(a == b);
    b.Values()[8] = kNaN;
    KVOSrvMatrix const& same = b;
    EXPECT_TRUE(b == same);
    EXPECT_FALSE(b == KVOSrvMatrix(b));
    EXPECT_FALSE(b == kNaN);
    EXPECT_TRUE(KVOSrvMatrix(0, 4, nullptr, false, false) == kNaN);
    zeros = -0.0;
    diagonalZeros = 0.0;
    EXPECT_TRUE(zeros == 0.0);
    EXPECT_FALSE(diagonalZeros == zeros);
    EXPECT_FALSE(KVOSrvMatrix(0, 3, nullptr, false, false) == KVOSrvMatrix(3, 0, nullptr, false, false));
}

TEST(KVOSrvMatrix, SetDiagonalOfEveryKind)
{
    for (int kinds = 0; kinds < 8; ++kinds) {
        bool const targetDiagonal = (kinds & 1) != 0, sourceDiagonal = (kinds & 2) != 0;
        GuardedMatrix target(3, 3, false, targetDiagonal);
        Dense const before(target.matrix);
        int const order = (kinds & 4) != 0 ? 5 : 3;
        KVOSrvMatrix const source = RandomMatrix(order, order, sourceDiagonal);
        double const d[3] = {Element(source, 0, 0), Element(source, 1, 1), Element(source, 2, 2)};
        if (targetDiagonal && !sourceDiagonal)
            ExpectRefused("SetDiagonal", target.matrix, [&] { target.matrix.SetDiagonal(source); });
        if (kinds == 0 || (targetDiagonal && !sourceDiagonal))
            target.matrix.SetDiagonal(d);
        else
            target.matrix.SetDiagonal(source);
        ExpectElements(target.matrix, [&](int i, int j) { return i == j ? d[i] : before.At(i, j); });
    }
    KVOSrvMatrix square = RandomMatrix(3, 3), wide = RandomMatrix(3, 4), smaller = RandomMatrix(2, 2);
    ExpectRefused("SetDiagonal", square, [&] { square.SetDiagonal(wide); });
    ExpectRefused("SetDiagonal", wide, [&] { wide.SetDiagonal(square); });
    ExpectRefused("SetDiagonal", square, [&] { square.SetDiagonal(smaller); });
}

TEST(KVOSrvMatrix, SlicesOfEveryKind)
{
    for (int kinds = 0; kinds < 8; ++kinds)
        for (double f : {1.0, -0.3}) {
            bool const targetDiagonal = (kinds & 1) != 0, sourceDiagonal = (kinds & 2) != 0, whole = (kinds & 4) != 0;
            SCOPED_TRACE(testing::Message() << "kinds " << kinds << ", factor " << f);
            int const order = whole ? 9 : 4, r = whole ? 0 : 2, c = whole ? 0 : 5;
            GuardedMatrix guarded(9, 9, false, targetDiagonal);
            KVOSrvMatrix& target = guarded.matrix;
            KVOSrvMatrix const source = RandomMatrix(order, order, sourceDiagonal);
            auto const inside = [&](int i, int j) { return i >= r && i < r + order && j >= c && j < c + order; };
            Dense const before(target);
            if (targetDiagonal)
                ExpectRefused("Assignment operator", target, [&] { target.AddSlice(f, source, r, c); });
            if (targetDiagonal && !sourceDiagonal) {
                ExpectRefused("SetSlice", target, [&] { target.SetSlice(f, source, r, c); });
                continue;
            }
            target.SetSlice(f, source, r, c);
            ExpectElements(target, [&](int i, int j) {
                if (targetDiagonal) // the column offset plays no part
                    return i == j && i >= r && i < r + order ? f * source.Values()[i - r] : before.At(i, j);
                return !inside(i, j) ? before.At(i, j) : sourceDiagonal && i - r != j - c ? 0.0 : f * Element(source, i - r, j - c);
            });
            if (targetDiagonal)
                continue;
            Dense const set(target);
            target.AddSlice(f, source, r, c);
            ExpectElements(target, [&](int i, int j) {
                bool const added = inside(i, j) && (!sourceDiagonal || i - r == j - c);
                return added ? set.At(i, j) + f * Element(source, i - r, j - c) : set.At(i, j);
            });
        }
    KVOSrvMatrix matrix = RandomMatrix(5, 4);
    Dense const before(matrix);
    matrix.SetSlice(-3.0, matrix, 0, 0);
    matrix.AddSlice(0.5, matrix, 0, 0);
    ExpectElements(matrix, [&](int i, int j) { return -3.0 * before.At(i, j) + 0.5 * (-3.0 * before.At(i, j)); });
}

TEST(KVOSrvMatrix, TransposesOwnedAndWrappedArraysAndMirrorsTheTriangleThatTheShapeNames)
{
    for (auto const& [rows, columns] : kShapes) {
        SCOPED_TRACE(testing::Message() << rows << " x " << columns);
        GuardedMatrix wrapped(rows, columns, false, false), mirrored(rows, columns, false, false), skew(rows, columns, false, false);
        KVOSrvMatrix owned(wrapped.matrix);
        Dense const before(wrapped.matrix);
        mirrored.matrix = owned;
        skew.matrix = owned;
        double const* const array = wrapped.matrix.Values();

        int const allocations = FailEachAllocation(owned, [&] { owned.Transpose(); });
        EXPECT_EQ(FailEachAllocation(wrapped.matrix, [&] { wrapped.matrix.Transpose(); }), allocations);
        mirrored.matrix.SetSymmetricResults();
        skew.matrix.SetSkewSymmetricResults();

        EXPECT_EQ(allocations, rows == columns ? 0 : 1);
        EXPECT_EQ(wrapped.matrix.Values(), array);
        EXPECT_EQ(owned.NumberOfRows(), columns);
        ExpectElements(owned, [&](int i, int j) { return before.At(j, i); });
        EXPECT_TRUE(owned == wrapped.matrix);
        auto const mirrors = [rows = rows, columns = columns](int i, int j) { return rows < columns ? j < i : i < j && j < columns; };
        ExpectElements(mirrored.matrix, [&](int i, int j) { return mirrors(i, j) ? before.At(j, i) : before.At(i, j); });
        ExpectElements(skew.matrix, [&](int i, int j) { return mirrors(i, j) ? -before.At(j, i) : before.At(i, j); });
        EXPECT_EQ(mirrored.matrix.IsSymmetricNumerically(), rows == columns);
        EXPECT_EQ(skew.matrix.IsSymmetricNumerically(), rows == columns && rows < 2);
    }
}

TEST(KVOSrvMatrix, FlagsThatLeaveNothingToTranspose)
{
    double values[6] = {1, 2, 3, 4, 5, 6};
    KVOSrvMatrix symmetric(2, 3, values, true, false), diagonal(3, 3, nullptr, false, true);
    diagonal = kNaN;
    Snapshot const before(symmetric), beforeDiagonal(diagonal);
    symmetric.Transpose();
    diagonal.Transpose();
    diagonal.SetSymmetricResults();
    diagonal.SetSkewSymmetricResults();
    before.ExpectUnchanged();
    beforeDiagonal.ExpectUnchanged();
    EXPECT_FALSE(symmetric.IsSymmetricNumerically());
    EXPECT_TRUE(diagonal.IsSymmetricNumerically());
}

} // namespace
