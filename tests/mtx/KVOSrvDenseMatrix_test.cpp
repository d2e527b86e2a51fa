#include "KVOSrvDenseMatrix.h"

#include "DatabaseSupport.h"
#include "KVOSrvScratchDenseMatrix.h"

using testing::ElementsAre;

using View = std::unique_ptr<KVOSrvDenseMatrix>;

TEST(KVOSrvDenseMatrix, NullMatrixAnswersEverything)
{
    KVOSrvDenseMatrix matrix;
    KVOSrvDenseMatrix const fromNull{KVOSimDistributionID()};

    EXPECT_TRUE(matrix.IsNull() && fromNull.IsNull() && matrix.DistributionID().IsNull() && matrix.RowCSetID().IsNull());
    EXPECT_TRUE(matrix.NumberOfRowBlocks() == 0 && matrix.MaxNumberOfColumnsInBlock() == 0 && !matrix.BlockAllocated(0, 0));
    EXPECT_EQ(matrix.ExtendableDim(), -1);
    int const number = 1;
    EXPECT_EQ(matrix.ExtendDim(0, 1, &number), 3);
    matrix.SetAccess(KVOSrvAccessAll);
    matrix.AnnounceRead(0, 0, 0, 0);
    KVOSrvMatrix value(1, 1, nullptr, false, false);
    ExpectEachThrows<KVOSrvMtxInvalidGetRange>({[&] { matrix.GetValues(0, 0, 0, 0, value); }});
    ExpectEachThrows<KVOSrvMtxInvalidSetRange>({[&] { matrix.SetValues(0, 0, 0, 0, value); }});
    for (auto const get : {&KVOSrvDenseMatrix::GetAllValues, &KVOSrvDenseMatrix::GetUpperValues, &KVOSrvDenseMatrix::GetLowerValues,
                           &KVOSrvDenseMatrix::GetSymmetricValues})
        (matrix.*get)(nullptr);
    matrix.Scale(2.0);
    matrix.AddAssign(fromNull);
    matrix.CopyValues(&fromNull);
    matrix.CopyMappedRows(&fromNull, true);
    EXPECT_TRUE(matrix.IsSymmetric());
}

TEST(KVOSrvDenseMatrix, BindsToTheChunksOfADistribution)
{
    TestDatabase const database;
    KVOSimDistributionID const column = KVOSrvUtilities::Create1DDistribution(database.Members(9), 4);
    std::pair<KVOSimDistributionID, std::vector<int>> const cases[] = {{database.Matrix(10, 7, 4, 3), {10, 7, 3, 3, 4, 3, 2, 1}},
                                                                       {database.Matrix(10, 7, -1, -1), {10, 7, 1, 1, 10, 7, 10, 7}},
                                                                       {database.Matrix(10, 7, 16, 3), {10, 7, 1, 3, 10, 3, 10, 1}},
                                                                       {column, {9, 1, 3, 1, 4, 1, 1, 1}}};
    for (auto const& [id, sizes] : cases) { // of the matrix, in blocks, of the largest and of the last block
        KVOSrvDenseMatrix const m(id);
        EXPECT_THAT(sizes, ElementsAre(m.NumberOfRows(), m.NumberOfColumns(), m.NumberOfRowBlocks(), m.NumberOfColumnBlocks(),
                                       m.MaxNumberOfRowsInBlock(), m.MaxNumberOfColumnsInBlock(), m.NumberOfRowsInBlock(sizes[2] - 1),
                                       m.NumberOfColumnsInBlock(sizes[3] - 1)));
    }
    EXPECT_TRUE(KVOSrvDenseMatrix(column).ColumnCSetID().IsNull());
    EXPECT_EQ(KVOSimCSet(KVOSrvDenseMatrix(column).RowCSetID()).Size(), 9);
}

TEST(KVOSrvDenseMatrix, ViewsOutliveTheMatrixAndNameTheirMembers)
{
    TestDatabase const database;
    KVOSimCSetID const rows = database.Members(10, 100, 3), columns = database.Members(7, 20);
    auto matrix = std::make_unique<KVOSrvDenseMatrix>(KVOSrvUtilities::Create2DDistribution(rows, columns, 4, 3));
    Dense const values = Randomize(*matrix);
    View const view(matrix->Submatrix(2, 9, 1, 5));
    auto const inner = std::as_const(*view).View(3, 5, 0, 2);

    EXPECT_EQ(matrix->RowCSetID(), rows);
    EXPECT_EQ(matrix->ColumnCSetID().Index(), columns.Index());
    matrix.reset();

    ExpectSame(*view, [&](int i, int j) { return values.At(i + 2, j + 1); });
    ExpectSame(*inner, [&](int i, int j) { return values.At(i + 5, j + 1); });
    EXPECT_THAT(NumbersOf(inner->RowCSetID()), ElementsAre(115, 118, 121));
    EXPECT_THAT(NumbersOf(inner->ColumnCSetID()), ElementsAre(21, 22, 23));
    EXPECT_EQ(view->NumberOfRowsInBlock(0), 2);
    EXPECT_EQ(view->BlockContainingColumn(2), 1);

    // The set of a part lives as long as a view whose set it is, or a matrix made from it.
    auto range = [&](int r0, int r1) { return View(view->ConstSubmatrix(r0, r1, 0, 1)); };
    View first = range(0, 3), second = range(0, 3), third = range(1, 3);
    KVOSimCSetID const shared = first->RowCSetID(), used = third->RowCSetID();
    EXPECT_EQ(second->RowCSetID(), shared);
    KVOSrvScratchDenseMatrix const work(used, used, 2, 2);
    first.reset();
    EXPECT_THAT(NumbersOf(shared), ElementsAre(106, 109, 112, 115));
    second.reset();
    third.reset();
    EXPECT_THROW(NumbersOf(shared), KVOSimException);
    EXPECT_THAT(NumbersOf(work.RowCSetID()), ElementsAre(109, 112, 115));
    for (int k = 0; k < 300; ++k) // more than are kept in mind before what is gone is forgotten
        EXPECT_EQ(KVOSimCSet(range(k % 7, 7)->RowCSetID()).Size(), 8 - k % 7);
}

