#include "DatabaseSupport.h"
#include "SparseOracle.h"

static KVOSimDistributionID Export(KVOSrvSparseMatrix const& matrix, KVOSimCSetID const& rows, KVOSimCSetID const& columns)
{
    KVOSimDistributionID const id = KVOSrvUtilities::CreateSparseDistribution(rows, columns);
    matrix.Export(rows, columns, id);
    EXPECT_TRUE(KVOSrvUtilities::IsSparseMatrix(KVOSimDistribution(id)));
    EXPECT_FALSE(KVOSrvUtilities::IsDenseMatrix(KVOSimDistribution(id)));
    return id;
}

static KVOSimDistributionID Export(KVOSrvSparseMatrix const& matrix, TestDatabase const& database)
{
    return Export(matrix, database.Members(matrix.NumberOfRows()), database.Members(matrix.NumberOfColumns()));
}

static Dense StoreNumbers(KVOSrvDenseMatrix& matrix)
{
    KVOSrvMatrix values = RandomMatrix(matrix.NumberOfRows(), matrix.NumberOfColumns());
    std::for_each_n(values.Values(), StoredEntries(values), [](double& value) { value = std::round(9 * value); });
    matrix.SetRows(0, matrix.NumberOfRows() - 1, values);
    return Dense(values);
}

TEST(KVOSrvSparseMatrixDatabase, ComesBackAsItWasStored)
{
    TestDatabase const database;
    auto const half = HalfStored(Half::Random(30, 90, 32));
    KVOSimCSetID const members = database.Members(30);
    KVOSrvSparseMatrix read(Export(*half, members, members));
    EXPECT_EQ(ContentOf(read), ContentOf(*half));
    EXPECT_TRUE(read.IsSymmetric());
    EXPECT_EQ(read.ColumnCSetID().CollectionID().Color(), 1);

    for (SparseShape const& shape : {SparseShape{5, 7, 0}, {20, 13, 100}, {1, 1, 1}}) { // over what there was: also its diagonal goes
        auto const full = RandomOracle(shape, 31).Matrix();
        KVOSimCSetID const rows = database.Members(shape.rows, 3, 2), columns = database.Members(shape.columns);
        read.Import(Export(*full, rows, columns));
        EXPECT_EQ(ContentOf(read), ContentOf(*full));
        EXPECT_FALSE(read.IsSymmetric()); // full storage counts as not symmetric, also where it is (1 x 1)
        EXPECT_EQ(std::pair(read.RowCSetID(), read.ColumnCSetID()), std::pair(rows, columns));
        EXPECT_TRUE(full->RowCSetID().IsNull());
    }
    read.BeginAssembly();
    read.AddData(2, 2, 1.0);
    read.Import(Export(*half, database));
    EXPECT_EQ(ContentOf(read), ContentOf(*half));
    read.BeginAssembly();
    read.EndAssembly();
    EXPECT_EQ(ContentOf(read).entries, std::vector<Entry>()); // the pending entry has gone

    EXPECT_EQ(ContentOf(KVOSrvSparseMatrix(Export(KVOSrvSparseMatrix(3, 4), database))), (Content{3, 4, 0, {}})); // not assembled
    EXPECT_EQ(KVOSrvSparseMatrix(KVOSimDistributionID()).NumberOfRows(), 0);
}

TEST(KVOSrvSparseMatrixDatabase, RefusesWhatDoesNotFitAndStaysAsItWas)
{
    TestDatabase const database;
    KVOSimCSetID const eight = database.Members(8), nine = database.Members(9), ten = database.Members(10), null;
    auto const full = RandomOracle({9, 8, 30}, 36).Matrix(), second = RandomOracle({9, 8, 20}, 45).Matrix();
    KVOSimDistributionID const id = Export(*full, nine, eight);
    auto const matrix = HalfStored(Half::Random(10, 20, 37));
    Content const before = ContentOf(*matrix);
    EXPECT_THROW(matrix->Import(KVOSimDistributionID()), KVOSimException);
    EXPECT_THROW(matrix->Import(database.Matrix(10, 10, -1, -1)), KVOSrvMtxIllegalInput);
    EXPECT_THROW(matrix->Import(KVOSrvUtilities::CreateSparseDistribution(ten, ten)), KVOSrvMtxIllegalInput);
    for (auto const& sets : {std::pair(nine, ten), std::pair(ten, nine)})
        EXPECT_THROW(Export(*matrix, sets.first, sets.second), KVOSrvMtxIllegalInput);
    EXPECT_THROW(Export(*full, nine, database.Members(7)), KVOSrvMtxIllegalInput);
    EXPECT_THROW(full->Export(null, eight, id), KVOSimException);
    EXPECT_EQ(KVOSrvSparseMatrix(Export(*full, nine, nine)).NumberOfColumns(), 9);
    EXPECT_TRUE(ContentOf(*matrix) == before && matrix->IsSymmetric());
    ExpectUnchangedWithoutMemory(*matrix, [&] { matrix->Import(id); });

    second->Export(nine, eight, id); // a later one is read by its number
    EXPECT_EQ(ContentOf(KVOSrvSparseMatrix(id)), ContentOf(*full));
    matrix->Import(id, 1);
    for (int const missing : {-1, 2})
        ExpectThrows<KVOSrvMtxRefusedInput>("KVOSrvSparseMatrix::Import - Illegal input: the distribution has no such drawer.",
                                            [&] { matrix->Import(id, missing); });
    EXPECT_EQ(ContentOf(*matrix), ContentOf(*second));
}

