#include "KVOSrvMtxExceptions.h"
#include "SparseOracle.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <gmock/gmock.h>
#include <limits>

namespace
{

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();

void ExpectIllegalInput(char const* operation, auto const& call)
{
    try {
        call();
        ADD_FAILURE() << operation << " is accepted";
    } catch (KVOSrvMtxIllegalInput const& error) {
        EXPECT_EQ(error.AsString(), "KVOSrvMatrix::" + std::string(operation) + " - Illegal input.");
    }
}

void AddAll(KVOSrvSparseMatrix& matrix, std::vector<KVOSrvSparseMatrixEntry> const& entries)
{
    for (auto const& [row, column, value] : entries)
        matrix.AddData(row, column, value);
}

// One bucket of rows and many, full and empty ones, a crowded row, columns on both sides of each level of the sorter's bits, and so many
// columns that it is not used.
constexpr SparseShape kShapes[] = {{0, 0, 0},
                                   {3, 0, 0},
                                   {0, 3, 0},
                                   {1, 1, 1},
                                   {1, 1, 50},
                                   {7, 5, 40},
                                   {100, 8, 850},
                                   {65, 64, 2000},
                                   {63, 4097, 9000},
                                   {5000, 70, 100000},
                                   {20011, 20011, 150000},
                                   {1, 3000, 100000},
                                   {3, 270000, 290000},
                                   {1 << 20, 10, 50},
                                   {3, 2000000, 70000},
                                   {40000, INT_MAX, 100000}};

TEST(KVOSrvSparseMatrix, AssemblesLikeAMap)
{
    for (SparseShape const& shape : kShapes) {
        SCOPED_TRACE(testing::Message() << shape.rows << " x " << shape.columns << ", " << shape.entries << " entries");
        auto const entries = RandomEntries(shape, 1);
        KVOSrvSparseMatrix matrix(shape.rows, shape.columns);
        AddAll(matrix, entries);

        matrix.EndAssembly();

        SparseOracle expected{shape.rows, shape.columns, {}};
        for (auto const& [row, column, value] : entries)
            expected.Add(row, column, value);
        Content const content = ContentOf(matrix);
        EXPECT_EQ(content.nonzeros, static_cast<int>(expected.places.size()));
        EXPECT_EQ(content.rows, shape.rows);
        EXPECT_EQ(content.columns, shape.columns);
        EXPECT_TRUE(content.entries == expected.Entries());
    }
}

TEST(KVOSrvSparseMatrix, SumsDuplicatesInTheOrderOfTheirAddition)
{
    // Another order gives another sum; the second column is the second bit of a negative zero, which a sum with 0 would lose.
    for (int const others : {0, 30, 40000}) {
        KVOSrvSparseMatrix matrix(2, 50000);
        for (int k = 0; k < others; ++k)
            matrix.AddData(1, static_cast<unsigned>(100 + k), 1.0);
        for (double const value : {1e100, 1.0, -1e100, 0.1, 0.2, 0.3})
            matrix.AddData(1, 7, value);
        matrix.AddData(1, 9, -0.0);
        matrix.AddData(1, 9, -0.0);
        matrix.AddData(1, 8, kNaN);
        matrix.EndAssembly();

        Content const content = ContentOf(matrix);
        EXPECT_EQ(content.entries.at(0), MakeEntry(1, 7, 0.1 + 0.2 + 0.3));
        EXPECT_EQ(content.entries.at(1), MakeEntry(1, 8, kNaN));
        EXPECT_EQ(content.entries.at(2), MakeEntry(1, 9, -0.0));
    }
}

TEST(KVOSrvSparseMatrix, GrowsWithItsEntriesAndStartsAnewWithEachAssembly)
{
    KVOSrvSparseMatrix matrix(3, 3);
    matrix.AddData(5, 2, 1.0);
    EXPECT_EQ(matrix.NumberOfRows(), 6);
    EXPECT_EQ(matrix.NumberOfColumns(), 3);
    EXPECT_THAT(ContentOf(matrix).entries, testing::IsEmpty());
    matrix.EndAssembly();
    matrix.AddData(0, 8, 2.0); // not part of the assembled matrix, which has more columns and rows now
    matrix.AddData(9, 0, 3.0);
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{10, 9, 1, {MakeEntry(5, 2, 1.0)}}));
    int count = -1;
    std::unique_ptr<unsigned[]> const nontrivial(matrix.FindNontrivialRows(count));
    EXPECT_EQ(count, 1);

    matrix.BeginAssembly(); // keeps what was added
    EXPECT_EQ(ContentOf(matrix), (Content{10, 9, 1, {}}));
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{10, 9, 2, {MakeEntry(0, 8, 2.0), MakeEntry(9, 0, 3.0)}}));
    matrix.BeginAssembly();
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{10, 9, 0, {}}));
}

