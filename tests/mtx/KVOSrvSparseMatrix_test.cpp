#include "SparseOracle.h"

#include <climits>
#include <functional>

using Matrix = KVOSrvSparseMatrix;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

static std::string Refusal(std::string const& operation, std::string const& reason)
{
    return "KVOSrvSparseMatrix::" + operation + " - Illegal input: " + reason + ".";
}

static void AddAll(Matrix& matrix, std::vector<KVOSrvSparseMatrixEntry> const& entries)
{
    for (auto const& [row, column, value] : entries)
        matrix.AddData(row, column, value);
}

// The same with its mirror image.
static SparseOracle Symmetric(int n, int entries, unsigned seed)
{
    SparseOracle oracle{n, n, {}};
    for (auto const& [row, column, value] : RandomEntries({n, n, entries}, seed))
        oracle.places[{row, column}] = oracle.places[{column, row}] = value;
    return oracle;
}

// Bit by bit: another order of the additions gives other sums, and a sum that begins with 0 loses the sign of -0.0.
TEST(KVOSrvSparseMatrix, AssemblesLikeAMap)
{
    // One bucket of rows and many, full and empty ones, a crowded row, columns on both sides of each level of the sorter's bits, and so
    // many columns that it is not used.
    constexpr SparseShape kShapes[] = {{0, 0, 0},  {65, 64, 2000},    {5000, 70, 100000},  {20011, 20011, 150000},
                                       {0, 3, 0},  {63, 4097, 9000},  {1, 3000, 100000},   {3, 270000, 290000},
                                       {7, 5, 40}, {1048576, 10, 50}, {3, 2000000, 70000}, {40000, INT_MAX, 100000}};
    for (SparseShape const& shape : kShapes) {
        SCOPED_TRACE(testing::Message() << shape.rows << " x " << shape.columns << ", " << shape.entries << " entries");
        Matrix matrix(shape.rows, shape.columns);
        AddAll(matrix, RandomEntries(shape, 1));
        matrix.EndAssembly();
        EXPECT_TRUE(ContentOf(matrix) == RandomOracle(shape, 1).ExpectedContent());
    }
}

TEST(KVOSrvSparseMatrix, GrowsWithItsEntriesAndStartsAnewWithEachAssembly)
{
    Matrix matrix(3, 3);
    matrix.AddData(5, 2, 1.0);
    EXPECT_EQ(std::pair(matrix.NumberOfRows(), matrix.NumberOfColumns()), std::pair(6, 3));
    matrix.EndAssembly();
    matrix.AddData(0, 8, 2.0); // not part of the assembled matrix, which has more columns and rows now
    matrix.AddData(9, 0, 3.0);
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{10, 9, 1, {MakeEntry(5, 2, 1.0)}}));
    int count = -1;
    matrix.NontrivialRows(count);
    EXPECT_EQ(count, 1);
    std::unique_ptr<unsigned[]> const kept(matrix.EliminateTrivialColumns(count)); // of which those that wait know nothing
    EXPECT_EQ(ContentOf(matrix), (Content{10, 1, 1, {MakeEntry(5, 0, 1.0)}}));

    matrix.BeginAssembly(); // keeps what was added
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{10, 9, 2, {MakeEntry(0, 8, 2.0), MakeEntry(9, 0, 3.0)}}));
    matrix.BeginAssembly();
    matrix.AddData(0, INT_MAX - 1, 1.0);
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{10, INT_MAX, 1, {MakeEntry(0, INT_MAX - 1, 1.0)}}));
}

// A matrix of arrays that it takes over, unless it refuses them. Where `values` are empty there are none.
static std::unique_ptr<Matrix> TakenOver(int rows, int columns, std::vector<unsigned> const& starts, std::vector<int> const& indices,
                                         Vector const& values, Vector const& diagonal = {})
{
    auto const copy = []<class T>(std::vector<T> const& list) {
        std::unique_ptr<T[], mem_Deleter> array(list.empty() ? nullptr : static_cast<T*>(mem_OperatorNewThrow(list.size() * sizeof(T))));
        std::ranges::copy(list, array.get());
        return array;
    };
    auto a = copy(starts);
    auto b = copy(indices);
    auto c = copy(values), d = copy(diagonal);
    auto matrix = std::make_unique<Matrix>(rows, columns, a.get(), b.get(), c.get(), d.get());
    static_cast<void>((a.release(), b.release(), c.release(), d.release()));
    return matrix;
}

