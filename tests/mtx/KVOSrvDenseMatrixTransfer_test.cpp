// Transfers and whole-matrix operations against a dense copy in memory, over chunkings and views.

#include "DatabaseSupport.h"
#include "KVOSimException.h"

#include <gmock/gmock.h>

namespace
{

struct Cut {
    int rows, columns, rowChunk, columnChunk;
};

constexpr Cut kCuts[] = {{13, 11, 4, 3}, {13, 11, 13, 2}, {13, 11, 1, 11}, {13, 11, 20, 5}, {13, 11, -1, -1}, {16, 8, 8, 4}, {1, 9, 1, 4}};

std::ostream& operator<<(std::ostream& out, Cut const& cut)
{
    return out << cut.rows << " x " << cut.columns << " in chunks of " << cut.rowChunk << " x " << cut.columnChunk;
}

class Random
{
public:
    int Below(int end) { return std::uniform_int_distribution<>(0, end - 1)(m_engine); }
    std::pair<int, int> Range(int size)
    {
        int const a = Below(size), b = Below(size);
        return {std::min(a, b), std::max(a, b)};
    }

private:
    std::mt19937 m_engine{7};
};

/// A random view of a stored matrix, or all of it, and where it lies.
struct RandomView {
    RandomView(KVOSrvDenseMatrix& matrix, Random& random)
    {
        std::tie(r0, r1) = random.Range(matrix.NumberOfRows());
        std::tie(c0, c1) = random.Range(matrix.NumberOfColumns());
        if (random.Below(4) == 0)
            r0 = c0 = 0, r1 = matrix.NumberOfRows() - 1, c1 = matrix.NumberOfColumns() - 1;
        view.reset(matrix.Submatrix(r0, r1, c0, c1));
    }
    int r0, r1, c0, c1;
    std::unique_ptr<KVOSrvDenseMatrix> view;
};

} // namespace

TEST(KVOSrvDenseMatrixTransfer, RandomWindowsThroughRandomViews)
{
    TestDatabase const database;
    Random random;
    for (Cut const& cut : kCuts) {
        SCOPED_TRACE(testing::Message() << cut);
        KVOSrvDenseMatrix matrix(database.Matrix(cut.rows, cut.columns, cut.rowChunk, cut.columnChunk));
        Dense oracle(cut.rows, cut.columns);
        for (int step = 0; step < 60; ++step) {
            RandomView outer(matrix, random);
            RandomView inner(*outer.view, random);
            auto const [r0, r1] = random.Range(inner.view->NumberOfRows());
            auto const [c0, c1] = random.Range(inner.view->NumberOfColumns());
            int const top = outer.r0 + inner.r0 + r0, left = outer.c0 + inner.c0 + c0;
            Dense values = Part(oracle, top, top + r1 - r0, left, left + c1 - c0);

            GuardedMatrix read(values.rows + 1, values.columns, false, false); // larger than the range
            double const behind = read.matrix.Values()[values.values.size()];
            inner.view->GetValues(r0, r1, c0, c1, read.matrix);
            ASSERT_TRUE(std::equal(values.values.begin(), values.values.end(), read.matrix.Values(), SameBits));
            ASSERT_EQ(read.matrix.Values()[values.values.size()], behind);

            GuardedMatrix const written(values.rows, values.columns + 1, false, false);
            std::copy_n(written.matrix.Values(), values.values.size(), values.values.begin());
            inner.view->SetValues(r0, r1, c0, c1, written.matrix);
            Put(oracle, values, top, left);
        }
        ExpectSame(matrix, oracle);
    }
}

TEST(KVOSrvDenseMatrixTransfer, RowsAndColumnsAndASingleColumn)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(7, 5, 3, 2)), column(KVOSrvUtilities::Create1DDistribution(database.Members(11), 4));
    Dense oracle = Randomize(matrix);
    Dense const line = Randomize(column);
    KVOSrvMatrix const rows = RandomMatrix(2, 5), columns = RandomMatrix(7, 3);
    matrix.SetRows(4, 5, rows);
    Put(oracle, Dense(rows), 4, 0);
    matrix.SetColumns(1, 3, columns);
    Put(oracle, Dense(columns), 0, 1);

    ExpectSame(matrix, oracle);
    KVOSrvMatrix twoRows(2, 5, nullptr, false, false), twoColumns(7, 2, nullptr, false, false), part(5, 1, nullptr, false, false);
    matrix.GetRows(2, 3, twoRows);
    ExpectSame(twoRows, [&](int i, int j) { return oracle.At(i + 2, j); });
    matrix.GetColumns(3, 4, twoColumns);
    ExpectSame(twoColumns, [&](int i, int j) { return oracle.At(i, j + 3); });
    std::unique_ptr<KVOSrvDenseMatrix> const view(column.Submatrix(2, 9, 0, 0));
    view->GetValues(1, 5, 0, 0, part);
    ExpectSame(part, [&](int i, int) { return line.At(i + 3, 0); });
    EXPECT_THROW(view->GetValues(1, 5, 0, 1, part), KVOSrvMtxInvalidGetRange);
}

