#include "KVOSrvMtxExceptions.h"
#include "SparseOracle.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <gmock/gmock.h>
#include <limits>

namespace
{

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

void ExpectRefusal(std::string const& operation, std::string const& reason, auto const& call)
{
    ExpectThrows<KVOSrvMtxRefusedInput>("KVOSrvSparseMatrix::" + operation + " - Illegal input: " + reason + ".", call);
}

void AddAll(KVOSrvSparseMatrix& matrix, std::vector<KVOSrvSparseMatrixEntry> const& entries)
{
    for (auto const& [row, column, value] : entries)
        matrix.AddData(row, column, value);
}

// One bucket of rows and many, full and empty ones, a crowded row, columns on both sides of each level of the sorter's bits, and so many
// columns that it is not used.
constexpr int kShapes[][3] = {{0, 0, 0},
                              {0, 3, 0},
                              {1, 1, 50},
                              {7, 5, 40},
                              {65, 64, 2000},
                              {63, 4097, 9000},
                              {5000, 70, 100000},
                              {20011, 20011, 150000},
                              {1, 3000, 100000},
                              {3, 270000, 290000},
                              {1048576, 10, 50},
                              {3, 2000000, 70000},
                              {40000, INT_MAX, 100000}};

// Bit by bit: another order of the additions gives other sums, and a sum that begins with 0 loses the sign of -0.0.
TEST(KVOSrvSparseMatrix, AssemblesLikeAMap)
{
    for (auto const& [rows, columns, count] : kShapes) {
        SCOPED_TRACE(testing::Message() << rows << " x " << columns << ", " << count << " entries");
        KVOSrvSparseMatrix matrix(rows, columns);
        AddAll(matrix, RandomEntries({rows, columns, count}, 1));

        matrix.EndAssembly();

        EXPECT_TRUE(ContentOf(matrix) == RandomOracle({rows, columns, count}, 1).ExpectedContent());
    }
}

TEST(KVOSrvSparseMatrix, GrowsWithItsEntriesAndStartsAnewWithEachAssembly)
{
    KVOSrvSparseMatrix matrix(3, 3);
    matrix.AddData(5, 2, 1.0);
    EXPECT_EQ(matrix.NumberOfRows(), 6);
    EXPECT_EQ(matrix.NumberOfColumns(), 3);
    matrix.EndAssembly();
    matrix.AddData(0, 8, 2.0); // not part of the assembled matrix, which has more columns and rows now
    matrix.AddData(9, 0, 3.0);
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{10, 9, 1, {MakeEntry(5, 2, 1.0)}}));
    int count = -1;
    std::unique_ptr<unsigned[]> const nontrivial(matrix.FindNontrivialRows(count));
    EXPECT_EQ(count, 1);

    matrix.BeginAssembly(); // keeps what was added
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{10, 9, 2, {MakeEntry(0, 8, 2.0), MakeEntry(9, 0, 3.0)}}));
    matrix.BeginAssembly();
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{10, 9, 0, {}}));
}

TEST(KVOSrvSparseMatrix, RefusesSizesThatNoIntHolds)
{
    ExpectRefusal("KVOSrvSparseMatrix", "a size is negative", [] { KVOSrvSparseMatrix(-1, 3); });
    ExpectRefusal("KVOSrvSparseMatrix", "a size is negative", [] { KVOSrvSparseMatrix(3, -1); });
    KVOSrvSparseMatrix matrix(2, 2);
    for (double const value : {1.0, 2.0}) { // before the first assembly, then added to an assembled matrix
        matrix.AddData(0, 1, value);
        for (unsigned const index : {unsigned{INT_MAX}, unsigned{INT_MAX} + 1, UINT_MAX}) {
            ExpectRefusal("AddData", "an index exceeds 2^31 - 2", [&] { matrix.AddData(index, 0, 1.0); });
            ExpectRefusal("AddData", "an index exceeds 2^31 - 2", [&] { matrix.AddData(0, index, 1.0); });
        }
        matrix.BeginAssembly();
        matrix.EndAssembly();
        EXPECT_EQ(ContentOf(matrix), (Content{2, 2, 1, {MakeEntry(0, 1, value)}})); // nothing of the refused entries is kept
    }
    matrix.BeginAssembly();
    matrix.AddData(0, INT_MAX - 1, 1.0);
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{2, INT_MAX, 1, {MakeEntry(0, INT_MAX - 1, 1.0)}}));
}

