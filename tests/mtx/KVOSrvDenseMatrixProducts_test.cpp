#include "DatabaseSupport.h"
#include "KVOSimException.h"
#include "KVOSrvScratchDenseMatrix.h"

#include <cstdlib>
#include <filesystem>

namespace
{

std::mt19937 s_random(5);

int Between(int first, int last)
{
    return std::uniform_int_distribution<>(first, last)(s_random);
}

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

// How a stored matrix lies in its store.
struct Layout {
    int rowChunk = -1, columnChunk = -1;
    int top = 0, left = 0, bottom = 0, right = 0; // what the store has around it
};

Layout RandomLayout()
{
    auto const chunk = [] { return Between(0, 5) == 0 ? -1 : Between(1, 12); };
    auto const margin = [] { return Between(0, 2) == 0 ? Between(1, 9) : 0; };
    return {chunk(), chunk(), margin(), margin(), margin(), margin()};
}

// A stored matrix of small whole numbers, as a view where its layout has margins.
class Stored
{
public:
    Stored(TestDatabase const& database, int rows, int columns, Layout const& layout)
        : m_store(database.Matrix(layout.top + rows + layout.bottom, layout.left + columns + layout.right, layout.rowChunk,
                                  layout.columnChunk)),
          m_layout(layout), m_before(layout.top + rows + layout.bottom, layout.left + columns + layout.right),
          m_view(m_store.Submatrix(layout.top, layout.top + rows - 1, layout.left, layout.left + columns - 1))
    {
        KVOSrvMatrix const values = Numbers(m_before.rows, m_before.columns);
        m_store.SetRows(0, m_before.rows - 1, values);
        m_before = Dense(values);
    }

    bool IsWhole() const { return m_before.rows == m_view->NumberOfRows() && m_before.columns == m_view->NumberOfColumns(); }
    KVOSrvDenseMatrix& operator*() { return IsWhole() ? m_store : *m_view; }
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
    void ExpectUnchanged() { ExpectNow(Values()); }

private:
    KVOSrvDenseMatrix m_store;
    Layout m_layout;
    Dense m_before;
    std::unique_ptr<KVOSrvDenseMatrix> m_view;
};

// x + s y
Dense Sum(Dense const& x, double s, Dense const& y)
{
    return Combined(1.0, x, s, y);
}

Dense Scaled(double s, Dense const& x)
{
    return Combined(s, x, 0.0, x);
}

// The lower triangle of the leading square copied onto the upper one, or the other way round where there are fewer rows than columns.
Dense Mirrored(Dense const& x)
{
    auto const mirrors = [&](int i, int j) { return x.rows < x.columns ? j < i : i < j && j < x.columns && j < x.rows; };
    return Filled(x.rows, x.columns, [&](int i, int j) { return mirrors(i, j) ? x.At(j, i) : x.At(i, j); });
}

struct Shapes {
    int m, n, p;
    Layout a, b, c;
};

class Products
{
public:
    Products(TestDatabase const& target, Shapes const& s)
        : m(s.m), n(s.n), p(s.p), database(target), shapes(s), a(database, m, n, s.a), x(Numbers(n, p)), z(Numbers(m, p))
    {
    }

    void ExpectRowProducts()
    {
        Dense const ax = Product(a.Values(), false, Dense(x));
        GuardedMatrix y(m, p);
        y.matrix = kNotANumber;
        (*a).Multiply(x, y.matrix);
        ExpectEqual(y.matrix, ax);
        (*a).Multiply(x.Values(), p, y.matrix.Values());
        ExpectEqual(y.matrix, Scaled(2.0, ax));
        a.ExpectUnchanged();
    }