TEST(KVOSrvDenseMatrixTransfer, BadRangesAndSmallOperandsAreRefusedBeforeAnyWrite)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(6, 5, 4, 2));
    Dense const values = Randomize(matrix);
    KVOSrvMatrix operand = RandomMatrix(6, 5), small = RandomMatrix(2, 3), diagonal = RandomMatrix(6, 5, true);
    constexpr int kRanges[][4] = {{-1, 2, 0, 1}, {0, 6, 0, 1}, {0, 2, -1, 1},       {0, 2, 0, 5},
                                  {3, 2, 0, 1},  {0, 2, 3, 2}, {0, INT32_MAX, 0, 0}};
    for (auto const& r : kRanges) {
        SCOPED_TRACE(testing::PrintToString(r));
        EXPECT_EQ(ReportOf<KVOSrvMtxInvalidSetRange>([&] { matrix.SetValues(r[0], r[1], r[2], r[3], operand); }),
                  "KVOSrvDenseMatrix::SetValues invalid range values.\nFile mtx/impl/KVOSrvDenseMatrix, line 568");
        EXPECT_EQ(ReportOf<KVOSrvMtxInvalidGetRange>([&] { matrix.GetValues(r[0], r[1], r[2], r[3], operand); }),
                  "KVOSrvDenseMatrix::GetValues invalid range values.\nFile mtx/impl/KVOSrvDenseMatrix, line 544");
        matrix.AnnounceRead(r[0], r[1], r[2], r[3]);
    }
    EXPECT_THAT(ReportOf<KVOSimDebugOutString>([&] { matrix.SetValues(0, 2, 0, 2, small); }), // with the database's own words
                testing::MatchesRegex("KVOSrvDenseMatrix::SetValues(.|\n){60,}\nFile mtx/impl/KVOSrvDenseMatrix, line 589"));
    EXPECT_THROW(matrix.GetValues(0, 2, 0, 2, small), KVOSimException);
    // The array of a diagonal that the library allocated holds the diagonal alone.
    EXPECT_THROW(matrix.GetValues(0, 5, 0, 1, diagonal), KVOSimException);
    ExpectSame(matrix, values);
}

TEST(KVOSrvDenseMatrixTransfer, PackedTriangles)
{
    TestDatabase const database;
    for (Cut const& cut : {Cut{9, 9, 4, 2}, Cut{9, 9, 2, 9}, Cut{9, 9, -1, -1}, Cut{11, 9, 3, 4}, Cut{9, 11, 3, 4}, Cut{1, 1, 1, 1}}) {
        SCOPED_TRACE(testing::Message() << cut);
        KVOSrvDenseMatrix matrix(database.Matrix(cut.rows, cut.columns, cut.rowChunk, cut.columnChunk));
        Dense const values = Randomize(matrix);
        int const n = std::min(cut.rows, cut.columns);
        auto const expectPacked = [&](auto get, auto const& expected) {
            std::vector<double> packed(static_cast<std::size_t>(n * (n + 1) / 2) + 1, -7.5);
            (matrix.*get)(packed.data());
            std::size_t at = 0;
            for (int j = 0; j < n; ++j)
                for (int i = 0; i <= j; ++i, ++at)
                    EXPECT_TRUE(SameBits(packed[at], expected(i, j))) << i << ", " << j;
            EXPECT_EQ(packed.back(), -7.5);
        };
        using Get = void (KVOSrvDenseMatrix::*)(double*) const;
        auto const check = [&](bool fits, Get get, auto const& expected) {
            if (fits)
                expectPacked(get, expected);
            else
                EXPECT_THROW((matrix.*get)(nullptr), KVOSrvMtxIllegalInput);
        };
        check(cut.rows >= cut.columns, &KVOSrvDenseMatrix::GetUpperValues, [&](int i, int j) { return values.At(i, j); });
        check(cut.rows <= cut.columns, &KVOSrvDenseMatrix::GetLowerValues, [&](int i, int j) { return values.At(j, i); });
        check(cut.rows == cut.columns, &KVOSrvDenseMatrix::GetSymmetricValues,
              [&](int i, int j) { return i == j ? values.At(i, i) : 0.5 * (values.At(i, j) + values.At(j, i)); });
        EXPECT_THROW(matrix.GetAllValues(nullptr), KVOSrvMtxIllegalInput);
    }
}