// Without EndAssembly() the entries would be missing without a word: products of zeros, empty files.
TEST(KVOSrvSparseMatrix, RefusesWhatWouldNotSeeItsEntries)
{
    using Matrix = KVOSrvSparseMatrix;
    static constexpr int kPerm[] = {1, 0, 2};
    int count = 0;
    double x[3] = {1, 1, 1}, y[3] = {-1, -1, -1};
    TemporaryFolder const folder;
    Matrix const other(3, 3);
    Matrix result(3, 3);
    std::pair<std::string, std::function<void(Matrix&)>> const calls[] = {
        {"Multiply", [&](Matrix& m) { m.Multiply(x, 1, y, false); }},
        {"Multiply", [&](Matrix& m) { m.Multiply(x, 1, y, true); }},
        {"Scale", [](Matrix& m) { m.Scale(2); }},
        {"Subtract", [&](Matrix& m) { result.Subtract(m, other); }},
        {"Subtract", [&](Matrix& m) { result.Subtract(other, m); }},
        {"Transpose", [](Matrix& m) { m.Transpose(); }},
        {"Permute", [](Matrix& m) { m.Permute(kPerm); }},
        {"PermuteInPlace", [](Matrix& m) { m.PermuteInPlace(kPerm); }},
        {"PermuteRows", [](Matrix& m) { m.PermuteRows(kPerm); }},
        {"FindNontrivialRows", [&](Matrix& m) { m.FindNontrivialRows(count); }},
        {"FindNontrivialColumns", [&](Matrix& m) { m.FindNontrivialColumns(count); }},
        {"EliminateTrivialColumns", [&](Matrix& m) { m.EliminateTrivialColumns(count); }},
        {"SetColumnsToZero", [](Matrix& m) { m.SetColumnsToZero(kPerm, 1); }},
        {"GetEntries", [&](Matrix& m) { m.GetEntries(count); }},
        {"Export", [&](Matrix& m) { m.Export((folder / "file").c_str(), 3); }},
        {"Export", [&](Matrix& m) { m.Export((folder / "file").c_str(), 6); }}};
    for (bool const again : {false, true}) {
        Matrix matrix(3, 3);
        if (again)
            matrix.EndAssembly();
        matrix.BeginAssembly();
        matrix.AddData(2, 1, 5.0);
        for (auto const& call : calls)
            ExpectThrows<KVOSrvMtxNotAssembled>("KVOSrvSparseMatrix::" + call.first +
                                                    " - Illegal input: the added entries are not assembled, call EndAssembly first.",
                                                [&] { call.second(matrix); });
        matrix.EndAssembly();
        EXPECT_EQ(ContentOf(matrix), (Content{3, 3, 1, {MakeEntry(2, 1, 5.0)}}));
        EXPECT_EQ(ContentOf(result), (Content{3, 3, 0, {}}));
        EXPECT_EQ(y[0], -1);
        EXPECT_FALSE(std::filesystem::exists(folder / "file"));

        matrix.AddData(0, 0, 6.0); // waits, and nothing is refused
        matrix.Scale(2);
        EXPECT_EQ(ContentOf(matrix), (Content{3, 3, 1, {MakeEntry(2, 1, 10.0)}}));
    }
}

TEST(KVOSrvSparseMatrix, KeepsPendingEntriesWhenMemoryRunsOut)
{
    for (SparseShape const& shape : {SparseShape{30, 20, 200}, SparseShape{3000, 3000, 40000}, SparseShape{10, 1000000, 400}}) {
        SparseOracle const expected = RandomOracle(shape, 4);
        KVOSrvSparseMatrix matrix(shape.rows, shape.columns);
        AddAll(matrix, RandomEntries(shape, 4));
        EXPECT_GT(FailEach(
                      Allocations(), [&] { matrix.EndAssembly(); },
                      [&](bool threw) {
                          if (threw) {
                              EXPECT_THROW(matrix.Scale(2), KVOSrvMtxNotAssembled);
                          }
                      }),
                  0);
        EXPECT_TRUE(ContentOf(matrix) == expected.ExpectedContent());

        ExpectUnchangedWithoutMemory(matrix, [&] { matrix.AddData(static_cast<unsigned>(shape.rows), 0, 1.0); });
        EXPECT_EQ(matrix.NumberOfRows(), shape.rows + 1);
    }
}

TEST(KVOSrvSparseMatrix, IsNullLooksAtValues)
{
    EXPECT_TRUE(KVOSrvSparseMatrix(3, 3).IsNull());
    for (double const value : {0.0, -0.0, kNaN, 5e-324, -kInfinity}) {
        SCOPED_TRACE(value);
        EXPECT_EQ((SparseOracle{3, 3, {{{0, 1}, 0.0}, {{2, 2}, value}}}.Matrix()->IsNull()), value == 0.0);
        Half half(2);
        half.rows[0] = {{1, value}};
        EXPECT_EQ(HalfStored(half)->IsNull(), value == 0.0);
        half.rows[0] = {{1, 0.0}};
        half.diagonal[1] = value;
        EXPECT_EQ(HalfStored(half)->IsNull(), value == 0.0);
    }
}

