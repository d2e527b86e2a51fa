// Transfers and whole-matrix operations against a dense copy in memory, over chunkings and views.

#include "DatabaseSupport.h"

namespace
{

struct Cut {
    int rows, columns, rowChunk, columnChunk; // a matrix without column chunks has one dimension
};

// The last in chunks of 2 MiB, which are worked on where they are once they have been used, beside edge chunks, which are copied.
constexpr Cut kCuts[] = {{13, 11, 4, 3}, {13, 11, 13, 2}, {13, 11, 1, 11}, {13, 11, 20, 5},       {13, 11, -1, -1},
                         {16, 8, 8, 4},  {1, 9, 1, 4},    {11, 1, 4, 0},   {1100, 1100, 512, 512}};

KVOSimDistributionID Make(TestDatabase const& database, Cut const& cut)
{
    return cut.columnChunk == 0 ? KVOSrvUtilities::Create1DDistribution(database.Members(cut.rows), cut.rowChunk)
                                : database.Matrix(cut.rows, cut.columns, cut.rowChunk, cut.columnChunk);
}

std::ostream& operator<<(std::ostream& out, Cut const& cut)
{
    return out << cut.rows << " x " << cut.columns << " in chunks of " << cut.rowChunk << " x " << cut.columnChunk;
}

std::pair<int, int> Range(int size)
{
    int const a = Between(0, size - 1), b = Between(0, size - 1);
    return {std::min(a, b), std::max(a, b)};
}

/// A random view of a stored matrix, or all of it, and where it lies.
struct RandomView {
    RandomView(KVOSrvDenseMatrix& matrix)
    {
        std::tie(r0, r1) = Range(matrix.NumberOfRows());
        std::tie(c0, c1) = Range(matrix.NumberOfColumns());
        if (Between(0, 3) == 0)
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
    for (Cut const& cut : kCuts) {
        SCOPED_TRACE(testing::Message() << cut);
        KVOSrvDenseMatrix matrix(Make(database, cut));
        Dense oracle(cut.rows, cut.columns);
        for (int step = 0; step < 60; ++step) {
            RandomView outer(matrix);
            RandomView inner(*outer.view);
            KVOSrvDenseMatrix& view = *inner.view;
            auto [r0, r1] = Range(view.NumberOfRows());
            auto [c0, c1] = Range(view.NumberOfColumns());
            bool const rows = step % 3 == 0, columns = step % 3 == 1;
            if (rows)
                c0 = 0, c1 = view.NumberOfColumns() - 1;
            if (columns)
                r0 = 0, r1 = view.NumberOfRows() - 1;
            int const top = outer.r0 + inner.r0 + r0, left = outer.c0 + inner.c0 + c0;
            Dense values = Part(oracle, top, top + r1 - r0, left, left + c1 - c0);

            GuardedMatrix read(values.rows + 1, values.columns, false, false); // larger than the range
            double const behind = read.matrix.Values()[values.values.size()];
            rows      ? view.GetRows(r0, r1, read.matrix)
            : columns ? view.GetColumns(c0, c1, read.matrix)
                      : view.GetValues(r0, r1, c0, c1, read.matrix);
            ASSERT_TRUE(std::equal(values.values.begin(), values.values.end(), read.matrix.Values(), SameBits));
            ASSERT_EQ(read.matrix.Values()[values.values.size()], behind);

            GuardedMatrix const written(values.rows, values.columns + 1, false, false);
            std::copy_n(written.matrix.Values(), values.values.size(), values.values.begin());
            rows      ? view.SetRows(r0, r1, written.matrix)
            : columns ? view.SetColumns(c0, c1, written.matrix)
                      : view.SetValues(r0, r1, c0, c1, written.matrix);
            Put(oracle, values, top, left);
        }
        ExpectSame(matrix, oracle);
    }
}

TEST(KVOSrvDenseMatrixTransfer, WhatDoesNotFitIsRefusedBeforeAnyWrite)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(6, 5, 4, 2));
    KVOSrvDenseMatrix const other(database.Matrix(5, 6, 4, 2));
    Dense const values = Randomize(matrix);
    KVOSrvMatrix out = RandomMatrix(6, 5), small = RandomMatrix(2, 3), diagonal = RandomMatrix(6, 5, true);
    Snapshot const before(out);
    constexpr int kRanges[][4] = {{-1, 2, 0, 1}, {0, 6, 0, 1}, {0, 2, -1, 1},       {0, 2, 0, 5},
                                  {3, 2, 0, 1},  {0, 2, 3, 2}, {0, INT32_MAX, 0, 0}};
    for (auto const& r : kRanges) {
        SCOPED_TRACE(testing::PrintToString(r));
        EXPECT_EQ(ReportOf<KVOSrvMtxInvalidSetRange>([&] { matrix.SetValues(r[0], r[1], r[2], r[3], out); }),
                  "KVOSrvDenseMatrix::SetValues invalid range values.\nFile mtx/impl/KVOSrvDenseMatrix, line 568");
        EXPECT_EQ(ReportOf<KVOSrvMtxInvalidGetRange>([&] { matrix.GetValues(r[0], r[1], r[2], r[3], out); }),
                  "KVOSrvDenseMatrix::GetValues invalid range values.\nFile mtx/impl/KVOSrvDenseMatrix, line 544");
        matrix.AnnounceRead(r[0], r[1], r[2], r[3]);
    }
    EXPECT_THAT(ReportOf<KVOSimDebugOutString>([&] { matrix.SetValues(0, 2, 0, 2, small); }), // with the database's own words
                testing::MatchesRegex("KVOSrvDenseMatrix::SetValues(.|\n){60,}\nFile mtx/impl/KVOSrvDenseMatrix, line 589"));
    // The array of a diagonal that the library allocated holds the diagonal alone.
    ExpectEachThrows<KVOSimException>({[&] { matrix.GetValues(0, 2, 0, 2, small); }, [&] { matrix.GetValues(0, 5, 0, 1, diagonal); }});
    constexpr int kNegative[] = {0, 1, -1, 2, 3, 4}, kBeyond[] = {0, 1, 2, 3, 4, 6}, kGood[] = {5, 4, 3, 2, 1, 0};
    ExpectEachThrows<KVOSrvMtxIllegalInput>(
        {[&] { matrix.AddAssign(other); }, [&] { matrix.CopyValues(&other); }, [&] { matrix.CopyValues(nullptr); },
         [&] { matrix.CopyMappedRows(&other, true); }, [&] { matrix.CopyMappedRows(nullptr, true); },
         [&] { matrix.CopyRowsToMemory(kNegative, 6, out); }, [&] { matrix.CopyRowsToMemory(kBeyond, 6, out); },
         [&] { matrix.CopyRowsToMemory(nullptr, 6, out); }, [&] { matrix.CopyRowsToMemory(kGood, -1, out); },
         [&] { matrix.CopyRowsToMemory(kGood, 7, out); }, [&] { matrix.GetAllValues(nullptr); }}); // for 7 rows it is too small
    ExpectEachThrows<KVOSrvMtxInvalidSetRange>({[&] { other.GetSubmatrix(matrix, 0, 4, 0, 5); }});
    ExpectEachThrows<KVOSrvMtxInvalidGetRange>(
        {[&] { other.GetSubmatrix(matrix, 0, 5, 0, 4); }, [&] { other.GetSubmatrix(matrix, 3, 2, 0, 4); }});
    before.ExpectUnchanged();
    ExpectSame(matrix, values);
}