// Written by another program. The rows of half storage keep their order, as those of a file do.
TEST(KVOSrvSparseMatrixDatabase, RefusesRowsThatDoNotAscend)
{
    TestDatabase const database;
    auto const matrix = RandomOracle({3, 4, 9}, 33).Matrix();
    Content const before = ContentOf(*matrix);
    for (std::vector<int> const& columns : {std::vector{3, 1, 0}, {2, 2, 0}}) {
        SimClient::Rows const rows{{4.0, 5.0, 6.0}, columns, {0, 2, 3}, {}};
        KVOSimDistributionID const id = rows.Store(database.Context().ID(), database.Members(2), database.Members(5));
        ExpectThrows<KVOSrvMtxRefusedInput>("KVOSrvSparseMatrix::Import - Illegal input: the column indices of a row do not ascend.",
                                            [&] { matrix->Import(id); });
        EXPECT_EQ(ContentOf(*matrix), before);
    }
    Half half(3);
    half.rows[0] = {{2, 7.0}, {1, 8.0}};
    auto const kept = HalfStored(half);
    EXPECT_EQ(ContentOf(KVOSrvSparseMatrix(Export(*kept, database))), ContentOf(*kept));
}

TEST(KVOSrvSparseMatrixDatabase, MultipliesStoredMatrices)
{
    TestDatabase const database;
    SparseOracle gap{2500, 4, {}}, everySecond{2500, 4, {}}; // rows in two runs, and in more runs than are read one by one
    for (unsigned row = 7; row < 2500; ++row) {
        if (row < 900 || row > 1000)
            gap.Add(row, row % 4, row % 13);
        if (row % 2 == 1)
            everySecond.Add(row, row % 4, row % 13);
    }
    struct {
        SparseOracle oracle;
        int columns, rowChunk, columnChunk;
    } const cases[] = {{WholeNumbers({12, 9, 40}, 40), 7, 4, 3},
                       {WholeNumbers({9, 12, 40}, 40), 8, -1, -1},
                       {WholeNumbers({20, 20, 5}, 40), 9, 3, 9},
                       {WholeNumbers({4, 5, 0}, 40), 3, 2, 2},
                       {WholeNumbers({4500, 30, 3000}, 40), 5, 512, 2},
                       {gap, 5, 300, 2},
                       {everySecond, 5, 300, 2}};
    for (auto const& c : cases)
        for (bool const transpose : {false, true}) {
            SCOPED_TRACE(std::to_string(c.oracle.rows) + (transpose ? " transposed" : ""));
            int const inRows = transpose ? c.oracle.rows : c.oracle.columns, outRows = transpose ? c.oracle.columns : c.oracle.rows;
            for (int const more : {0, 3}) { // Y is larger: its rows become zero, its columns stay
                KVOSrvDenseMatrix x(database.Matrix(inRows, c.columns, c.rowChunk, c.columnChunk));
                KVOSrvDenseMatrix y(database.Matrix(outRows + more, c.columns + more, 5, 4));
                Dense const values = StoreNumbers(x), before = Randomize(y), product = ProductOf(c.oracle, values, transpose, more);
                c.oracle.Matrix()->MultiplyDense(x, y, transpose);
                ExpectSame(y, [&](int i, int j) { return j < c.columns ? Expected(product.At(i, j), 0.25) : before.At(i, j); });

                if (!transpose)
                    continue;
                GuardedMatrix inMemory(outRows, c.columns, false, false);
                c.oracle.Matrix()->MultiplyDense(x, inMemory.matrix.Values(), true);
                ExpectSame(inMemory.matrix, Part(product, 0, outRows - 1, 0, c.columns - 1), 0.25);
            }
        }
}

