#include "KVOSrvSparsePlaces.h"
#include "SparseOracle.h"

#include <functional>

using Matrix = KVOSrvSparseMatrix;
using Places = KVOSrvSparsePlaces;

static std::unique_ptr<Matrix> Assembled(SparseShape const& shape, std::vector<KVOSrvSparseMatrixEntry> const& entries)
{
    auto matrix = std::make_unique<Matrix>(shape.rows, shape.columns);
    for (auto const& [row, column, value] : entries)
        matrix->AddData(row, column, value);
    matrix->EndAssembly();
    return matrix;
}

// Bit by bit: of other values, in one list and in three, again and again. Sums that begin with 0 instead of -0.0 would lose a sign.
TEST(KVOSrvSparsePlaces, SumValuesAsAFirstAssemblyDoes)
{
    for (SparseShape const& shape : {SparseShape{0, 0, 0}, {1, 1, 9}, {63, 4097, 9000}, {300, 40, 30000}, {3, 2000000, 3000}}) {
        SCOPED_TRACE(testing::Message() << shape.rows << " x " << shape.columns << ", " << shape.entries << " entries");
        auto entries = RandomEntries(shape, 1);
        auto const matrix = Assembled(shape, entries), copy = matrix->InFullStorage();
        std::vector<int> rows, columns;
        for (auto const& entry : entries) {
            rows.push_back(static_cast<int>(entry.row));
            columns.push_back(static_cast<int>(entry.column));
        }
        std::int64_t const third = shape.entries / 3;
        Places const all(*matrix, rows.data(), columns.data(), shape.entries), first(*matrix, rows.data(), columns.data(), third),
            others(*matrix, rows.data() + third, columns.data() + third, shape.entries - third);
        std::mt19937 random(2);
        std::normal_distribution<> value;
        for (bool const inParts : {false, true, false}) {
            Vector values;
            for (auto& entry : entries)
                values.push_back(entry.value = random() % 5 != 0 ? value(random) : -0.0);
            matrix->ClearValues();
            for (Places const* const places : inParts ? std::vector{&first, &others} : std::vector{&all})
                matrix->AddValues(*places, values.data() + (places == &others ? third : 0));
            EXPECT_TRUE(ContentOf(*matrix) == ContentOf(*Assembled(shape, entries)));
        }
        EXPECT_TRUE(all.IsFor(*copy)); // of the same pattern
        copy->ClearValues();
        EXPECT_TRUE(copy->IsNull());
    }
}

// What was half storage, from a file, has rows in any order.
TEST(KVOSrvSparsePlaces, FindEntriesInRowsOfAnyOrder)
{
    Half half(4);
    half.rows[0] = {{3, 8.0}, {1, 7.0}, {2, 6.0}};
    auto const matrix = HalfStored(half);
    matrix->AddData(0, 0, 1.0); // makes full storage of the triangle
    unsigned const rows[] = {0, 0, 0}, columns[] = {1, 2, 3};
    double const values[] = {10, 20, 30};
    matrix->AddValues(Places(*matrix, rows, columns, 3), values);
    EXPECT_EQ(ContentOf(*matrix), (Content{4, 4, 3, {MakeEntry(0, 3, 38), MakeEntry(0, 1, 17), MakeEntry(0, 2, 26)}}));
    EXPECT_THROW(Places(*matrix, columns, rows, 1), KVOSrvMtxIllegalInput);
}

TEST(KVOSrvSparsePlaces, AreRefusedForAnotherPattern)
{
    static constexpr int kSwap[] = {1, 0}, kFirst[] = {0}, kSecond[] = {1};
    static constexpr double kOne[] = {1};
    TemporaryFolder const folder;
    std::string const path = folder / "file";
    auto const symmetric = [] { return SparseOracle{2, 2, {{{0, 1}, 3.0}, {{1, 0}, 3.0}}}.Matrix(); };
    symmetric()->Export(path.c_str(), 3);
    std::pair<bool, std::function<void(Matrix&)>> const changes[] = {
        {true, [](Matrix& m) { m.Scale(2); }},
        {true, [](Matrix& m) { m.SetColumnsToZero(kFirst, 1); }},
        {true, [](Matrix& m) { m.AddData(1, 1, 5.0); }}, // waits
        {false, [](Matrix& m) { m.AddData(0, 2, 5.0); }},
        {false, [](Matrix& m) { m.AddData(2, 0, 5.0); }},
        {false, [](Matrix& m) { m.BeginAssembly(); }},
        {false,
         [](Matrix& m) {
             m.BeginAssembly();
             m.AddData(0, 1, 3.0);
             m.AddData(1, 0, 3.0);
             m.EndAssembly();
         }},
        {false, [](Matrix& m) { m.PermuteInPlace(kSwap); }},
        {false, [](Matrix& m) { m.PermuteRows(kSwap); }},
        {false, [](Matrix& m) { m.Subtract(m, m); }},
        {false, [&](Matrix& m) { m.Import(path.c_str(), 3); }},
        {false, [](Matrix& m) {
             int count = 0;
             std::unique_ptr<unsigned[]> const kept(m.EliminateTrivialColumns(count));
         }}};
    for (auto const& [same, change] : changes) {
        SCOPED_TRACE(testing::Message() << "change " << &same - &changes[0].first);
        auto const matrix = symmetric(), copy = matrix->InFullStorage();
        Places const places(*matrix, kFirst, kSecond, 1);
        EXPECT_TRUE(matrix->IsSymmetric());
        change(*matrix);
        EXPECT_EQ(places.IsFor(*matrix), same);
        EXPECT_TRUE(places.IsFor(*copy));
        if (same) {
            matrix->AddValues(places, kOne);
            EXPECT_FALSE(matrix->IsSymmetric()); // the verdict is forgotten
            continue;
        }
        Content const before = ContentOf(*matrix);
        ExpectThrows<KVOSrvMtxRefusedInput>("KVOSrvSparseMatrix::AddValues - Illegal input: the places are those of another pattern.",
                                            [&] { matrix->AddValues(places, kOne); });
        EXPECT_EQ(ContentOf(*matrix), before);
    }

    auto const matrix = symmetric(), half = matrix->InHalfStorage();
    ExpectThrows<KVOSrvMtxRefusedInput>(
        "KVOSrvSparsePlaces::KVOSrvSparsePlaces - Illegal input: the matrix stores nothing at row 1, column "
        "1, where entry 2 belongs.",
        [&] {
            unsigned const rows[] = {0, 1, 1}, columns[] = {1, 0, 1};
            Places(*matrix, rows, columns, 3);
        });
    for (int const bad : {-1, 2, INT_MIN})
        ExpectEachThrows<KVOSrvMtxIllegalInput>({[&] { Places(*matrix, &bad, kFirst, 1); }, [&] { Places(*matrix, kFirst, &bad, 1); },
                                                 [&] { Places(*matrix, kFirst, kSecond, -1); }});
    Places const places(*matrix, kFirst, kSecond, 1);
    ExpectEachThrows<KVOSrvMtxNoSymmetricTrue>(
        {[&] { Places(*half, kFirst, kSecond, 1); }, [&] { half->ClearValues(); }, [&] { half->AddValues(places, kOne); }});
    matrix->BeginAssembly();
    matrix->AddData(0, 1, 1.0);
    ExpectEachThrows<KVOSrvMtxNotAssembled>(
        {[&] { Places(*matrix, kFirst, kSecond, 1); }, [&] { matrix->ClearValues(); }, [&] { matrix->AddValues(places, kOne); }});
}