    void ExpectTransposedProducts()
    {
        Dense const values = a.Values(), atz = Product(values, true, Dense(z));
        int const r = Between(0, m);
        Dense const firstRows = Part(Dense(z), 0, r - 1, 0, p - 1);
        GuardedMatrix y(n, p);
        Dense const before(y.matrix = Numbers(n, p));
        (*a).TransposeMultiply(firstRows.values.data(), p, y.matrix.Values(), r);
        ExpectEqual(y.matrix, Sum(before, 1.0, Product(Part(values, 0, r - 1, 0, n - 1), true, firstRows)));

        y.matrix = kNotANumber;
        (*a).TransposeMultiply(nullptr, z, y.matrix, 1.0, 0.0);
        ExpectEqual(y.matrix, atz);
        std::vector<int> perm(static_cast<std::size_t>(m));
        std::iota(perm.begin(), perm.end(), 0);
        std::shuffle(perm.begin(), perm.end(), s_random);
        Dense permuted(m, n);
        for (int i = 0; i < m; ++i)
            Put(permuted, Part(values, i, i, 0, n - 1), perm[static_cast<std::size_t>(i)], 0);
        (*a).TransposeMultiply(perm.data(), z, y.matrix, 2.0, -3.0);
        ExpectEqual(y.matrix, Sum(Scaled(-3.0, atz), 2.0, Product(permuted, true, Dense(z))));

        ExpectInMemory(atz, [&](auto& result, int symmetric) { (*a).TransposeMultiply(z, result, symmetric); });
        a.ExpectUnchanged();
    }

    void ExpectStoredTransposedProducts()
    {
        Stored b(database, m, p, shapes.b), c(database, n, p, shapes.c);
        Dense const atb = Product(a.Values(), true, b.Values());
        ExpectInMemory(atb, [&](auto& result, int symmetric) { (*a).TransposeMultiply(&*b, result, symmetric); });
        for (int const symmetric : {0, 1}) {
            (*a).TransposeMultiply(&*b, &*c, symmetric);
            c.ExpectNow(symmetric != 0 ? Mirrored(atb) : atb);
        }
        a.ExpectUnchanged();
        b.ExpectUnchanged();
    }

    void ExpectStoredProducts()
    {
        Stored b(database, n, p, shapes.b), c(database, m, p, shapes.c);
        Dense const ab = Product(a.Values(), false, b.Values());
        GuardedMatrix y(m, p);
        (*a).Multiply(&*b, y.matrix.Values());
        ExpectEqual(y.matrix, ab);
        (*a).Multiply(*b, *c);
        c.ExpectNow(ab);
        a.ExpectUnchanged();
        b.ExpectUnchanged();

        Dense const ax = Product(a.Values(), false, Dense(x));
        (*a).Multiply(2.0, x, 0.0, *c);
        c.ExpectNow(Scaled(2.0, ax));
        (*a).Multiply(-1.0, x, 3.0, *c);
        c.ExpectNow(Scaled(5.0, ax));
        a.ExpectUnchanged();
    }

    void ExpectProductsByDiagonals()
    {
        Stored c(database, m, n, shapes.c);
        KVOSrvMatrix const d = Numbers(n, n, true);
        Dense const ad = Product(a.Values(), false, Dense(d));
        Dense expected = c.Values();
        for (double const beta : {1.0, -2.0, 0.0}) {
            (*a).Multiply(7.0, d, beta, *c); // alpha plays no part
            expected = Sum(ad, beta, expected);
            c.ExpectNow(expected);
        }
        a.ExpectUnchanged();
    }