TEST(KVOSrvSparseMatrix, TakesRowsOverAndShowsThem)
{
    auto const listOf = [](auto const* first, std::size_t count) { return std::vector(first, first + count); };
    auto const full = TakenOver(3, 4, {0, 2, 2, 3}, {1, 3, 0}, {4, 5, 6}), half = TakenOver(2, 2, {0, 1, 1}, {1}, {4}, {5, 6});
    KVOSrvSparseRows const rows = full->Rows();
    EXPECT_EQ(std::tuple(rows.rows, rows.columns, rows.entries), std::tuple(3, 4, 3));
    EXPECT_EQ(listOf(rows.rowStart, 4), (std::vector<unsigned>{0, 2, 2, 3}));
    EXPECT_EQ(listOf(rows.columnIndices, 3), (std::vector{1, 3, 0}));
    EXPECT_EQ(listOf(rows.values, 3), (Vector{4, 5, 6}));
    EXPECT_EQ(rows.diagonal, nullptr);
    EXPECT_EQ(listOf(half->Rows().diagonal, 2), (Vector{5, 6}));
    EXPECT_EQ(ContentOf(*half), (Content{2, 2, 1, {MakeEntry(0, 0, 5), MakeEntry(1, 0, 4), MakeEntry(0, 1, 4), MakeEntry(1, 1, 6)}}));

    Matrix empty(1, 1);
    for (std::size_t const size : {1, 3}) { // without an assembly, again after a change
        EXPECT_EQ(listOf(empty.Rows().rowStart, size + 1), std::vector<unsigned>(size + 1));
        EXPECT_EQ(empty.Rows().entries, 0);
        empty.AddData(2, 2, 1.0);
        EXPECT_THROW(empty.Rows(), KVOSrvMtxNotAssembled);
        empty.EndAssembly();
        empty.BeginAssembly();
    }
}

// The arrays stay the caller's then, who releases them; also where memory runs out.
TEST(KVOSrvSparseMatrix, RefusesArraysThatAreNoRows)
{
    std::string const starts = "the row starts do not ascend from 0 to at most 2^31 - 1", outside = "a column lies outside the matrix",
                      order = "the columns of a row do not ascend strictly", size = "a size is negative",
                      triangle = "half storage has entries on the diagonal or on both sides of it";
    struct {
        std::string reason;
        int rows, columns;
        std::vector<unsigned> rowStart;
        std::vector<int> columnIndices;
        Vector values = {1, 1}, diagonal = {};
    } const kCases[] = {{size, -1, 2, {0}, {}},
                        {size, 1, -1, {0, 0}, {}},
                        {"an array is null", 1, 1, {0, 1}, {0}, {}},
                        {starts, 2, 2, {1, 1, 2}, {0, 1}},
                        {starts, 2, 2, {0, 2, 1}, {0, 1}},
                        {starts, 1, 1, {0, 1U << 31}, {0}},
                        {outside, 1, 2, {0, 2}, {0, 2}},
                        {outside, 1, 2, {0, 2}, {-1, 0}},
                        {order, 2, 3, {0, 1, 3}, {2, 1, 1}},
                        {order, 2, 3, {0, 1, 3}, {0, 2, 1}},
                        {"a matrix of half storage is not square", 1, 2, {0, 1}, {1}, {1}, {1}},
                        {triangle, 2, 2, {0, 1, 1}, {0}, {1}, {1, 1}},
                        {triangle, 2, 2, {0, 1, 2}, {1, 0}, {1, 1}, {1, 1}}};
    for (auto const& c : kCases)
        ExpectThrows<KVOSrvMtxRefusedInput>(Refusal("KVOSrvSparseMatrix", c.reason),
                                            [&] { TakenOver(c.rows, c.columns, c.rowStart, c.columnIndices, c.values, c.diagonal); });
    auto const takeOver = [] { EXPECT_EQ(TakenOver(1, 1, {0, 1}, {0}, {7})->NumberOfNonzeros(), 1); };
    EXPECT_GT(FailEach(Allocations(), takeOver, [](bool) {}), 3);
}