TEST(KVOSrvDenseMatrix, BlockAllocatedFollowsTheWrites)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(database.Matrix(12, 12, 4, 3));
    KVOSrvMatrix const value = RandomMatrix(1, 1);
    matrix.SetValues(5, 5, 7, 7, value);
    View const view(matrix.Submatrix(3, 11, 4, 11));

    for (int row = -1; row <= 3; ++row)
        for (int column = -1; column <= 4; ++column)
            EXPECT_EQ(matrix.BlockAllocated(row, column), row == 1 && column == 2) << row << ", " << column;
    EXPECT_TRUE(view->BlockAllocated(1, 1)); // its block row 0 is the last row of the store's, its block column 0 the store's second
    EXPECT_FALSE(view->BlockAllocated(1, 2));

    KVOSrvDenseMatrix unchunked(database.Matrix(4, 3, -1, -1));
    int const fresh[] = {10, 11, 12, 13, 14};
    EXPECT_TRUE(unchunked.BlockAllocated(0, 0));
    ASSERT_EQ(unchunked.ExtendDim(1, 5, fresh), 0);
    ASSERT_EQ(unchunked.NumberOfRowBlocks(), 3);
    EXPECT_TRUE(unchunked.BlockAllocated(2, 0));
    EXPECT_FALSE(unchunked.BlockAllocated(3, 0));
}

TEST(KVOSrvDenseMatrix, ExtendDimAppendsZerosAndMembers)
{
    TestDatabase const database;
    for (int const chunk : {-1, 2, 5}) {
        SCOPED_TRACE(chunk);
        KVOSrvDenseMatrix matrix(KVOSrvUtilities::Create2DDistribution(database.Members(4, 10), database.Members(3, 50), chunk, chunk));
        Dense const values = Randomize(matrix);
        View const view(matrix.Submatrix(0, 3, 0, 2));
        int const rows[] = {77, 99, 1}, columns[] = {8, 2, 5}, next = 20;

        ASSERT_EQ(matrix.ExtendDim(1, 3, rows), 0);
        ASSERT_EQ(matrix.ExtendDim(0, 3, columns), 0);

        ExpectSame(matrix, [&](int i, int j) { return i < 4 && j < 3 ? values.At(i, j) : 0.0; });
        EXPECT_THAT(NumbersOf(matrix.RowCSetID()), ElementsAre(10, 11, 12, 13, 77, 99, 1));
        EXPECT_THAT(NumbersOf(matrix.ColumnCSetID()), ElementsAre(50, 51, 52, 8, 2, 5));
        ExpectSame(*view, values);
        KVOSrvDenseMatrix const again(matrix.DistributionID());
        ExpectSame(again, ValuesOf(matrix));
        EXPECT_EQ(again.RowCSetID(), matrix.RowCSetID());
        Dense const all = Randomize(matrix);
        ExpectSame(again, all);

        // A block smaller than its chunk keeps its height, and with the next extension the width of block column 0 becomes right.
        EXPECT_TRUE(chunk != 5 || (matrix.NumberOfRowsInBlock(0) == 4 && matrix.NumberOfColumnsInBlock(0) == 3));
        ASSERT_EQ(matrix.ExtendDim(1, 1, &next), 0);
        EXPECT_TRUE(chunk != 5 || (matrix.NumberOfRowsInBlock(0) == 4 && matrix.NumberOfColumnsInBlock(0) == 5));
        matrix.Scale(2.0);
        ExpectSame(Part(Dense(matrix), 0, 6, 0, 5), 2.0 * all);
    }
}

