#include "DatabaseSupport.h"
#include "KVOSrvProductMemory.h"

namespace
{

// Small whole numbers: products of them are exact in whatever order they are summed.
KVOSrvMatrix Numbers(int rows, int columns, bool diagonal = false)
{
    KVOSrvMatrix matrix(rows, columns, nullptr, false, diagonal);
    std::generate_n(matrix.Values(), StoredEntries(matrix), [] { return static_cast<double>(Between(-9, 9)); });
    return matrix;
}

// 0 and -0 are equal.
template<class Matrix>
void ExpectEqual(Matrix const& matrix, Dense const& expected)
{
    ExpectSame(matrix, expected, 0.25);
}

// How a stored matrix lies in its store: its chunks, what is around it, the first rows of the store that were never written, and the rows
// and columns that an extension has brought.
struct Layout {
    int rowChunk = -1, columnChunk = -1;
    int top = 0, left = 0, bottom = 0, right = 0;
    int unwritten = 0, addedRows = 0, addedColumns = 0;
};

Layout RandomLayout()
{
    auto const chunk = [] { return Between(0, 5) == 0 ? -1 : Between(1, 12); };
    auto const some = [](int most) { return Between(0, 2) == 0 ? Between(1, most) : 0; };
    return {chunk(), chunk(), some(9), some(9), some(9), some(9), some(12), some(20), some(20)};
}

// A stored matrix of small whole numbers, as a view where its layout has margins.
class Stored
{
public:
    Stored(TestDatabase const& database, int rows, int columns, Layout const& layout = {})
        : m_layout(layout), m_before(layout.top + rows + layout.bottom, layout.left + columns + layout.right),
          m_store(database.Matrix(std::max(1, m_before.rows - layout.addedRows), std::max(1, m_before.columns - layout.addedColumns),
                                  layout.rowChunk, layout.columnChunk))
    {
        int fresh[20]; // members
        std::iota(std::begin(fresh), std::end(fresh), 5000);
        m_store.ExtendDim(1, m_before.rows - m_store.NumberOfRows(), fresh);
        m_store.ExtendDim(0, m_before.columns - m_store.NumberOfColumns(), fresh);
        int const first = std::min(layout.unwritten, m_before.rows - 1);
        KVOSrvMatrix const values = Numbers(m_before.rows - first, m_before.columns);
        m_store.SetRows(first, m_before.rows - 1, values);
        Put(m_before, Dense(values), first, 0);
        m_view.reset(m_store.Submatrix(layout.top, layout.top + rows - 1, layout.left, layout.left + columns - 1));
        m_firstAllocated = m_store.BlockAllocated(0, 0);
    }