TEST(KVOSrvDenseMatrixTransfer, WholeMatrixOperationsOnRandomViews)
{
    TestDatabase const database;
    Random random;
    for (Cut const& cut : kCuts)
        for (Cut const& otherCut : kCuts) {
            if (otherCut.rows < cut.rows || otherCut.columns < cut.columns)
                continue;
            SCOPED_TRACE(testing::Message() << cut << " and " << otherCut);
            KVOSrvDenseMatrix matrix(database.Matrix(cut.rows, cut.columns, cut.rowChunk, cut.columnChunk));
            KVOSrvDenseMatrix other(database.Matrix(otherCut.rows, otherCut.columns, otherCut.rowChunk, otherCut.columnChunk));
            Dense oracle = Randomize(matrix);
            Dense const source = Randomize(other);
            for (int step = 0; step < 4; ++step) {
                RandomView target(matrix, random);
                int const rows = target.view->NumberOfRows(), columns = target.view->NumberOfColumns();
                int const top = random.Below(other.NumberOfRows() - rows + 1), left = random.Below(other.NumberOfColumns() - columns + 1);
                std::unique_ptr<KVOSrvDenseMatrix> const operand(other.ConstSubmatrix(top, top + rows - 1, left, left + columns - 1));
                Dense expected = Part(oracle, target.r0, target.r1, target.c0, target.c1);
                Dense const added = Part(source, top, top + rows - 1, left, left + columns - 1);
                if (step == 0) {
                    target.view->Scale(-1.75);
                    expected = Combined(-1.75, expected, 0.0, expected);
                } else if (step == 1) {
                    target.view->AddAssign(*operand);
                    expected = Combined(1.0, expected, 1.0, added);
                } else {
                    step == 2 ? target.view->CopyValues(operand.get())
                              : other.GetSubmatrix(*target.view, top, top + rows - 1, left, left + columns - 1);
                    expected = added;
                }
                Put(oracle, expected, target.r0, target.c0);
                ExpectSame(matrix, oracle);
            }
            ExpectSame(other, source);
        }
}

// Chunks of 2 MiB, which are worked on where they are once they have been used, beside edge chunks, which are copied.
// A part is read before it is written: a block row by GetSubmatrix, a block by AddAssign.
TEST(KVOSrvDenseMatrixTransfer, ViewsThatOverlapAreTakenPartByPart)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(2, 10, 2, 4)), large(database.Matrix(512, 600, 512, 512));
    Dense tens = Filled(2, 10, [](int, int j) { return 10.0 * j; }), ones = Filled(512, 600, [](int, int) { return 1.0; });
    matrix.SetRows(0, 1, Wrapping(tens));
    std::unique_ptr<KVOSrvDenseMatrix> const right(matrix.Submatrix(0, 1, 2, 9));
    matrix.GetSubmatrix(*right, 0, 1, 0, 7);
    ExpectSame(matrix, [](int, int j) { return Expected(10.0 * (j < 2 ? j : j - 2), 0.0); });

    large.SetRows(0, 511, Wrapping(ones));
    std::unique_ptr<KVOSrvDenseMatrix> const left(large.Submatrix(0, 511, 0, 501)), shifted(large.Submatrix(0, 511, 10, 511));
    shifted->AddAssign(*left);
    ExpectSame(large, [](int, int j) { return Expected(j < 10 || j > 511 ? 1.0 : 2.0, 0.0); });
}