// Everything that a matrix refuses, by what it is; then it is as it was.
TEST(KVOSrvSparseMatrix, RefusesAndStaysAsItWas)
{
    static constexpr int kPerm[] = {1, 0, 2, 3}, kTwice[] = {0, 1, 1, 3}, kAbove[] = {0, 1, 2, 4}, kBelow[] = {0, -1, 2, 3};
    int const *perm = kPerm, *columns = kPerm;
    int columnCount = 1, count = 0;
    double x[4] = {1, 1, 1, 1}, y[4] = {-1, -1, -1, -1};
    TemporaryFolder const folder;
    std::string const path = folder / "file";
    Matrix const other(4, 4);
    Matrix result(4, 4);
    std::pair<std::string, std::function<void(Matrix&)>> const calls[] = {
        {"Multiply", [&](Matrix& m) { m.Multiply(x, 1, y, false); }},
        {"Multiply", [&](Matrix& m) { m.Multiply(x, 1, y, true); }},
        {"Scale", [](Matrix& m) { m.Scale(2); }},
        {"Subtract", [&](Matrix& m) { result.Subtract(m, other); }},
        {"Subtract", [&](Matrix& m) { result.Subtract(other, m); }},
        {"Transpose", [](Matrix& m) { m.Transposed(); }},
        {"Permute", [&](Matrix& m) { m.Permuted(perm); }},
        {"PermuteInPlace", [&](Matrix& m) { m.PermuteInPlace(perm); }},
        {"PermuteRows", [&](Matrix& m) { m.PermuteRows(perm); }},
        {"FindNontrivialRows", [&](Matrix& m) { m.NontrivialRows(count); }},
        {"FindNontrivialColumns", [&](Matrix& m) { m.NontrivialColumns(count); }},
        {"EliminateTrivialColumns", [&](Matrix& m) { m.EliminateTrivialColumns(count); }},
        {"SetColumnsToZero", [&](Matrix& m) { m.SetColumnsToZero(columns, columnCount); }},
        {"Symmetrized", [](Matrix& m) { m.InHalfStorage(); }},
        {"Full", [](Matrix& m) { m.InFullStorage(); }},
        {"GetEntries", [&](Matrix& m) { m.GetEntries(count); }},
        {"Export", [&](Matrix& m) { m.Export(path.c_str(), 3); }},
        {"Export", [&](Matrix& m) { m.Export(path.c_str(), 6); }}};
    // Of the calls those whose names begin so, with a report in which % is the name. It tells the class of the exception, too.
    auto const expectRefusals = [&](Matrix& matrix, std::string const& name, std::string const& report) {
        for (auto const& call : calls) {
            std::string text = report;
            for (std::size_t at; (at = text.find('%')) != std::string::npos;)
                text.replace(at, 1, call.first);
            if (call.first.starts_with(name))
                ExpectThrows<KVOBasException>(text, [&] { call.second(matrix); });
        }
    };

    // Without EndAssembly() the entries would be missing without a word: products of zeros, empty files.
    for (bool const again : {false, true}) {
        Matrix matrix(4, 4);
        if (again)
            matrix.EndAssembly();
        matrix.BeginAssembly();
        matrix.AddData(2, 1, 5.0);
        expectRefusals(matrix, "", Refusal("%", "the added entries are not assembled, call EndAssembly first"));
        matrix.EndAssembly();
        EXPECT_EQ(ContentOf(matrix), (Content{4, 4, 1, {MakeEntry(2, 1, 5.0)}}));
        EXPECT_EQ(ContentOf(result), (Content{4, 4, 0, {}}));
        EXPECT_EQ(y[0], -1);
        EXPECT_FALSE(std::filesystem::exists(path));

        matrix.AddData(0, 0, 6.0); // waits, and nothing is refused
        matrix.Scale(2);
        EXPECT_EQ(ContentOf(matrix), (Content{4, 4, 1, {MakeEntry(2, 1, 10.0)}}));
    }

    auto const full = RandomOracle({4, 4, 9}, 12).Matrix(), wide = RandomOracle({4, 5, 9}, 12).Matrix(),
               half = HalfStored(Half::Random(4, 3, 1));
    Content const before[] = {ContentOf(*full), ContentOf(*wide), ContentOf(*half)};
    for (int const* const bad : {kTwice, kAbove, kBelow}) {
        perm = bad;
        expectRefusals(*full, "Permute", "KVOSrvMatrix::PermuteRowsInPlace - Illegal perm Vector.");
    }
    for (unsigned const index : {unsigned{INT_MAX}, UINT_MAX})
        for (bool const isRow : {false, true})
            ExpectThrows<KVOSrvMtxRefusedInput>(Refusal("AddData", "an index exceeds 2^31 - 2"),
                                                [&] { full->AddData(isRow ? index : 0, isRow ? 0 : index, 1.0); });
    for (columnCount = 4; int const* const bad : {kAbove, kBelow}) {
        columns = bad;
        expectRefusals(*full, "SetColumns", Refusal("%", "a column lies outside the matrix"));
    }
    columnCount = -1;
    expectRefusals(*full, "SetColumns", Refusal("%", "the number of columns is negative"));
    for (auto const& unsymmetric : {full.get(), wide.get()})
        expectRefusals(*unsymmetric, "Symmetrized", Refusal("%", "the matrix is not symmetric"));
    expectRefusals(*wide, "PermuteI", Refusal("%", "the matrix is not square"));
    EXPECT_THROW(wide->Permuted(kPerm), KVOSrvMtxIllegalInput);
    for (bool const dropped : {false, true}) { // BeginAssembly() drops the entries, not the kind of storage
        for (std::string const operation : {"EliminateTrivialColumns", "PermuteRows"})
            expectRefusals(*half, operation, "KVOSrvSparseMatrix::% symmetric:True not supported!");
        expectRefusals(*half, "SetC", "KVOSrvSparseMatrix::SetcolumnsToZero symmetric:True not supported!");
        EXPECT_EQ(ContentOf(*half), (dropped ? Content{4, 4, 3, {}} : before[2]));
        half->BeginAssembly();
    }
    EXPECT_EQ(ContentOf(*full), before[0]);
    EXPECT_EQ(ContentOf(*wide), before[1]);
}