    bool IsWhole() const { return m_before.rows == m_view->NumberOfRows() && m_before.columns == m_view->NumberOfColumns(); }
    KVOSrvDenseMatrix& operator*() { return IsWhole() ? m_store : *m_view; }
    KVOSrvDenseMatrix* operator->() { return &**this; }
    Dense Values() const
    {
        return Part(m_before, m_layout.top, m_layout.top + m_view->NumberOfRows() - 1, m_layout.left,
                    m_layout.left + m_view->NumberOfColumns() - 1);
    }
    /// The matrix holds `expected`, what lies around it is as it was. Both are the new state then.
    void ExpectNow(Dense const& expected)
    {
        Put(m_before, expected, m_layout.top, m_layout.left);
        ExpectEqual(m_store, m_before);
    }
    void ExpectUnchanged()
    {
        ExpectNow(Values());
        EXPECT_EQ(m_store.BlockAllocated(0, 0), m_firstAllocated);
    }
    /// Lets whatever reads the matrix get NaN.
    void Spoil()
    {
        KVOSrvMatrix nan(m_view->NumberOfRows(), m_view->NumberOfColumns(), nullptr, false, false);
        nan = kNotANumber;
        m_view->SetRows(0, m_view->NumberOfRows() - 1, nan);
    }

private:
    Layout m_layout;
    Dense m_before;
    KVOSrvDenseMatrix m_store;
    std::unique_ptr<KVOSrvDenseMatrix> m_view;
    bool m_firstAllocated;
};

// run(result, symmetric) into a matrix and into an array, with and without the symmetric result.
template<class Run>
void ExpectTransposedProduct(Dense const& product, Run const& run)
{
    for (int const symmetric : {0, 1}) {
        GuardedMatrix y(product.rows, product.columns);
        double* const array = y.matrix.Values();
        for (bool const intoArray : {false, true}) {
            y.matrix = kNotANumber;
            intoArray ? run(array, symmetric) : run(y.matrix, symmetric);
            ExpectEqual(y.matrix, symmetric != 0 ? Mirrored(product) : product);
        }
    }
}

void ExpectProductsInMemory(Stored& a, int p)
{
    Dense const values = a.Values();
    int const m = values.rows, n = values.columns, r = Between(0, m);
    KVOSrvMatrix const x = Numbers(n, p), z = Numbers(m, p);
    Dense const ax = Product(values, false, Dense(x)), atz = Product(values, true, Dense(z));
    GuardedMatrix y(m, p), w(n, p);
    y.matrix = kNotANumber;
    a->Multiply(x, y.matrix);
    ExpectEqual(y.matrix, ax);
    a->Multiply(x.Values(), p, y.matrix.Values());
    ExpectEqual(y.matrix, 2.0 * ax);

    Dense const firstRows = Part(Dense(z), 0, r - 1, 0, p - 1), before(w.matrix = Numbers(n, p));
    a->TransposeMultiply(firstRows.values.data(), p, w.matrix.Values(), r);
    ExpectEqual(w.matrix, Combined(1.0, before, 1.0, Product(Part(values, 0, r - 1, 0, n - 1), true, firstRows)));
    w.matrix = kNotANumber;
    a->TransposeMultiply(nullptr, z, w.matrix, 1.0, 0.0);
    ExpectEqual(w.matrix, atz);
    std::vector<int> perm(static_cast<std::size_t>(m));
    std::iota(perm.begin(), perm.end(), 0);
    std::shuffle(perm.begin(), perm.end(), s_random);
    Dense const permuted = Filled(m, p, [&](int i, int j) { return Element(z, perm[static_cast<std::size_t>(i)], j); });
    a->TransposeMultiply(perm.data(), z, w.matrix, 2.0, -3.0);
    ExpectEqual(w.matrix, Combined(-3.0, atz, 2.0, Product(values, true, permuted)));
    ExpectTransposedProduct(atz, [&](auto& result, int symmetric) { a->TransposeMultiply(z, result, symmetric); });
    a.ExpectUnchanged();
}

void ExpectStoredProducts(TestDatabase const& database, Stored& a, int p, Layout const& ofFactors, Layout const& ofResults)
{
    Dense const values = a.Values();
    int const m = values.rows, n = values.columns;
    Stored z(database, m, p, ofFactors), w(database, n, p, ofResults), b(database, n, p, ofFactors), c(database, m, p, ofResults),
        y(database, m, n, ofResults);
    Dense const atz = Product(values, true, z.Values()), ab = Product(values, false, b.Values());
    ExpectTransposedProduct(atz, [&](auto& result, int symmetric) { a->TransposeMultiply(&*z, result, symmetric); });
    for (int const symmetric : {0, 1}) {
        a->TransposeMultiply(&*z, &*w, symmetric);
        w.ExpectNow(symmetric != 0 ? Mirrored(atz) : atz);
    }
    z.ExpectUnchanged();
    GuardedMatrix inMemory(m, p);
    a->Multiply(&*b, inMemory.matrix.Values());
    ExpectEqual(inMemory.matrix, ab);
    a->Multiply(*b, *c);
    c.ExpectNow(ab);
    b.ExpectUnchanged();

    KVOSrvMatrix const x = Numbers(n, p), d = Numbers(n, n, true);
    Dense const ax = Product(values, false, Dense(x)), ad = Product(values, false, Dense(d));
    c.Spoil(); // not read where beta is 0
    a->Multiply(2.0, x, 0.0, *c);
    c.ExpectNow(2.0 * ax);
    a->Multiply(-1.0, x, 3.0, *c);
    c.ExpectNow(5.0 * ax);
    a->Multiply(7.0, d, -2.0, *y); // alpha plays no part
    y.ExpectNow(Combined(1.0, ad, -2.0, y.Values()));
    a->Multiply(7.0, d, 1.0, *y);
    y.ExpectNow(Combined(1.0, ad, 1.0, y.Values()));
    y.Spoil();
    a->Multiply(7.0, d, 0.0, *y);
    y.ExpectNow(ad);
    a.ExpectUnchanged();
}

void ExpectIndexedProduct(TestDatabase const& database, Stored& a, int p, Layout const& ofResult)
{
    int const m = a->NumberOfRows();
    std::vector<int> rows;
    for (int row = Between(0, std::min(2, m - 1)); row < m; row += Between(1, 3))
        rows.push_back(row);
    auto const count = static_cast<int>(rows.size());
    int groups = 0;
    std::unique_ptr<int[]> const ranges = KVOSrvContiguousRanges(rows.data(), count, Between(1, m), groups);
    int const skipped = Between(0, 1), first = ranges[skipped];
    std::fill_n(rows.begin(), first, -1); // before the first group: not looked at
    KVOSrvMatrix const x = Numbers(a->NumberOfColumns(), p);
    Stored y(database, count + 2, p, ofResult);
    Dense expected = y.Values();
    Dense const ax = Product(a.Values(), false, Dense(x));
    for (int i = first; i < count; ++i)
        Put(expected, Part(ax, rows[static_cast<std::size_t>(i)], rows[static_cast<std::size_t>(i)], 0, p - 1), i, 0);
    a->IndexedMultiply(x, *y, rows.data(), ranges.get() + skipped, groups - skipped);
    y.ExpectNow(expected);
    a.ExpectUnchanged();
}

void ExpectSums(Stored& a)
{
    Dense const values = a.Values();
    int const m = values.rows, n = values.columns, order = std::max(m, n) + Between(0, 2);
    KVOSrvMatrix sum = Numbers(m + 1, n + 2), symmetric(order, order, nullptr, true, false);
    Dense expected(sum);
    Put(expected, Combined(1.0, Part(expected, 0, m - 1, 0, n - 1), -4.0, values), 0, 0);
    sum.Add(-4.0, *a);
    ExpectEqual(sum, expected);

    symmetric = 1.0;
    Dense mirrored(symmetric);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i <= std::min(j, m - 1); ++i)
            mirrored.At(i, j) = mirrored.At(j, i) = 1.0 + 2.0 * values.At(i, j);
    symmetric.Add(2.0, *a);
    ExpectEqual(symmetric, mirrored);
}