TEST(KVOSrvDenseMatrix, ExtendDimRefusesByStatusAndChangesNothing)
{
    TestDatabase const database;
    KVOSrvDenseMatrix matrix(KVOSrvUtilities::Create2DDistribution(database.Members(4, 10), database.Members(3, 50), 2, 2));
    KVOSrvDenseMatrix column(KVOSrvUtilities::Create1DDistribution(database.Members(4), 2));
    Dense const values = Randomize(matrix);
    View const view(matrix.Submatrix(0, 1, 0, 1));
    int const fresh[] = {1, 2}, known[] = {1, 12}, twice[] = {1, 1};

    EXPECT_EQ(view->ExtendDim(1, 2, fresh), 1);
    EXPECT_THAT((std::array{matrix.ExtendDim(1, 0, fresh), matrix.ExtendDim(1, 2, nullptr)}), ElementsAre(2, 2));
    EXPECT_THAT((std::array{matrix.ExtendDim(2, 2, fresh), matrix.ExtendDim(-1, 2, fresh)}), ElementsAre(3, 3));
    EXPECT_THAT((std::array{matrix.ExtendDim(1, 2, known), matrix.ExtendDim(1, 2, twice)}), ElementsAre(4, 4));
    ExpectSame(matrix, values);
    EXPECT_EQ(KVOSrvDenseMatrix(matrix.DistributionID()).NumberOfRows(), 4);
    KVOSrvDenseMatrix alike(KVOSrvUtilities::Create1DDistribution(database.Members({7, 7, 9}), 2));
    EXPECT_EQ(alike.ExtendDim(1, 2, fresh), 0); // members that are there twice are no reason to refuse others

    EXPECT_EQ(matrix.ExtendDim(0, 2, known), 0); // 12 is a row, no column
    int const further[] = {20, 21, 22};
    KVOSrvDenseMatrix stale(column.DistributionID());
    EXPECT_EQ(column.ExtendDim(1, 2, further), 0);
    EXPECT_EQ(column.ExtendDim(column.ExtendableDim(), 1, further + 2), 0);
    EXPECT_TRUE(column.NumberOfRows() == 7 && column.NumberOfRowBlocks() == 4);
    EXPECT_THROW(stale.ExtendDim(1, 3, further), KVOSimException);
    EXPECT_EQ(KVOSrvDenseMatrix(column.DistributionID()).NumberOfRows(), 7);
    EXPECT_THROW(View(stale.Submatrix(2, 4, 0, 0))->RowCSetID(), KVOSrvMtxInvalidGetRange); // leaves its matrix
}

TEST(KVOSrvDenseMatrix, AnObjectWhoseExtensionWasDroppedSaysSo)
{
    TestDatabase const database;
    KVOSimDistributionID const distribution = database.Matrix(4, 3, 2, 2);
    KVOSimContext context(distribution.ContextID());
    KVOSimTransaction(context).Commit();
    KVOSrvDenseMatrix matrix(distribution);
    Dense const values = Randomize(matrix);
    int const rows[] = {77, 99};
    View whole, part;
    {
        KVOSimTransaction const dropped(context);
        ASSERT_EQ(matrix.ExtendDim(1, 2, rows), 0);
        whole.reset(matrix.Submatrix(0, 5, 0, 2));
        part.reset(matrix.Submatrix(0, 3, 0, 2));
        ExpectSame(*whole, ValuesOf(matrix));
    }

    for (auto const& use : Calls{[&] { ValuesOf(matrix); }, [&] { ValuesOf(*whole); }, [&] { matrix.RowCSetID(); },
                                 [&] { matrix.SetRows(0, 0, RandomMatrix(1, 3)); }, [&] { matrix.ExtendDim(1, 2, rows); }})
        ExpectFailure("the transaction in which it was extended was dropped", use);
    ExpectSame(*part, values);
    ExpectSame(KVOSrvDenseMatrix(distribution), values);
}

TEST(KVOSrvDenseMatrix, SetAccessWishesForCache)
{
    TestDatabase const database;
    KVOSimDistributionID const id = database.Matrix(20, 30, 4, 5), plain = database.Matrix(20, 30, -1, -1);
    KVOSimDistributionID const column = KVOSrvUtilities::Create1DDistribution(database.Members(20), 4);
    auto const cacheSize = [](KVOSimDistributionID const& of) { return KVOSimDistribution(of).CacheSize(); };
    std::uint64_t const usual = cacheSize(id);
    KVOSrvDenseMatrix matrix(id);

    std::pair<int, std::uint64_t> const cases[] = {{KVOSrvAccessRows, 20 * 8 * 4 * 5},
                                                   {KVOSrvAccessColumns, 30 * 8 * 4 * 5},
                                                   {KVOSrvAccessAll, 20 * 30 * 8},
                                                   {7, 20 * 30 * 8},
                                                   {KVOSrvAccessDefault, usual}};
    for (auto const& [access, bytes] : cases) {
        matrix.SetAccess(static_cast<KVOSrvAccessType>(access));
        EXPECT_EQ(cacheSize(id), bytes) << access;
    }
    KVOSrvDenseMatrix line(column);
    line.SetAccess(KVOSrvAccessDefault);
    EXPECT_EQ(cacheSize(column), 20u * 8);
    KVOSrvDenseMatrix(plain).SetAccess(KVOSrvAccessAll);
    EXPECT_EQ(cacheSize(plain), usual);
}