TEST(KVOSrvSparseMatrix, RefusesSizesThatNoIntHolds)
{
    ExpectIllegalInput("KVOSrvSparseMatrix", [] { KVOSrvSparseMatrix(-1, 3); });
    ExpectIllegalInput("KVOSrvSparseMatrix", [] { KVOSrvSparseMatrix(3, -1); });
    for (unsigned const index : {unsigned{INT_MAX}, unsigned{INT_MAX} + 1, UINT_MAX})
        for (bool const isRow : {false, true}) {
            KVOSrvSparseMatrix matrix(2, 2);
            matrix.AddData(0, 1, 1.0);
            matrix.AddData(isRow ? index : 0, isRow ? 0 : index, 2.0);
            ExpectIllegalInput("EndAssembly", [&] { matrix.EndAssembly(); });
            ExpectIllegalInput("EndAssembly", [&] { matrix.EndAssembly(); }); // nothing was lost
            EXPECT_THAT(ContentOf(matrix).entries, testing::IsEmpty());
            EXPECT_TRUE(matrix.IsNull());
            EXPECT_TRUE(matrix.IsSymmetric());
        }
    KVOSrvSparseMatrix matrix(2, 2);
    matrix.AddData(0, 1, 1.0);
    matrix.EndAssembly();
    Content const before = ContentOf(matrix);
    ExpectIllegalInput("AddData", [&] { matrix.AddData(INT_MAX, 0, 1.0); });
    ExpectIllegalInput("AddData", [&] { matrix.AddData(0, UINT_MAX, 1.0); });
    EXPECT_EQ(ContentOf(matrix), before);
}

TEST(KVOSrvSparseMatrix, KeepsPendingEntriesWhenMemoryRunsOut)
{
    for (SparseShape const& shape : {SparseShape{30, 20, 200}, SparseShape{3000, 3000, 40000}, SparseShape{10, 1000000, 400}}) {
        SparseOracle const expected = RandomOracle(shape, 4);
        KVOSrvSparseMatrix matrix(shape.rows, shape.columns);
        AddAll(matrix, RandomEntries(shape, 4));
        ExpectUnchangedWithoutMemory(matrix, [&] { matrix.EndAssembly(); });
        EXPECT_TRUE(ContentOf(matrix).entries == expected.Entries());

        ExpectUnchangedWithoutMemory(matrix, [&] { matrix.AddData(static_cast<unsigned>(shape.rows), 0, 1.0); });
        EXPECT_EQ(matrix.NumberOfRows(), shape.rows + 1);
    }
}

TEST(KVOSrvSparseMatrix, IsNullLooksAtValues)
{
    KVOSrvSparseMatrix matrix(3, 3);
    EXPECT_TRUE(matrix.IsNull());
    matrix.AddData(0, 1, 0.0);
    matrix.AddData(2, 1, -0.0);
    matrix.EndAssembly();
    EXPECT_TRUE(matrix.IsNull());
    for (double const value : {kNaN, 5e-324, -kInfinity}) {
        matrix.BeginAssembly();
        matrix.AddData(2, 2, value);
        matrix.EndAssembly();
        EXPECT_FALSE(matrix.IsNull());
    }
    Half half(2);
    half.rows[0] = {{1, 0.0}};
    EXPECT_TRUE(HalfStored(half)->IsNull());
    half.diagonal[1] = 1;
    EXPECT_FALSE(HalfStored(half)->IsNull());
    half.diagonal[1] = 0;
    half.rows[0][0].second = -1;
    EXPECT_FALSE(HalfStored(half)->IsNull());
}

TEST(KVOSrvSparseMatrix, IsSymmetricComparesMirroredValues)
{
    struct Case {
        double upper, lower;
        bool symmetric;
    };
    for (auto const& [upper, lower, symmetric] :
         {Case{2, 2, true}, Case{1, 1 + 1e-15, false}, Case{1 + 1e-15, 1, false}, Case{1, std::nextafter(1, 0), false}, Case{1, -1, false},
          Case{0, 1e-17, true}, Case{0, 1e-15, false}, Case{1e-17, 0, false}, Case{0, -0.0, true}, Case{kNaN, 1, true}, Case{1, kNaN, true},
          Case{kInfinity, kInfinity, true}, Case{5e-324, 5e-324, true}, Case{1e300, -1e300, false}}) {
        SCOPED_TRACE(testing::Message() << upper << " above, " << lower << " below");
        KVOSrvSparseMatrix matrix(2, 2);
        matrix.AddData(0, 1, upper);
        matrix.AddData(1, 0, lower);
        matrix.EndAssembly();
        EXPECT_EQ(matrix.IsSymmetric(), symmetric);
        EXPECT_EQ(matrix.IsSymmetric(), symmetric);
    }
}