TEST(KVOSrvSparseMatrix, IsSymmetricComparesMirroredValues)
{
    struct {
        bool symmetric;
        std::vector<std::pair<double, double>> values; // above and below the diagonal
    } const kCases[] = {
        {true, {{2, 2}, {0, 1e-17}, {0, -0.0}, {kNaN, 1}, {1, kNaN}, {kInfinity, kInfinity}, {5e-324, 5e-324}}},
        {false, {{1, 1 + 1e-15}, {1 + 1e-15, 1}, {1, std::nextafter(1, 0)}, {1, -1}, {0, 1e-15}, {1e-17, 0}, {1e300, -1e300}}}};
    for (auto const& c : kCases)
        for (auto const& [upper, lower] : c.values) {
            auto const matrix = SparseOracle{2, 2, {{{0, 1}, upper}, {{1, 0}, lower}}}.Matrix();
            for (int time : {1, 2})
                EXPECT_EQ(matrix->IsSymmetric(), c.symmetric) << upper << " above, " << lower << " below, asked " << time;
        }
}

TEST(KVOSrvSparseMatrix, IsSymmetricFindsTheOneFlawOfALargeMatrix)
{
    SparseOracle symmetric{300, 300, {}};
    for (auto const& [row, column, value] : RandomEntries({300, 300, 4000}, 5))
        symmetric.places[{row, column}] = symmetric.places[{column, row}] = value;
    EXPECT_TRUE(symmetric.Matrix()->IsSymmetric());
    std::vector<std::pair<unsigned, unsigned>> places; // off the diagonal
    for (auto const& [place, value] : symmetric.places)
        if (place.first != place.second)
            places.push_back(place);
    std::ranges::shuffle(places, std::mt19937(6));
    for (std::size_t flaw = 0; flaw < 20; ++flaw) {
        SparseOracle changed = symmetric, lopsided = symmetric;
        changed.places.at(places[flaw]) += 1;
        EXPECT_FALSE(changed.Matrix()->IsSymmetric()) << flaw;
        lopsided.places.erase(places[flaw]); // as a rule as many entries on either side, but some without their like
        lopsided.places.erase(places[flaw + 1]);
        EXPECT_FALSE(lopsided.Matrix()->IsSymmetric()) << flaw;
    }
    SparseOracle wide{2, 5, {{{0, 0}, 1.0}, {{0, 1}, 2.0}, {{1, 0}, 2.0}}};
    EXPECT_TRUE(wide.Matrix()->IsSymmetric());
    wide.places[{1, 4}] = 1;
    EXPECT_FALSE(wide.Matrix()->IsSymmetric());
}

TEST(KVOSrvSparseMatrix, TheVerdictOnSymmetryEndsWhenEntriesComeOrMove)
{
    using Matrix = KVOSrvSparseMatrix;
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
}

// It answers for what is stored, nothing so far, and goes on with that answer: programs rely on a verdict that is given once.
TEST(KVOSrvSparseMatrix, TheVerdictOnSymmetryIsKeptWhenAskedTooEarly)
{
    KVOSrvSparseMatrix matrix(2, 2);
    EXPECT_TRUE(matrix.IsSymmetric());
    matrix.AddData(0, 1, 1.0);
    EXPECT_FALSE(matrix.IsSymmetric()); // entries ended the verdict "symmetric" with "not symmetric"
    matrix.AddData(0, 0, 1.0);
    EXPECT_TRUE(matrix.IsSymmetric());
    matrix.EndAssembly();
    EXPECT_TRUE(matrix.IsSymmetric());
}

TEST(KVOSrvSparseMatrix, HalfStorageGivesWayToAnAssembly)
{
    Half half(2);
    half.diagonal = {4, 5};
    half.rows[0] = {{1, 7.0}};
    for (bool const filled : {true, false}) {
        auto const matrix = HalfStored(half);
        EXPECT_TRUE(matrix->IsSymmetric());
        EXPECT_EQ(ContentOf(*matrix), (Content{2, 2, 1, {MakeEntry(0, 0, 4), MakeEntry(1, 0, 7), MakeEntry(0, 1, 7), MakeEntry(1, 1, 5)}}));
        matrix->BeginAssembly();
        EXPECT_THAT(ContentOf(*matrix).entries, testing::IsEmpty());
        EXPECT_TRUE(matrix->IsNull());

        SparseOracle expected{2, 2, {}};
        if (filled)
            expected.places = {{{0, 1}, 3.0}, {{1, 0}, 3.0}};
        for (auto const& [place, value] : expected.places)
            matrix->AddData(place.first, place.second, value);
        matrix->EndAssembly();
        EXPECT_TRUE(matrix->IsSymmetric());
        EXPECT_EQ(matrix->IsNull(), !filled);
        EXPECT_EQ(ContentOf(*matrix), expected.ExpectedContent());
    }
}

} // namespace