TEST(KVOSrvDenseMatrixTransfer, PackedTriangles)
{
    TestDatabase const database;
    for (Cut const& cut : {Cut{9, 9, 4, 2}, Cut{9, 9, 2, 9}, Cut{9, 9, -1, -1}, Cut{11, 9, 3, 4}, Cut{9, 11, 3, 4}, Cut{1, 1, 1, 1}}) {
        SCOPED_TRACE(testing::Message() << cut);
        KVOSrvDenseMatrix matrix(Make(database, cut));
        Dense const values = Randomize(matrix);
        int const n = std::min(cut.rows, cut.columns);
        struct {
            bool fits;
            void (KVOSrvDenseMatrix::*get)(double*) const;
            std::function<double(int, int)> expected;
        } const kinds[] = {{cut.columns == n, &KVOSrvDenseMatrix::GetUpperValues, [&](int i, int j) { return values.At(i, j); }},
                           {cut.rows == n, &KVOSrvDenseMatrix::GetLowerValues, [&](int i, int j) { return values.At(j, i); }},
                           {cut.rows == cut.columns, &KVOSrvDenseMatrix::GetSymmetricValues,
                            [&](int i, int j) { return i == j ? values.At(i, i) : 0.5 * (values.At(i, j) + values.At(j, i)); }}};
        for (auto const& [fits, get, expected] : kinds) {
            std::vector<double> packed(static_cast<std::size_t>(n * (n + 1) / 2) + 1, -7.5);
            EXPECT_THROW((matrix.*get)(nullptr), KVOSrvMtxIllegalInput);
            if (!fits) {
                EXPECT_THROW((matrix.*get)(packed.data()), KVOSrvMtxIllegalInput);
                continue;
            }
            (matrix.*get)(packed.data());
            std::size_t at = 0;
            for (int j = 0; j < n; ++j)
                for (int i = 0; i <= j; ++i, ++at)
                    EXPECT_TRUE(SameBits(packed[at], expected(i, j))) << i << ", " << j;
            EXPECT_EQ(packed.back(), -7.5);
        }
    }
}