TEST(KVOSrvDenseMatrixTransfer, WholeMatrixOperationsWhereTheValuesAre)
{
    constexpr int kOrder = 1100, kChunk = 512;
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(kOrder, kOrder, kChunk, kChunk)), other(database.Matrix(kOrder, kOrder, kChunk, kChunk));
    Dense values = Filled(kOrder, kOrder, [](int i, int j) { return i * j + 1.0; });
    Dense added = Filled(kOrder, kOrder, [](int i, int j) { return 1.0 * i + j; });
    matrix.SetRows(0, kOrder - 1, Wrapping(values));
    other.SetRows(0, kOrder - 1, Wrapping(added));
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        EXPECT_TRUE(matrix.IsSymmetric());

        matrix.Scale(-1.5);
        matrix.AddAssign(other);

        values = Combined(-1.5, values, 1.0, added);
        ExpectSame(matrix, values);
    }
    KVOSrvMatrix changed(1, 1, nullptr, false, false), kept(1, 1, nullptr, false, false);
    changed = kNotANumber;
    for (auto const& [i, j] : {std::pair{700, 300}, {300, 700}, {700, 600}, {600, 700}, {1090, 20}, {1098, 1099}}) {
        matrix.GetValues(i, i, j, j, kept);
        matrix.SetValues(i, i, j, j, changed);
        EXPECT_FALSE(matrix.IsSymmetric()) << i << ", " << j;
        matrix.SetValues(i, i, j, j, kept);
    }
    EXPECT_TRUE(matrix.IsSymmetric());
}

TEST(KVOSrvDenseMatrixTransfer, OperandsThatAreTheMatrixItself)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(13, 11, 4, 3));
    Dense const values = Randomize(matrix);

    matrix.AddAssign(matrix);
    matrix.CopyValues(&matrix);
    matrix.CopyMappedRows(&matrix, true);
    ExpectSame(matrix, [&](int i, int j) { return 2.0 * values.At(i, j); });

    std::unique_ptr<KVOSrvDenseMatrix> const upper(matrix.Submatrix(0, 11, 0, 10)), lower(matrix.Submatrix(1, 12, 0, 10));
    lower->CopyValues(upper.get());
    ExpectSame(matrix, [&](int i, int j) { return 2.0 * values.At(std::max(i - 1, 0), j); });
}

TEST(KVOSrvDenseMatrixTransfer, SubmatrixFillsTheRowsThatThereAre)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(9, 5, 4, 2)), target(database.Matrix(5, 4, 3, 2));
    Dense const values = Randomize(matrix);

    matrix.GetSubmatrix(target, 1, 8, 1, 4);

    ExpectSame(target, [&](int i, int j) { return values.At(i + 1, j + 1); });
}

TEST(KVOSrvDenseMatrixTransfer, ShapesThatDoNotFitChangeNothing)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(6, 5, 4, 2));
    KVOSrvDenseMatrix const other(database.Matrix(5, 6, 4, 2));
    Dense const values = Randomize(matrix);
    KVOSrvMatrix out = RandomMatrix(6, 5);

    EXPECT_THROW(matrix.AddAssign(other), KVOSrvMtxIllegalInput);
    EXPECT_THROW(matrix.CopyValues(&other), KVOSrvMtxIllegalInput);
    EXPECT_THROW(matrix.CopyValues(nullptr), KVOSrvMtxIllegalInput);
    EXPECT_THROW(matrix.CopyMappedRows(&other, true), KVOSrvMtxIllegalInput);
    EXPECT_THROW(matrix.CopyMappedRows(nullptr, true), KVOSrvMtxIllegalInput);
    EXPECT_THROW(other.GetSubmatrix(matrix, 0, 4, 0, 5), KVOSrvMtxInvalidSetRange);
    EXPECT_THROW(other.GetSubmatrix(matrix, 0, 5, 0, 4), KVOSrvMtxInvalidGetRange);
    EXPECT_THROW(other.GetSubmatrix(matrix, 3, 2, 0, 4), KVOSrvMtxInvalidGetRange);
    constexpr int kNegative[] = {0, 1, -1, 2, 3, 4}, kBeyond[] = {0, 1, 2, 3, 4, 6}, kGood[] = {5, 4, 3, 2, 1, 0};
    Snapshot const before(out);
    EXPECT_THROW(matrix.CopyRowsToMemory(kNegative, 6, out), KVOSrvMtxIllegalInput);
    EXPECT_THROW(matrix.CopyRowsToMemory(kBeyond, 6, out), KVOSrvMtxIllegalInput);
    EXPECT_THROW(matrix.CopyRowsToMemory(nullptr, 6, out), KVOSrvMtxIllegalInput);
    EXPECT_THROW(matrix.CopyRowsToMemory(kGood, 7, out), KVOSrvMtxIllegalInput); // out is too small
    EXPECT_THROW(matrix.CopyRowsToMemory(kGood, -1, out), KVOSrvMtxIllegalInput);
    before.ExpectUnchanged();
    ExpectSame(matrix, values);
}