    void ExpectIndexedProduct()
    {
        std::vector<int> rows, ranges{Between(0, 3)};
        rows.resize(static_cast<std::size_t>(ranges[0]), -1); // before the first group: not looked at
        for (int row = Between(0, 2); row < m; row += Between(1, 3)) {
            if (static_cast<int>(rows.size()) > ranges.back() && row != rows.back() + 1)
                ranges.push_back(static_cast<int>(rows.size()));
            rows.push_back(row);
        }
        auto const count = static_cast<int>(rows.size());
        if (count > ranges.back())
            ranges.push_back(count);
        Stored y(database, count + 2, p, shapes.c);
        Dense expected = y.Values();
        Dense const ax = Product(a.Values(), false, Dense(x));
        for (int i = ranges[0]; i < count; ++i)
            Put(expected, Part(ax, rows[static_cast<std::size_t>(i)], rows[static_cast<std::size_t>(i)], 0, p - 1), i, 0);
        (*a).IndexedMultiply(x, *y, rows.data(), ranges.data(), static_cast<int>(ranges.size()) - 1);
        y.ExpectNow(expected);
        a.ExpectUnchanged();
    }

    void ExpectAssignedProduct()
    {
        KVOSrvMatrix const square = Numbers(n, n);
        Dense const product = Product(a.Values(), false, Dense(square));
        (*a).MultiplyAssign(square);
        a.ExpectNow(product);
    }

    void ExpectSums()
    {
        KVOSrvMatrix sum = Numbers(m + 1, n + 2);
        Dense const values = a.Values();
        Dense expected(sum);
        Put(expected, Sum(Part(expected, 0, m - 1, 0, n - 1), -4.0, values), 0, 0);
        sum.Add(-4.0, *a);
        ExpectEqual(sum, expected);

        int const order = std::max(m, n) + Between(0, 2);
        KVOSrvMatrix symmetric(order, order, nullptr, true, false);
        symmetric = 1.0;
        Dense mirrored(symmetric);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i <= std::min(j, m - 1); ++i)
                mirrored.At(i, j) = mirrored.At(j, i) = 1.0 + 2.0 * values.At(i, j);
        symmetric.Add(2.0, *a);
        ExpectEqual(symmetric, mirrored);
    }

    void ExpectAll()
    {
        ExpectRowProducts();
        ExpectTransposedProducts();
        ExpectStoredTransposedProducts();
        ExpectStoredProducts();
        ExpectProductsByDiagonals();
        ExpectIndexedProduct();
        ExpectSums();
        ExpectAssignedProduct();
    }

private:
    // Into a matrix and into an array, with and without the symmetric result.
    template<class Run>
    static void ExpectInMemory(Dense const& product, Run const& run)
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

    int m, n, p;
    TestDatabase const& database;
    Shapes shapes;
    Stored a;
    KVOSrvMatrix x, z;
};

TEST(KVOSrvDenseMatrixProducts, EqualTheirFormulasForRandomShapesChunksAndViews)
{
    TestDatabase const database;
    for (int round = 0; round < 150; ++round) {
        Shapes const shapes{Between(1, 40), Between(1, 40), Between(1, 30), RandomLayout(), RandomLayout(), RandomLayout()};
        SCOPED_TRACE(round);
        Products(database, shapes).ExpectAll();
        ASSERT_FALSE(testing::Test::HasFailure());
    }
}

// Slabs and pieces of them of different sizes: larger than what is multiplied at a time, a short block before long ones.
TEST(KVOSrvDenseMatrixProducts, EqualTheirFormulasForLargeBlocks)
{
    TestDatabase const database;
    Layout const view{400, 700, 390, 690, 0, 3}, other{300, 64, 299, 0, 5, 0}; // A is read in pieces of a block column each
    for (Shapes const& shapes : {Shapes{500, 1100, 3, view, other, other}, Shapes{450, 160, 300, view, other, view}})
        Products(database, shapes).ExpectAll();
}

// Few vectors are multiplied by the blocks where these lie in the file, unless it is HDF5 that moves the values.
TEST(KVOSrvDenseMatrixProducts, EqualTheirFormulasInPlace)
{
    Layout const whole{380, 380, 0, 0, 0, 0};
    for (char const* const dataPath : {"", "hdf5"}) {
        SCOPED_TRACE(dataPath);
        setenv("KVO_SIM_DATA_PATH", dataPath, 1);
        TestDatabase const database;
        for (int const p : {5, 140})
            Products(database, {770, 385, p, whole, {300, 64, 299, 0, 5, 0}, whole}).ExpectAll();
    }
    unsetenv("KVO_SIM_DATA_PATH");
}