void ExpectAllProducts(TestDatabase const& database, int m, int n, int p, Layout const& ofA, Layout const& ofFactors,
                       Layout const& ofResults)
{
    Stored a(database, m, n, ofA);
    ExpectProductsInMemory(a, p);
    ExpectStoredProducts(database, a, p, ofFactors, ofResults);
    ExpectIndexedProduct(database, a, p, ofResults);
    ExpectSums(a);
    KVOSrvMatrix const square = Numbers(n, n);
    a->MultiplyAssign(square);
    a.ExpectNow(Product(a.Values(), false, Dense(square)));
}

TEST(KVOSrvDenseMatrixProducts, EqualTheirFormulasForRandomShapesChunksAndViews)
{
    TestDatabase const database;
    for (int round = 0; round < 150; ++round) {
        SCOPED_TRACE(round);
        ExpectAllProducts(database, Between(1, 40), Between(1, 40), Between(1, 30), RandomLayout(), RandomLayout(), RandomLayout());
        ASSERT_FALSE(testing::Test::HasFailure());
    }
}

// Tiles of some blocks, parts of blocks, and borders of blocks of one operand within those of another.
TEST(KVOSrvDenseMatrixProducts, EqualTheirFormulasWithLittleMemory)
{
    TestDatabase const database;
    auto const layout = [] {
        Layout random = RandomLayout();
        for (int* const chunk : {&random.rowChunk, &random.columnChunk})
            *chunk *= *chunk > 0 ? Between(1, 6) : 1;
        return random;
    };
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        KVOSrvProductMemory const limit(Between(16'000, 60'000)); // tiles of order 25 to 50
        ExpectAllProducts(database, Between(1, 100), Between(1, 100), Between(1, 80), layout(), layout(), layout());
        ASSERT_FALSE(testing::Test::HasFailure());
    }
}