TEST(KVOSrvSparseMatrixDatabase, MultipliesHalfStorageInTheDatabaseOnly)
{
    TestDatabase const database;
    Half half(2);
    half.diagonal = {2, 3};
    half.rows[0] = {{1, 1.0}};
    auto const a = HalfStored(half);
    Dense ones(2, 1, 1.0);
    KVOSrvDenseMatrix x(database.Matrix(2, 1, -1, -1));
    x.SetRows(0, 1, Wrapping(ones));
    double y[] = {-1.0, -1.0};
    EXPECT_THROW(a->MultiplyDense(x, y, true), KVOSrvMtxNoSymmetricTrue);
    EXPECT_EQ(y[0], -1.0);
    a->MultiplyDense(x, x, false); // X is its own result
    ExpectSame(x, [](int i, int) { return i == 0 ? 3.0 : 4.0; });
}

TEST(KVOSrvSparseMatrixDatabase, RefusesProductsThatDoNotFit)
{
    TestDatabase const database;
    auto const a = RandomOracle({6, 4, 15}, 41).Matrix();
    KVOSrvSparseMatrix pending(6, 4);
    pending.AddData(0, 0, 1.0);
    KVOSrvDenseMatrix x(database.Matrix(6, 5, 4, 4)), y(database.Matrix(4, 5, 4, 4)), small(database.Matrix(3, 5, 4, 4)),
        store(database.Matrix(12, 5, 4, 4));
    Dense const before = Randomize(y);
    Dense inMemory = before;
    EXPECT_THROW(a->MultiplyDense(small, y, true), KVOSrvMtxInvalidGetRange);
    EXPECT_THROW(a->MultiplyDense(x, small, true), KVOSrvMtxInvalidSetRange);
    EXPECT_THROW(a->MultiplyDense(x, *y.View(0, 3, 0, 3), true), KVOSrvMtxInvalidSetRange);
    EXPECT_THROW(a->MultiplyDense(small, inMemory.data(), true), KVOSrvMtxInvalidGetRange);
    ExpectThrows<KVOSrvMtxRefusedInput>("KVOSrvSparseMatrix::MultiplyDense - Illegal input: Y overlaps X in other columns.",
                                        [&] { a->MultiplyDense(*store.View(0, 5, 0, 3), *store.View(4, 9, 1, 4), true); });
    EXPECT_THROW(pending.MultiplyDense(x, y, true), KVOSrvMtxNotAssembled);
    EXPECT_THROW(pending.MultiplyDense(x, inMemory.data(), true), KVOSrvMtxNotAssembled);
    EXPECT_THROW(Export(pending, database), KVOSrvMtxNotAssembled);
    for (double* const target : {inMemory.data(), static_cast<double*>(nullptr)})
        EXPECT_TRUE(ReportOf<KVOSrvMtxNoTranspose>([&] { a->MultiplyDense(x, target, false); }).ends_with("KVOSrvSparseMatrix, line 1107"));
    ExpectSame(y, before);
    ExpectSame(inMemory, before);
}

TEST(KVOSrvSparseMatrixDatabase, LeavesNoDrawerWhenTheDiskIsFull)
{
    TestDatabase const database;
    auto const matrix = RandomOracle({200, 300, 20000}, 42).Matrix();
    Content const before = ContentOf(*matrix);
    KVOSimCSetID const rows = database.Members(200), columns = database.Members(300);
    int const failures = FailEach(
        SystemCalls(SystemCall::Change), [&] { return KVOSrvUtilities::CreateSparseDistribution(rows, columns); },
        [&](KVOSimDistributionID const& id) { matrix->Export(rows, columns, id); },
        [&](KVOSimDistributionID const& id, bool threw) {
            KVOSimArray<KVOSimDrawer> drawers;
            KVOSimDistribution(id).QueryDrawers(drawers);
            EXPECT_EQ(drawers.Size(), threw ? 0 : 1);
            EXPECT_EQ(ContentOf(*matrix), before);
            EXPECT_TRUE(threw || ContentOf(KVOSrvSparseMatrix(id)) == before);
        });
    EXPECT_GT(failures, 0);
}