TEST(KVOSrvSparseMatrix, KeepsPendingEntriesWhenMemoryRunsOut)
{
    for (SparseShape const& shape : {SparseShape{30, 20, 200}, {3000, 3000, 40000}, {10, 1000000, 400}}) {
        Matrix matrix(shape.rows, shape.columns);
        AddAll(matrix, RandomEntries(shape, 4));
        auto const assemble = [&] { matrix.EndAssembly(); };
        auto const scale = [&] { matrix.Scale(1); };
        int const failures = FailEach(Allocations(), assemble, [&](bool threw) {
            EXPECT_EQ(ReportOf<KVOSrvMtxNotAssembled>(scale) == "nothing was thrown", !threw);
        });
        EXPECT_GT(failures, 0);
        EXPECT_TRUE(ContentOf(matrix) == RandomOracle(shape, 4).ExpectedContent());
        ExpectUnchangedWithoutMemory(matrix, [&] { matrix.AddData(static_cast<unsigned>(shape.rows), 0, 1.0); });
        EXPECT_EQ(matrix.NumberOfRows(), shape.rows + 1);
    }
}

TEST(KVOSrvSparseMatrix, IsNullLooksAtValues)
{
    for (double const value : {0.0, -0.0, kNotANumber, 5e-324, -kInfinity}) {
        EXPECT_EQ((SparseOracle{3, 3, {{{0, 1}, 0.0}, {{2, 2}, value}}}.Matrix()->IsNull()), value == 0.0) << value;
        for (bool const onDiagonal : {false, true}) {
            Half half(2);
            half.rows[0] = {{1, onDiagonal ? 0.0 : value}};
            half.diagonal[1] = onDiagonal ? value : 0.0;
            EXPECT_EQ(HalfStored(half)->IsNull(), value == 0.0) << value;
        }
    }
}

TEST(KVOSrvSparseMatrix, IsSymmetricComparesMirroredValues)
{
    using Pairs = std::vector<std::pair<double, double>>; // above and below the diagonal
    Pairs const same{{2, 2}, {0, 1e-17}, {0, -0.0}, {kNotANumber, 1}, {1, kNotANumber}, {kInfinity, kInfinity}, {5e-324, 5e-324}};
    Pairs const others{{1, 1 + 1e-15}, {1 + 1e-15, 1}, {1, std::nextafter(1, 0)}, {1, -1}, {0, 1e-15}, {1e-17, 0}, {1e300, -1e300}};
    for (bool const symmetric : {true, false})
        for (auto const& [upper, lower] : symmetric ? same : others) {
            auto const matrix = SparseOracle{2, 2, {{{0, 1}, upper}, {{1, 0}, lower}}}.Matrix();
            for (int time : {1, 2})
                EXPECT_EQ(matrix->IsSymmetric(), symmetric) << upper << " above, " << lower << " below, asked " << time;
        }
}