TEST(KVOSrvDenseMatrixProducts, ReportBlocksThatCannotBeReadFromTheFile)
{
    TestDatabase const database;
    Stored a(database, 760, 760, {380, 380, 0, 0, 0, 0});
    KVOSrvMatrix const x = Numbers(760, 3);
    KVOSrvMatrix y = Numbers(760, 3);
    (*a).Multiply(x, y);
    ExpectEqual(y, Product(a.Values(), false, Dense(x)));
    std::filesystem::resize_file(database.Path(), 100'000); // what is behind the end of a mapped file is a signal to those who touch it
    EXPECT_THROW((*a).Multiply(x, y), KVOSimException);
    EXPECT_THROW((*a).TransposeMultiply(x, y, 0), KVOSimException);
}

TEST(KVOSrvDenseMatrixProducts, TakeBlocksThatWereNeverWrittenAsZero)
{
    TestDatabase const database;
    KVOSrvDenseMatrix a(database.Matrix(760, 760, 380, 380));
    Dense expected(760, 760);
    KVOSrvMatrix const values = Numbers(380, 380), x = Numbers(760, 3);
    a.SetValues(380, 759, 0, 379, values);
    Put(expected, Dense(values), 380, 0);
    KVOSrvMatrix y = Numbers(760, 3);
    a.Multiply(x, y);
    ExpectEqual(y, Product(expected, false, Dense(x)));
    a.TransposeMultiply(x, y, 0);
    ExpectEqual(y, Product(expected, true, Dense(x)));
    EXPECT_FALSE(a.BlockAllocated(0, 0));
}

TEST(KVOSrvDenseMatrixProducts, MeetEveryRowAndColumnOfAnExtendedMatrix)
{
    TestDatabase const database;
    KVOSrvDenseMatrix a(database.Matrix(5, 6, 8, 8));
    std::vector<int> const rows{10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22}, columns{30, 31, 32, 33, 34};
    ASSERT_EQ(a.ExtendDim(1, 13, rows.data()), 0);
    ASSERT_EQ(a.ExtendDim(0, 5, columns.data()), 0);
    KVOSrvMatrix const values = Numbers(18, 11), x = Numbers(11, 3), z = Numbers(18, 3);
    a.SetRows(0, 17, values);

    KVOSrvMatrix y(18, 3, nullptr, false, false), w(11, 3, nullptr, false, false), sum(18, 11, nullptr, false, false);
    a.Multiply(x, y);
    ExpectEqual(y, Product(Dense(values), false, Dense(x)));
    a.TransposeMultiply(z, w, 0);
    ExpectEqual(w, Product(Dense(values), true, Dense(z)));
    KVOSrvDenseMatrix c(database.Matrix(11, 11, 4, 4));
    a.TransposeMultiply(&a, &c, 1);
    ExpectEqual(c, Product(Dense(values), true, Dense(values)));
    sum = 0.0;
    sum.Add(1.0, a);
    ExpectEqual(sum, Dense(values));
}

TEST(KVOSrvDenseMatrixProducts, NeverReadAResultThatBetaZeroReplaces)
{
    TestDatabase const database;
    Stored a(database, 6, 6, {4, 4, 0, 0, 0, 0}), y(database, 6, 6, {3, 3, 0, 0, 0, 0});
    KVOSrvMatrix nan(6, 6, nullptr, false, false);
    KVOSrvMatrix const x = Numbers(6, 6), d = Numbers(6, 6, true);
    nan = kNotANumber;
    for (KVOSrvMatrix const* factor : {&x, &d}) {
        (*y).SetRows(0, 5, nan);
        (*a).Multiply(1.0, *factor, 0.0, *y);
        y.ExpectNow(Product(a.Values(), false, Dense(*factor)));
    }
}

TEST(KVOSrvDenseMatrixProducts, AllowOverlapsThatDoNoHarmAndRefuseOthers)
{
    TestDatabase const database;
    Stored a(database, 9, 9, {4, 2, 0, 0, 0, 0});
    KVOSrvMatrix const x = Numbers(9, 9), narrow = Numbers(4, 4);
    auto const view = [&](int r0, int r1, int c0, int c1) { return std::unique_ptr<KVOSrvDenseMatrix>((*a).Submatrix(r0, r1, c0, c1)); };

    Dense expected = Sum(a.Values(), 2.0, Product(a.Values(), false, Dense(x)));
    (*a).Multiply(2.0, x, 1.0, *a);
    a.ExpectNow(expected);
    expected = Product(a.Values(), true, a.Values());
    (*a).TransposeMultiply(&*a, &*a, 1);
    a.ExpectNow(expected);
    auto const topLeft = view(0, 3, 0, 3), topRight = view(0, 3, 5, 8), bottom = view(5, 8, 2, 5), middle = view(3, 6, 3, 6);
    Dense const product = Product(ValuesOf(*topLeft), false, ValuesOf(*topRight));
    topLeft->Multiply(*topRight, *bottom);
    ExpectEqual(*bottom, product);

    auto const below = view(4, 7, 0, 3), beside = view(4, 7, 4, 7); // they share edges
    (*a).SetRows(0, 8, Numbers(9, 9));
    Dense const next = Product(ValuesOf(*below), false, ValuesOf(*topLeft));
    below->Multiply(*topLeft, *beside);
    ExpectEqual(*beside, next);

    Dense const before = ValuesOf(*a);
    int const rows[] = {0, 1}, ranges[] = {0, 2};
    ExpectRefused("KVOSrvDenseMatrix::Multiply", narrow, [&] { topLeft->Multiply(*topRight, *middle); });
    ExpectRefused("KVOSrvDenseMatrix::Multiply", narrow, [&] { middle->Multiply(*bottom, *topLeft); });
    ExpectRefused("KVOSrvDenseMatrix::Multiply", narrow, [&] { topRight->Multiply(*topLeft, *middle); });
    ExpectRefused("KVOSrvDenseMatrix::Multiply", narrow, [&] { bottom->Multiply(*topRight, *bottom); });
    ExpectRefused("KVOSrvDenseMatrix::Multiply", narrow, [&] { topRight->Multiply(*bottom, *beside); });
    ExpectRefused("KVOSrvDenseMatrix::Multiply", narrow, [&] { topLeft->Multiply(1.0, narrow, 1.0, *middle); });
    ExpectRefused("KVOSrvDenseMatrix::IndexedMultiply", narrow, [&] { topLeft->IndexedMultiply(narrow, *middle, rows, ranges, 1); });
    KVOSrvMatrix square = Numbers(9, 9);
    ExpectRefused("KVOSrvDenseMatrix::Multiply", square, [&] { (*a).Multiply(square, square); });
    ExpectRefused("KVOSrvDenseMatrix::TransposeMultiply", square, [&] { (*a).TransposeMultiply(square, square, 0); });
    ExpectSame(*a, before);
}

TEST(KVOSrvDenseMatrixProducts, RefuseOperandsThatDoNotFit)
{
    TestDatabase const database;
    Stored a(database, 7, 5, {4, 2, 0, 0, 0, 0}), b(database, 5, 6, {}), tall(database, 7, 6, {}), c(database, 6, 6, {});
    KVOSrvMatrix const x = Numbers(5, 6), z = Numbers(7, 6), d = Numbers(5, 5, true);
    KVOSrvMatrix y = Numbers(6, 6);
    double values[36];
    KVOSrvDenseMatrix const* const none = nullptr;
    int const rows[] = {0, 1, 3}, ranges[] = {0, 2, 3}, reaching[] = {0, 3}, falling[] = {2, 0}, empty[] = {1, 1}, behind[] = {5, 6, 7};
    auto const refused = [&](char const* operation, auto const& run) {
        ExpectRefused(std::string("KVOSrvDenseMatrix::") + operation, y, run);
        c.ExpectUnchanged();
        a.ExpectUnchanged();
    };
    refused("Multiply", [&] { (*a).Multiply(x, y); });
    refused("Multiply", [&] { (*a).Multiply(z, y); });
    refused("Multiply", [&] { (*a).Multiply(values, -1, values); });
    refused("Multiply", [&] { (*a).Multiply(values, 1, nullptr); });
    refused("Multiply", [&] { (*a).Multiply(none, values); });
    refused("Multiply", [&] { (*a).Multiply(1.0, d, 0.0, *c); });
    refused("Multiply", [&] { (*a).Multiply(1.0, z, 0.0, *c); });
    refused("MultiplyAssign", [&] { (*a).MultiplyAssign(x); });
    refused("TransposeMultiply", [&] { (*a).TransposeMultiply(values, 1, values + 20, -1); });
    refused("TransposeMultiply", [&] { (*a).TransposeMultiply(nullptr, x, y, 1.0, 0.0); });
    refused("TransposeMultiply", [&] { (*tall).TransposeMultiply(nullptr, Numbers(7, 7), y, 1.0, 0.0); });
    refused("TransposeMultiply", [&] { (*a).TransposeMultiply(z, y, 0); });
    refused("TransposeMultiply", [&] { (*a).TransposeMultiply(z, static_cast<double*>(nullptr), 0); });
    refused("TransposeMultiply", [&] { (*a).TransposeMultiply(x, values, 0); });
    refused("TransposeMultiply", [&] { (*a).TransposeMultiply(none, y, 0); });
    refused("TransposeMultiply", [&] { (*a).TransposeMultiply(&*tall, &*c, 0); });
    refused("IndexedMultiply", [&] { (*a).IndexedMultiply(z, *c, rows, ranges, 2); });
    refused("IndexedMultiply", [&] { (*a).IndexedMultiply(x, *c, rows, reaching, 1); }); // rows 0 to 3 are four
    for (int const* const wrong : {falling, empty})
        refused("IndexedMultiply", [&] { (*a).IndexedMultiply(x, *c, rows, wrong, 1); });
    ExpectRefused("Add", y, [&] { y.Add(1.0, *a); });
    // A diagonal's array ends after the diagonal, whoever owns it.
    KVOSrvMatrix y7 = Numbers(7, 5), y5 = Numbers(5, 7);
    for (double* const wrapped : {static_cast<double*>(nullptr), values}) {
        KVOSrvMatrix const d5(5, 5, wrapped, false, true), d7(7, 7, wrapped, false, true);
        refused("Multiply", [&] { (*a).Multiply(d5, y7); });
        refused("MultiplyAssign", [&] { (*a).MultiplyAssign(d5); });
        refused("TransposeMultiply", [&] { (*a).TransposeMultiply(nullptr, d7, y5, 1.0, 0.0); });
        refused("TransposeMultiply", [&] { (*a).TransposeMultiply(d7, y5.Values(), 0); });
        refused("TransposeMultiply", [&] { (*a).TransposeMultiply(d7, y5, 0); });
        refused("IndexedMultiply", [&] { (*a).IndexedMultiply(d5, *c, rows, ranges, 2); });
    }

    // What a transfer would refuse: rows that the stored matrix has not.
    Stored low(database, 2, 6, {}), high(database, 8, 6, {});
    EXPECT_THROW((*a).TransposeMultiply(values, 1, values + 20, 8), KVOSrvMtxInvalidGetRange);
    EXPECT_THROW((*a).TransposeMultiply(&*b, y, 0), KVOSrvMtxInvalidGetRange);
    EXPECT_THROW((*a).Multiply(&*c, values), KVOSrvMtxInvalidGetRange);
    EXPECT_THROW((*a).Multiply(*low, *c), KVOSrvMtxInvalidGetRange);
    EXPECT_THROW((*a).Multiply(*b, *c), KVOSrvMtxInvalidSetRange);
    EXPECT_THROW((*a).IndexedMultiply(x, *c, behind, reaching, 1), KVOSrvMtxInvalidGetRange);
    EXPECT_THROW((*a).IndexedMultiply(x, *low, rows, ranges, 2), KVOSrvMtxInvalidSetRange);
    EXPECT_THROW((*a).Multiply(1.0, x, 0.0, *high), KVOSrvMtxInvalidGetRange);
    for (Stored* const stored : {&a, &c, &low, &high})
        stored->ExpectUnchanged();

    int const badPerm[] = {0, 1, 2, 3, 4, 5, 8};
    EXPECT_THROW((*a).TransposeMultiply(badPerm, z, y, 1.0, 0.0), KVOSrvMtxIllegalPermVect);
    KVOSrvMatrix diagonal = Numbers(7, 7, true);
    ExpectRefused("Assignment operator", diagonal, [&] { diagonal.Add(1.0, *a); });
    diagonal.Add(0.0, *a); // does nothing
}

TEST(KVOSrvDenseMatrixProducts, HaveNothingToDoWithoutRowsColumnsOrVectors)
{
    TestDatabase const database;
    KVOSrvDenseMatrix const null;
    KVOSrvDenseMatrix otherNull;
    Stored a(database, 4, 3, {2, 2, 0, 0, 0, 0}), c(database, 3, 3, {});
    KVOSrvMatrix const noVectors = Numbers(3, 0), noRows = Numbers(0, 0);
    KVOSrvMatrix empty = Numbers(0, 0), y = Numbers(4, 0), symmetric = RandomMatrix(3, 3);
    double value = 3.0;
    (*a).Multiply(noVectors, y);
    (*a).Multiply(1.0, noVectors, 0.0, otherNull);
    (*a).IndexedMultiply(noVectors, *c, nullptr, nullptr, 0);
    null.Multiply(noRows, empty);
    null.Multiply(null, otherNull);
    null.Multiply(&null, &value);
    null.TransposeMultiply(noRows, empty, 1);
    null.TransposeMultiply(&null, &otherNull, 0);
    otherNull.MultiplyAssign(noRows);
    (*a).TransposeMultiply(&value, 1, &value, 0);
    symmetric.Add(1.0, null);
    a.ExpectUnchanged();
    c.ExpectUnchanged();
    EXPECT_EQ(value, 3.0);
}

TEST(KVOSrvDenseMatrixProducts, ChangeNothingInMemoryWhenItRunsOut)
{
    TestDatabase const database;
    Stored a(database, 6, 5, {4, 2, 0, 0, 0, 0}), b(database, 6, 7, {});
    KVOSrvMatrix const x = Numbers(5, 7), z = Numbers(6, 7);
    KVOSrvMatrix y = Numbers(6, 7), w = Numbers(5, 7), sum = Numbers(6, 7);
    EXPECT_GT(FailEachAllocation(y, [&] { (*a).Multiply(x, y); }), 0);
    EXPECT_GT(FailEachAllocation(w, [&] { (*a).TransposeMultiply(z, w, 0); }), 0);
    EXPECT_GT(FailEachAllocation(w, [&] { (*a).TransposeMultiply(&*b, w, 0); }), 0);
    EXPECT_GT(FailEachAllocation(sum, [&] { sum.Add(1.0, *a); }), 0);
    ExpectEqual(y, Product(a.Values(), false, Dense(x)));
    ExpectEqual(w, Product(a.Values(), true, b.Values()));
}

} // namespace