TEST(KVOSrvDenseMatrixTransfer, CopyRowsToMemoryPlacesEveryRow)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(5, 4, 2, 3));
    Dense const values = Randomize(matrix);
    constexpr int kMap[] = {6, 0, 3, 6, 1}; // rows 0 and 3 go to one place
    GuardedMatrix out(7, 5, false, false);
    Dense const before(out.matrix);

    matrix.CopyRowsToMemory(kMap, 7, out.matrix);

    constexpr int kSource[] = {1, 4, -1, 2, -1, -1, 3};
    ExpectSame(out.matrix, [&](int i, int j) { return j == 4 ? before.At(i, j) : kSource[i] < 0 ? 0.0 : values.At(kSource[i], j); });
}

TEST(KVOSrvDenseMatrixTransfer, CopyMappedRowsFollowsMemberNumbers)
{
    TestDatabase const database;
    auto const make = [&](std::vector<int> const& rows, int chunk) {
        return KVOSrvDenseMatrix(KVOSrvUtilities::Create2DDistribution(database.Members(rows), database.Members(5), chunk, 2))
            .DistributionID();
    };
    KVOSrvDenseMatrix source(make({7, 3, 2000000000}, 2)), target(make({3, 5, 7}, 3));
    Dense const values = Randomize(source), before = Randomize(target);

    target.CopyMappedRows(&source, true);
    ExpectSame(target, [&](int i, int j) { return i == 1 ? 0.0 : values.At(i == 0 ? 1 : 0, j); });

    KVOSrvDenseMatrix all(make({2000000000, 7, 3}, 1));
    all.CopyMappedRows(&source, false);
    ExpectSame(all, [&](int i, int j) { return values.At(i == 0 ? 2 : i - 1, j); });

    std::unique_ptr<KVOSrvDenseMatrix> const part(source.Submatrix(1, 2, 1, 3));  // members 3 and 2000000000
    std::unique_ptr<KVOSrvDenseMatrix> const place(target.Submatrix(0, 1, 2, 4)); // members 3 and 5
    Dense const old = ValuesOf(target);
    place->CopyMappedRows(part.get(), true);
    ExpectSame(target, [&](int i, int j) { return i > 1 || j < 2 ? old.At(i, j) : i == 0 ? values.At(1, j - 1) : 0.0; });
}

TEST(KVOSrvDenseMatrixTransfer, IsSymmetricForEveryChunkingAndView)
{
    TestDatabase const database;
    Random random;
    for (Cut const& cut :
         {Cut{13, 13, 4, 4}, Cut{13, 13, 5, 2}, Cut{13, 13, 1, 13}, Cut{13, 13, -1, -1}, Cut{300, 300, 200, 150}, Cut{280, 280, 280, 9}}) {
        SCOPED_TRACE(testing::Message() << cut);
        int const n = cut.rows;
        KVOSrvDenseMatrix matrix(database.Matrix(n + 3, n + 2, cut.rowChunk, cut.columnChunk));
        Dense values = Randomize(matrix);
        std::unique_ptr<KVOSrvDenseMatrix> const view(matrix.Submatrix(3, n + 2, 1, n));
        EXPECT_FALSE(matrix.IsSymmetric());
        EXPECT_FALSE(view->IsSymmetric());
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < j; ++i)
                values.At(3 + i, 1 + j) = values.At(3 + j, 1 + i);
        values.At(5, 3) = kNotANumber; // on the diagonal of the view
        KVOSrvMatrix const whole = Wrapping(values);
        matrix.SetRows(0, n + 2, whole);
        EXPECT_TRUE(view->IsSymmetric());

        KVOSrvMatrix element(1, 1, nullptr, false, false), other = element;
        for (int step = 0; step < 40; ++step) {
            int const i = random.Below(n), j = random.Below(n);
            if (i == j)
                continue;
            view->GetValues(i, i, j, j, element);
            other = step % 4 == 0 ? kNotANumber : std::nextafter(element.Values()[0], 9.0);
            view->SetValues(i, i, j, j, other);
            EXPECT_FALSE(view->IsSymmetric()) << i << ", " << j;
            view->SetValues(i, i, j, j, element);
        }
        EXPECT_TRUE(view->IsSymmetric());
    }
    EXPECT_FALSE(KVOSrvDenseMatrix(database.Matrix(3, 4, 2, 2)).IsSymmetric());
}