TEST(KVOSrvDenseMatrixTransfer, WholeMatrixOperationsOnRandomViews)
{
    TestDatabase const database;
    for (Cut const& cut : kCuts)
        for (Cut const& otherCut : kCuts) {
            if (otherCut.rows < cut.rows || otherCut.columns < cut.columns)
                continue;
            SCOPED_TRACE(testing::Message() << cut << " and " << otherCut);
            KVOSrvDenseMatrix matrix(Make(database, cut));
            KVOSrvDenseMatrix other(Make(database, otherCut));
            Dense oracle = Randomize(matrix);
            Dense const source = Randomize(other);
            for (int step = 0; step < 4; ++step) {
                RandomView target(matrix);
                int const rows = target.view->NumberOfRows(), columns = target.view->NumberOfColumns();
                int const top = Between(0, other.NumberOfRows() - rows), left = Between(0, other.NumberOfColumns() - columns);
                std::unique_ptr<KVOSrvDenseMatrix> const operand(other.ConstSubmatrix(top, top + rows - 1, left, left + columns - 1));
                Dense expected = Part(oracle, target.r0, target.r1, target.c0, target.c1);
                Dense const added = Part(source, top, top + rows - 1, left, left + columns - 1);
                if (step == 0) {
                    target.view->Scale(-1.75);
                    expected = -1.75 * expected;
                } else if (step == 1) {
                    target.view->AddAssign(*operand);
                    expected = Combined(1.0, expected, 1.0, added);
                } else {
                    step == 2 ? target.view->CopyValues(operand.get())
                              : other.GetSubmatrix(*target.view, top, std::min(top + rows + Between(0, 2), other.NumberOfRows()) - 1, left,
                                                   left + columns - 1); // what the target has no rows for is left out
                    expected = added;
                }
                Put(oracle, expected, target.r0, target.c0);
                ExpectSame(matrix, oracle);
            }
            ExpectSame(other, source);
        }
}

// A part is read before it is written: a block row by GetSubmatrix, a block by AddAssign, a block column by CopyValues.
TEST(KVOSrvDenseMatrixTransfer, ViewsThatOverlapAreTakenPartByPart)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(13, 11, 4, 3)), large(database.Matrix(512, 600, 512, 512));
    Dense values = Randomize(matrix), ones(512, 600, 1.0);
    auto const view = [](KVOSrvDenseMatrix& of, int r0, int r1, int c0, int c1) {
        return std::unique_ptr<KVOSrvDenseMatrix>(of.Submatrix(r0, r1, c0, c1));
    };
    matrix.GetSubmatrix(*view(matrix, 0, 12, 2, 10), 0, 12, 0, 8);
    Put(values, Part(values, 0, 12, 0, 8), 0, 2);
    ExpectSame(matrix, values);
    view(matrix, 1, 12, 0, 10)->CopyValues(view(matrix, 0, 11, 0, 10).get());
    Put(values, Part(values, 0, 11, 0, 10), 1, 0);
    ExpectSame(matrix, values);
    matrix.AddAssign(matrix);
    matrix.CopyValues(&matrix);
    matrix.CopyMappedRows(&matrix, true);
    ExpectSame(matrix, 2.0 * values);

    large.SetRows(0, 511, Wrapping(ones));
    view(large, 0, 511, 10, 511)->AddAssign(*view(large, 0, 511, 0, 501));
    ExpectSame(large, [](int, int j) { return Expected(j < 10 || j > 511 ? 1.0 : 2.0, 0.0); });
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

// Of a view, and of large chunks where the values are.
TEST(KVOSrvDenseMatrixTransfer, IsSymmetricForEveryChunkingAndView)
{
    TestDatabase const database;
    for (Cut const& cut : {Cut{16, 15, 4, 4}, Cut{16, 15, 5, 2}, Cut{16, 15, 1, 13}, Cut{16, 15, -1, -1}, Cut{303, 302, 200, 150},
                           Cut{283, 282, 280, 9}, Cut{1100, 1100, 512, 512}}) {
        SCOPED_TRACE(testing::Message() << cut);
        int const top = cut.rows > cut.columns ? 3 : 0, left = top / 2, n = cut.rows - top;
        KVOSrvDenseMatrix matrix(Make(database, cut));
        Dense values = Randomize(matrix);
        std::unique_ptr<KVOSrvDenseMatrix> const view(matrix.Submatrix(top, top + n - 1, left, left + n - 1));
        EXPECT_FALSE(matrix.IsSymmetric());
        EXPECT_FALSE(view->IsSymmetric());
        Put(values, Mirrored(Part(values, top, top + n - 1, left, left + n - 1)), top, left);
        values.At(top + 2, left + 2) = kNotANumber; // on the diagonal of the view
        matrix.SetRows(0, cut.rows - 1, Wrapping(values));
        EXPECT_TRUE(view->IsSymmetric());

        KVOSrvMatrix element(1, 1, nullptr, false, false), other = element;
        for (int step = 0; step < 40; ++step) {
            int const i = Between(0, n - 1), j = Between(0, n - 1);
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