TEST(KVOSrvSparseMatrix, IsSymmetricFindsTheOneFlawOfALargeMatrix)
{
    SparseOracle symmetric{300, 300, {}};
    for (auto const& [row, column, value] : RandomEntries({300, 300, 4000}, 5)) {
        symmetric.places[{row, column}] = value;
        symmetric.places[{column, row}] = value;
    }
    EXPECT_TRUE(symmetric.Matrix()->IsSymmetric());
    std::mt19937 random(6);
    auto const flawAt = [&] {
        auto place = symmetric.places.begin();
        do
            place = std::next(symmetric.places.begin(), static_cast<std::ptrdiff_t>(random() % symmetric.places.size()));
        while (place->first.first == place->first.second);
        return place->first;
    };
    for (int flaw = 0; flaw < 20; ++flaw) {
        SparseOracle oracle = symmetric;
        auto const [row, column] = flawAt();
        if (flaw % 2 == 0) {
            oracle.places.at({row, column}) += 1;
        } else { // as many entries on either side, but one of each without its like
            auto const [a, b] = flawAt();
            oracle.places.erase({std::min(row, column), std::max(row, column)});
            oracle.places.erase({std::max(a, b), std::min(a, b)});
            if (std::minmax(row, column) == std::minmax(a, b))
                continue;
        }
        EXPECT_FALSE(oracle.Matrix()->IsSymmetric()) << flaw;
    }
    EXPECT_FALSE(RandomOracle({20, 20, 100}, 1).Matrix()->IsSymmetric());
    SparseOracle wide{2, 5, {{{0, 0}, 1.0}, {{0, 1}, 2.0}, {{1, 0}, 2.0}}};
    EXPECT_TRUE(wide.Matrix()->IsSymmetric());
    wide.places[{1, 4}] = 1;
    EXPECT_FALSE(wide.Matrix()->IsSymmetric());
}

TEST(KVOSrvSparseMatrix, TheVerdictOnSymmetryEndsWithNewEntries)
{
    KVOSrvSparseMatrix matrix(2, 2);
    matrix.AddData(0, 1, 1.0);
    EXPECT_TRUE(matrix.IsSymmetric()); // without stored entries so far
    matrix.EndAssembly();
    EXPECT_FALSE(matrix.IsSymmetric());
    matrix.AddData(0, 1, 1.0);
    matrix.AddData(1, 0, 1.0);
    EXPECT_FALSE(matrix.IsSymmetric()); // still the old content
    matrix.BeginAssembly();
    matrix.EndAssembly();
    EXPECT_TRUE(matrix.IsSymmetric());
}

TEST(KVOSrvSparseMatrix, HalfStorageGivesWayToAnAssembly)
{
    Half half(2);
    half.diagonal = {4, 5};
    half.rows[0] = {{1, 7.0}};
    auto const matrix = HalfStored(half);
    EXPECT_TRUE(matrix->IsSymmetric());
    EXPECT_EQ(ContentOf(*matrix), (Content{2, 2, 1, {MakeEntry(0, 0, 4), MakeEntry(1, 0, 7), MakeEntry(0, 1, 7), MakeEntry(1, 1, 5)}}));

    matrix->BeginAssembly();
    EXPECT_THAT(ContentOf(*matrix).entries, testing::IsEmpty());
    EXPECT_TRUE(matrix->IsNull());
    matrix->AddData(1, 0, 3.0);
    matrix->AddData(0, 1, 3.0);
    matrix->EndAssembly();
    EXPECT_TRUE(matrix->IsSymmetric());
    EXPECT_EQ(ContentOf(*matrix), (Content{2, 2, 2, {MakeEntry(0, 1, 3), MakeEntry(1, 0, 3)}}));

    auto const emptied = HalfStored(half);
    emptied->BeginAssembly();
    emptied->EndAssembly();
    EXPECT_EQ(ContentOf(*emptied), (Content{2, 2, 0, {}}));
    EXPECT_TRUE(emptied->IsNull());
}

} // namespace