// Slabs and pieces of them of different sizes: larger than what is multiplied at a time, a short block before long ones.
TEST(KVOSrvDenseMatrixProducts, EqualTheirFormulasForLargeBlocks)
{
    TestDatabase const database;
    Layout const view{400, 700, 390, 690, 0, 3}, other{300, 64, 299, 0, 5, 0}; // A is read in pieces of a block column each
    ExpectAllProducts(database, 500, 1100, 3, view, other, other);
    ExpectAllProducts(database, 450, 160, 300, view, other, view);
}

// Few vectors are multiplied by the blocks where these lie in the file, unless it is HDF5 that moves the values. What was never written
// is zero and stays so.
TEST(KVOSrvDenseMatrixProducts, EqualTheirFormulasInPlace)
{
    Layout const whole{380, 380}, other{300, 64, 299, 0, 5, 0};
    for (char const* const dataPath : {"", "hdf5"}) {
        SCOPED_TRACE(dataPath);
        setenv("KVO_SIM_DATA_PATH", dataPath, 1);
        TestDatabase const database;
        ExpectAllProducts(database, 770, 385, 5, {380, 380, 0, 0, 0, 0, 380}, other, whole);
        ExpectAllProducts(database, 770, 385, 140, whole, other, whole);
    }
    unsetenv("KVO_SIM_DATA_PATH");
}