TEST(KVOSrvSparseMatrix, FindsTheOneFlawOfALargeMatrix)
{
    SparseOracle const symmetric = Symmetric(300, 4000, 5);
    EXPECT_TRUE(symmetric.Matrix()->IsSymmetric());
    std::vector<std::pair<unsigned, unsigned>> places; // off the diagonal
    for (auto const& [place, value] : symmetric.places)
        if (place.first != place.second)
            places.push_back(place);
    std::ranges::shuffle(places, std::mt19937(6));
    for (std::size_t flaw = 0; flaw < 20; ++flaw) {
        SparseOracle changed = symmetric, lopsided = symmetric;
        changed.places.at(places[flaw]) += 1;
        lopsided.places.erase(places[flaw]); // as a rule as many entries on either side, but some without their like
        lopsided.places.erase(places[flaw + 1]);
        for (SparseOracle const& flawed : {changed, lopsided}) {
            EXPECT_FALSE(flawed.Matrix()->IsSymmetric()) << flaw;
            EXPECT_THROW(flawed.Matrix()->InHalfStorage(), KVOSrvMtxIllegalInput) << flaw;
        }
    }
    EXPECT_FALSE((SparseOracle{3, 3, {{{0, 2}, 1.0}, {{1, 0}, 1.0}}}.Matrix()->IsSymmetric())); // equal, but elsewhere
    SparseOracle wide{2, 5, {{{0, 0}, 1.0}, {{0, 1}, 2.0}, {{1, 0}, 2.0}}};
    EXPECT_TRUE(wide.Matrix()->IsSymmetric());
    wide.places[{1, 4}] = 1;
    EXPECT_FALSE(wide.Matrix()->IsSymmetric());
}

// By the upper triangle and back, by the lower one, which a transpose gives, and as a copy in either storage.
TEST(KVOSrvSparseMatrix, GoesFromFullToHalfStorageAndBack)
{
    for (int const n : {0, 1, 2, 60}) {
        SparseOracle oracle = Symmetric(n, 9 * n, 17);
        auto const full = oracle.Matrix(), half = full->InHalfStorage(), copy = half->InHalfStorage(), lower = copy->Transposed();
        EXPECT_EQ(ContentOf(*full->InFullStorage()), ContentOf(*full));
        for (unsigned i = 0; i < static_cast<unsigned>(n); ++i)
            oracle.places.try_emplace({i, i}, 0.0);
        EXPECT_TRUE(half->IsSymmetric());
        EXPECT_EQ(2 * half->NumberOfNonzeros() + n, static_cast<int>(oracle.places.size()));
        for (Matrix const* const matrix : {half.get(), copy.get(), lower.get()})
            EXPECT_EQ(ContentOf(*matrix->InFullStorage()), oracle.ExpectedContent());
    }
    Half half(3); // in the order of a file
    half.diagonal = {1, 2, 3};
    half.rows[0] = {{2, 8.0}, {1, 7.0}, {2, 0.5}};
    SparseOracle const expected{3, 3, {{{0, 0}, 1}, {{0, 1}, 7}, {{0, 2}, 8.5}, {{1, 0}, 7}, {{1, 1}, 2}, {{2, 0}, 8.5}, {{2, 2}, 3}}};
    EXPECT_EQ(ContentOf(*HalfStored(half)->InFullStorage()), expected.ExpectedContent());
    EXPECT_EQ(ContentOf(*HalfStored(half)->InHalfStorage()), ContentOf(*HalfStored(half)));
}

TEST(KVOSrvSparseMatrix, TheVerdictOnSymmetryEndsWhenEntriesComeOrMove)
{
    static constexpr int kBoth[] = {0, 1}, kSwap[] = {1, 0};
    void (*const changes[])(Matrix&) = {[](Matrix& m) { m.PermuteRows(kSwap); }, [](Matrix& m) { m.Subtract(m, m); },
                                        [](Matrix& m) {
                                            m.AddData(0, 1, 1.0);
                                            m.AddData(1, 0, 1.0);
                                            m.BeginAssembly();
                                            m.EndAssembly();
                                        }};
    for (auto const& change : changes) {
        auto const matrix = SparseOracle{2, 2, {{{0, 1}, 1.0}, {{1, 0}, 2.0}}}.Matrix();
        EXPECT_FALSE(matrix->IsSymmetric());
        matrix->SetColumnsToZero(kBoth, 1); // as for the structure
        EXPECT_FALSE(matrix->IsSymmetric());
        change(*matrix);
        EXPECT_TRUE(matrix->IsSymmetric()) << "change " << &change - changes;
    }
    // Asked too early it answers for what is stored, nothing so far, and goes on with that answer: programs rely on that.
    Matrix matrix(2, 2);
    EXPECT_TRUE(matrix.IsSymmetric());
    matrix.AddData(0, 1, 1.0);
    EXPECT_FALSE(matrix.IsSymmetric()); // entries ended the verdict "symmetric" with "not symmetric"
    matrix.AddData(0, 0, 1.0);
    EXPECT_TRUE(matrix.IsSymmetric());
    matrix.EndAssembly();
    EXPECT_TRUE(matrix.IsSymmetric());
    EXPECT_THROW(matrix.InHalfStorage(), KVOSrvMtxIllegalInput); // which looks at the entries
}