TEST(KVOSrvDenseMatrixProducts, ReportBlocksThatCannotBeReadFromTheFile)
{
    TestDatabase const database;
    Stored a(database, 760, 760, {380, 380});
    KVOSrvMatrix const x = Numbers(760, 3);
    KVOSrvMatrix y = Numbers(760, 3);
    a->Multiply(x, y);
    std::filesystem::resize_file(database.Path(), 100'000); // what is behind the end of a mapped file is a signal to those who touch it
    ExpectEachThrows<KVOSimException>({[&] { a->Multiply(x, y); }, [&] { a->TransposeMultiply(x, y, 0); }});
}

TEST(KVOSrvDenseMatrixProducts, AllowOverlapsThatDoNoHarmAndRefuseOthers)
{
    TestDatabase const database;
    Stored a(database, 9, 9, {4, 2});
    KVOSrvMatrix const x = Numbers(9, 9), narrow = Numbers(4, 4);
    auto const view = [&](int r0, int r1, int c0, int c1) { return std::unique_ptr<KVOSrvDenseMatrix>(a->Submatrix(r0, r1, c0, c1)); };

    Dense expected = Combined(1.0, a.Values(), 2.0, Product(a.Values(), false, Dense(x)));
    a->Multiply(2.0, x, 1.0, *a);
    a.ExpectNow(expected);
    expected = Product(a.Values(), true, a.Values());
    a->TransposeMultiply(&*a, &*a, 1);
    a.ExpectNow(expected);
    auto const topLeft = view(0, 3, 0, 3), topRight = view(0, 3, 5, 8), bottom = view(5, 8, 2, 5), middle = view(3, 6, 3, 6),
               below = view(4, 7, 0, 3), beside = view(4, 7, 4, 7); // the last two share edges with others
    auto const expectProduct = [](auto const& left, auto const& right, auto const& result) {
        Dense const product = Product(ValuesOf(*left), false, ValuesOf(*right));
        left->Multiply(*right, *result);
        ExpectEqual(*result, product);
    };
    expectProduct(topLeft, topRight, bottom);
    a->SetRows(0, 8, Numbers(9, 9));
    expectProduct(below, topLeft, beside);

    Dense const before = ValuesOf(*a);
    int const rows[] = {0, 1}, ranges[] = {0, 2};
    KVOSrvMatrix square = Numbers(9, 9);
    ExpectRefused("KVOSrvDenseMatrix::Multiply", square,
                  {[&] { topLeft->Multiply(*topRight, *middle); }, [&] { middle->Multiply(*bottom, *topLeft); },
                   [&] { topRight->Multiply(*topLeft, *middle); }, [&] { bottom->Multiply(*topRight, *bottom); },
                   [&] { topRight->Multiply(*bottom, *beside); }, [&] { topLeft->Multiply(1.0, narrow, 1.0, *middle); },
                   [&] { a->Multiply(square, square); }});
    ExpectRefused("KVOSrvDenseMatrix::IndexedMultiply", square, [&] { topLeft->IndexedMultiply(narrow, *middle, rows, ranges, 1); });
    ExpectRefused("KVOSrvDenseMatrix::TransposeMultiply", square, [&] { a->TransposeMultiply(square, square, 0); });
    ExpectSame(*a, before);
}

TEST(KVOSrvDenseMatrixProducts, RefuseOperandsThatDoNotFit)
{
    TestDatabase const database;
    Stored a(database, 7, 5, {4, 2}), b(database, 5, 6), tall(database, 7, 6), c(database, 6, 6), low(database, 2, 6), high(database, 8, 6);
    KVOSrvMatrix const x = Numbers(5, 6), z = Numbers(7, 6), d = Numbers(5, 5, true);
    KVOSrvMatrix y = Numbers(6, 6), y7 = Numbers(7, 5), y5 = Numbers(5, 7), diagonal = Numbers(7, 7, true);
    double values[36];
    KVOSrvDenseMatrix const* const none = nullptr;
    int const rows[] = {0, 1, 3}, ranges[] = {0, 2, 3}, reaching[] = {0, 3}, falling[] = {2, 0}, empty[] = {1, 1}, behind[] = {5, 6, 7},
              badPerm[] = {0, 1, 2, 3, 4, 5, 8};
    auto const refused = [&](char const* operation, Calls const& calls) {
        ExpectRefused(std::string("KVOSrvDenseMatrix::") + operation, y, calls);
    };
    refused("Multiply", {[&] { a->Multiply(x, y); }, [&] { a->Multiply(z, y); }, [&] { a->Multiply(values, -1, values); },
                         [&] { a->Multiply(values, 1, nullptr); }, [&] { a->Multiply(none, values); },
                         [&] { a->Multiply(1.0, d, 0.0, *c); }, [&] { a->Multiply(1.0, z, 0.0, *c); }});
    refused("MultiplyAssign", {[&] { a->MultiplyAssign(x); }});
    refused("TransposeMultiply",
            {[&] { a->TransposeMultiply(values, 1, values + 20, -1); }, [&] { a->TransposeMultiply(nullptr, x, y, 1.0, 0.0); },
             [&] { tall->TransposeMultiply(nullptr, Numbers(7, 7), y, 1.0, 0.0); }, [&] { a->TransposeMultiply(z, y, 0); },
             [&] { a->TransposeMultiply(z, static_cast<double*>(nullptr), 0); }, [&] { a->TransposeMultiply(x, values, 0); },
             [&] { a->TransposeMultiply(none, y, 0); }, [&] { a->TransposeMultiply(&*tall, &*c, 0); }});
    refused("IndexedMultiply",
            {[&] { a->IndexedMultiply(z, *c, rows, ranges, 2); }, [&] { a->IndexedMultiply(x, *c, rows, reaching, 1); }, // 0 to 3 are four
             [&] { a->IndexedMultiply(x, *c, rows, falling, 1); }, [&] { a->IndexedMultiply(x, *c, rows, empty, 1); }});
    ExpectRefused("Add", y, [&] { y.Add(1.0, *a); });
    ExpectRefused("Assignment operator", diagonal, [&] { diagonal.Add(1.0, *a); });
    diagonal.Add(0.0, *a); // does nothing
    // A diagonal's array ends after the diagonal, whoever owns it.
    for (double* const wrapped : {static_cast<double*>(nullptr), values}) {
        KVOSrvMatrix const d5(5, 5, wrapped, false, true), d7(7, 7, wrapped, false, true);
        refused("Multiply", {[&] { a->Multiply(d5, y7); }});
        refused("MultiplyAssign", {[&] { a->MultiplyAssign(d5); }});
        refused("TransposeMultiply", {[&] { a->TransposeMultiply(nullptr, d7, y5, 1.0, 0.0); },
                                      [&] { a->TransposeMultiply(d7, y5.Values(), 0); }, [&] { a->TransposeMultiply(d7, y5, 0); }});
        refused("IndexedMultiply", {[&] { a->IndexedMultiply(d5, *c, rows, ranges, 2); }});
    }
    // What a transfer would refuse: rows that the stored matrix has not.
    ExpectEachThrows<KVOSrvMtxInvalidGetRange>({[&] { a->TransposeMultiply(values, 1, values + 20, 8); },
                                                [&] { a->TransposeMultiply(&*b, y, 0); }, [&] { a->Multiply(&*c, values); },
                                                [&] { a->Multiply(*low, *c); }, [&] { a->IndexedMultiply(x, *c, behind, reaching, 1); },
                                                [&] { a->Multiply(1.0, x, 0.0, *high); }});
    ExpectEachThrows<KVOSrvMtxInvalidSetRange>({[&] { a->Multiply(*b, *c); }, [&] { a->IndexedMultiply(x, *low, rows, ranges, 2); }});
    ExpectEachThrows<KVOSrvMtxIllegalPermVect>({[&] { a->TransposeMultiply(badPerm, z, y, 1.0, 0.0); }});
    for (Stored* const stored : {&a, &c, &low, &high})
        stored->ExpectUnchanged();
}

TEST(KVOSrvDenseMatrixProducts, HaveNothingToDoWithoutRowsColumnsOrVectors)
{
    TestDatabase const database;
    KVOSrvDenseMatrix const null;
    KVOSrvDenseMatrix otherNull;
    Stored a(database, 4, 3, {2, 2}), c(database, 3, 3);
    KVOSrvMatrix const noVectors = Numbers(3, 0), noRows = Numbers(0, 0);
    KVOSrvMatrix empty = Numbers(0, 0), symmetric = RandomMatrix(3, 3);
    double value = 3.0;
    ExpectProductsInMemory(a, 0);
    a->Multiply(1.0, noVectors, 0.0, otherNull);
    a->IndexedMultiply(noVectors, *c, nullptr, nullptr, 0);
    null.Multiply(noRows, empty);
    null.Multiply(null, otherNull);
    null.Multiply(&null, &value);
    null.TransposeMultiply(noRows, empty, 1);
    null.TransposeMultiply(&null, &otherNull, 0);
    otherNull.MultiplyAssign(noRows);
    symmetric.Add(1.0, null);
    c.ExpectUnchanged();
    EXPECT_EQ(value, 3.0);
}

TEST(KVOSrvDenseMatrixProducts, ChangeNothingInMemoryWhenItRunsOut)
{
    TestDatabase const database;
    Stored a(database, 6, 5, {4, 2}), b(database, 6, 7);
    KVOSrvMatrix const x = Numbers(5, 7), z = Numbers(6, 7);
    KVOSrvMatrix y = Numbers(6, 7), w = Numbers(5, 7), sum = Numbers(6, 7);
    EXPECT_GT(FailEachAllocation(y, [&] { a->Multiply(x, y); }), 0);
    EXPECT_GT(FailEachAllocation(w, [&] { a->TransposeMultiply(z, w, 0); }), 0);
    EXPECT_GT(FailEachAllocation(w, [&] { a->TransposeMultiply(&*b, w, 0); }), 0);
    EXPECT_GT(FailEachAllocation(sum, [&] { sum.Add(1.0, *a); }), 0);
    ExpectEqual(y, Product(a.Values(), false, Dense(x)));
    ExpectEqual(w, Product(a.Values(), true, b.Values()));
}

} // namespace
