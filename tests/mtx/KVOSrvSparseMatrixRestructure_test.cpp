#include "KVOSrvMtxExceptions.h"
#include "SparseOracle.h"

#include <gmock/gmock.h>
#include <set>

namespace
{

constexpr SparseShape kShapes[] = {{0, 0, 0},  {0, 4, 0},      {5, 0, 0},       {1, 1, 1},       {4, 6, 3},
                                   {9, 7, 40}, {20, 5000, 90}, {300, 40, 3000}, {200, 200, 9000}};

// The entries with each place sent to another.
template<class Send>
SparseOracle Sent(SparseOracle const& oracle, int rows, int columns, Send const& send)
{
    SparseOracle result{rows, columns, {}};
    for (auto const& [place, value] : oracle.places)
        result.places[send(place.first, place.second)] = value;
    return result;
}

// Row and column i go to place newNumber[i].
SparseOracle Renumbered(SparseOracle const& oracle, std::vector<int> const& newNumber)
{
    return Sent(oracle, oracle.rows, oracle.columns, [&](unsigned row, unsigned column) {
        return std::pair(static_cast<unsigned>(newNumber[row]), static_cast<unsigned>(newNumber[column]));
    });
}

std::vector<int> Inverse(std::vector<int> const& perm)
{
    std::vector<int> inverse(perm.size());
    for (std::size_t k = 0; k < perm.size(); ++k)
        inverse[perm[k]] = static_cast<int>(k);
    return inverse;
}

// What one of the functions returns that make a list for their caller.
std::vector<unsigned> ListOf(auto& matrix, auto const find)
{
    int count = -1;
    std::unique_ptr<unsigned[]> const list((matrix.*find)(count));
    return {list.get(), list.get() + count};
}

using Matrix = KVOSrvSparseMatrix;

TEST(KVOSrvSparseMatrixRestructure, MovesEveryEntryToItsPlace)
{
    for (SparseShape const& shape : kShapes) {
        SCOPED_TRACE(testing::Message() << shape.rows << " x " << shape.columns << ", " << shape.entries << " entries");
        SparseOracle const oracle = RandomOracle(shape, 2);
        auto const matrix = oracle.Matrix();

        std::unique_ptr<KVOSrvSparseMatrix> const transposed(matrix->Transpose());
        SparseOracle const expected =
            Sent(oracle, shape.columns, shape.rows, [](unsigned row, unsigned column) { return std::pair(column, row); });
        EXPECT_EQ(ContentOf(*transposed), expected.ExpectedContent());

        // perm[i] is the new place of row i here, and the old place of row and column k there.
        std::vector<int> const perm = RandomPermutation(shape.rows, 3), inverse = Inverse(perm);
        if (shape.rows == shape.columns) {
            std::unique_ptr<KVOSrvSparseMatrix> const permuted(matrix->Permute(perm.data()));
            EXPECT_EQ(ContentOf(*permuted), Renumbered(oracle, inverse).ExpectedContent());
            permuted->PermuteInPlace(inverse.data());
            EXPECT_EQ(ContentOf(*permuted), oracle.ExpectedContent());
        }
        EXPECT_EQ(ContentOf(*matrix), oracle.ExpectedContent());
        matrix->PermuteRows(perm.data());
        SparseOracle const rowsMoved = Sent(oracle, shape.rows, shape.columns, [&](unsigned row, unsigned column) {
            return std::pair(static_cast<unsigned>(perm[row]), column);
        });
        EXPECT_EQ(ContentOf(*matrix), rowsMoved.ExpectedContent());
    }
}

TEST(KVOSrvSparseMatrixRestructure, MovesHalfStorageAsTheFullMatrix)
{
    for (int const n : {0, 1, 2, 40}) {
        Half const half = Half::Random(n, static_cast<std::size_t>(n * (n - 1) / 3), 7);
        SparseOracle const oracle = FullOracle(half);
        auto const matrix = HalfStored(half);
        auto const expectHalfStored = [&](KVOSrvSparseMatrix const& result, SparseOracle const& expected) {
            EXPECT_EQ(SortedEntries(result), SortedEntries(*expected.Matrix()));
            EXPECT_EQ(result.NumberOfNonzeros(), matrix->NumberOfNonzeros());
            EXPECT_TRUE(result.IsSymmetric());
        };

        std::vector<int> const perm = RandomPermutation(n, 8);
        std::unique_ptr<KVOSrvSparseMatrix> const transposed(matrix->Transpose()), permuted(matrix->Permute(perm.data()));
        expectHalfStored(*transposed, oracle);
        expectHalfStored(*permuted, Renumbered(oracle, Inverse(perm)));
        matrix->PermuteInPlace(perm.data());
        EXPECT_EQ(ContentOf(*matrix), ContentOf(*permuted));
    }
}

TEST(KVOSrvSparseMatrixRestructure, KeepsRepeatedAndUnorderedColumnsOfAFile)
{
    Half half(30);
    for (int k = 0; k < 40; ++k) // more than are sorted by insertion
        half.rows[4].emplace_back(k * 7 % 20, k);
    half.rows[6] = {{3, 1.0}, {0, 2.0}, {3, 3.0}};
    auto const matrix = HalfStored(half);
    std::vector<int> const perm = RandomPermutation(30, 9);
    std::unique_ptr<KVOSrvSparseMatrix> const permuted(matrix->Permute(perm.data()));
    permuted->PermuteInPlace(Inverse(perm).data());
    EXPECT_EQ(permuted->NumberOfNonzeros(), matrix->NumberOfNonzeros());
    EXPECT_EQ(SortedEntries(*permuted), SortedEntries(*matrix));
}

TEST(KVOSrvSparseMatrixRestructure, FindsAndEliminatesTrivialColumns)
{
    for (SparseShape const& shape : kShapes) {
        SparseOracle const oracle = RandomOracle(shape, 10);
        auto const matrix = oracle.Matrix();
        std::set<unsigned> rows, columns;
        for (auto const& [place, value] : oracle.places) {
            rows.insert(place.first);
            columns.insert(place.second);
        }
        std::vector<unsigned> const expectedRows(rows.begin(), rows.end()), expectedColumns(columns.begin(), columns.end());
        EXPECT_EQ(ListOf(*matrix, &Matrix::FindNontrivialRows), expectedRows);
        EXPECT_EQ(ListOf(*matrix, &Matrix::FindNontrivialColumns), expectedColumns);
        EXPECT_EQ(ListOf(*matrix, &Matrix::EliminateTrivialColumns), expectedColumns);
        SparseOracle const expected = Sent(oracle, shape.rows, static_cast<int>(columns.size()), [&](unsigned row, unsigned column) {
            return std::pair(row, static_cast<unsigned>(std::distance(columns.begin(), columns.find(column))));
        });
        EXPECT_EQ(ContentOf(*matrix), expected.ExpectedContent());
    }
}

TEST(KVOSrvSparseMatrixRestructure, AssemblesEntriesOfColumnsThatWereEliminated)
{
    KVOSrvSparseMatrix matrix(3, 9);
    matrix.AddData(1, 4, 2.0);
    matrix.EndAssembly();
    matrix.AddData(2, 7, 3.0);
    ListOf(matrix, &Matrix::EliminateTrivialColumns);
    EXPECT_EQ(ContentOf(matrix), (Content{3, 1, 1, {MakeEntry(1, 0, 2.0)}}));
    matrix.BeginAssembly();
    matrix.EndAssembly();
    EXPECT_EQ(ContentOf(matrix), (Content{3, 8, 1, {MakeEntry(2, 7, 3.0)}}));
}

TEST(KVOSrvSparseMatrixRestructure, SetsColumnsToZeroAndKeepsTheStructure)
{
    SparseOracle oracle = RandomOracle({30, 20, 200}, 11);
    oracle.places[{3, 17}] = std::numeric_limits<double>::quiet_NaN();
    auto const matrix = oracle.Matrix();
    Content const before = ContentOf(*matrix);
    int const columns[] = {17, 0, 5, 17};
    for (auto& [place, value] : oracle.places)
        if (std::ranges::count(columns, static_cast<int>(place.second)) != 0)
            value = 0;

    for (int const outside : {-1, 20}) {
        int const bad[] = {1, outside};
        EXPECT_THROW(matrix->SetColumnsToZero(bad, 2), KVOSrvMtxIllegalInput);
    }
    EXPECT_THROW(matrix->SetColumnsToZero(columns, -1), KVOSrvMtxIllegalInput);
    matrix->SetColumnsToZero(nullptr, 0);
    EXPECT_EQ(ContentOf(*matrix), before);
    matrix->SetColumnsToZero(columns, 4);
    EXPECT_EQ(ContentOf(*matrix), oracle.ExpectedContent());
}

TEST(KVOSrvSparseMatrixRestructure, RefusesWhatIsNoPermutation)
{
    auto const matrix = RandomOracle({4, 4, 9}, 12).Matrix();
    Content const before = ContentOf(*matrix);
    for (std::vector<int> const& perm : std::vector<std::vector<int>>{{0, 1, 2, 4}, {0, -1, 2, 3}, {0, 1, 1, 3}, {3, 2, 1, INT32_MIN}}) {
        EXPECT_THROW(matrix->Permute(perm.data()), KVOSrvMtxIllegalPermVect);
        EXPECT_THROW(matrix->PermuteInPlace(perm.data()), KVOSrvMtxIllegalPermVect);
        EXPECT_THROW(matrix->PermuteRows(perm.data()), KVOSrvMtxIllegalPermVect);
        EXPECT_EQ(ContentOf(*matrix), before);
    }
    int const perm[] = {0, 1, 2, 3, 4};
    EXPECT_THROW(RandomOracle({4, 5, 9}, 12).Matrix()->Permute(perm), KVOSrvMtxIllegalInput);
    EXPECT_THROW(RandomOracle({5, 4, 9}, 12).Matrix()->PermuteInPlace(perm), KVOSrvMtxIllegalInput);
}

TEST(KVOSrvSparseMatrixRestructure, RefusesHalfStorage)
{
    static int const identity[] = {0, 1, 2, 3, 4, 5};
    std::pair<std::string, void (*)(Matrix&)> const calls[] = {
        {"EliminateTrivialColumns", [](Matrix& m) { ListOf(m, &Matrix::EliminateTrivialColumns); }},
        {"SetcolumnsToZero", [](Matrix& m) { m.SetColumnsToZero(identity, 0); }},
        {"PermuteRows", [](Matrix& m) { m.PermuteRows(identity); }}};
    auto const matrix = HalfStored(Half::Random(6, 8, 1));
    Content const before = ContentOf(*matrix);
    for (auto const& call : calls)
        ExpectThrows<KVOSrvMtxNoSymmetricTrue>("KVOSrvSparseMatrix::" + call.first + " symmetric:True not supported!",
                                               [&] { call.second(*matrix); });
    EXPECT_EQ(ContentOf(*matrix), before);
}

TEST(KVOSrvSparseMatrixRestructure, TakesAMatrixThatWasNotAssembled)
{
    KVOSrvSparseMatrix matrix(3, 3);
    int const perm[] = {2, 0, 1};
    std::unique_ptr<KVOSrvSparseMatrix> const transposed(matrix.Transpose()), permuted(matrix.Permute(perm));
    EXPECT_EQ(ContentOf(*transposed), (Content{3, 3, 0, {}}));
    EXPECT_EQ(ContentOf(*permuted), (Content{3, 3, 0, {}}));
    EXPECT_THAT(ListOf(matrix, &Matrix::FindNontrivialRows), testing::IsEmpty());
    EXPECT_THAT(ListOf(matrix, &Matrix::FindNontrivialColumns), testing::IsEmpty());
    matrix.PermuteRows(perm);
    matrix.PermuteInPlace(perm);
    matrix.SetColumnsToZero(perm, 3);
    EXPECT_EQ(ContentOf(matrix), (Content{3, 3, 0, {}}));
}

TEST(KVOSrvSparseMatrixRestructure, LosesNothingWithoutMemory)
{
    std::vector<int> const perm = RandomPermutation(50, 13);
    auto const half = HalfStored(Half::Random(50, 400, 14));
    auto const full = RandomOracle({50, 50, 1000}, 15).Matrix();
    for (KVOSrvSparseMatrix* const matrix : {half.get(), full.get()}) {
        ExpectUnchangedWithoutMemory(*matrix, [&] { delete matrix->Transpose(); });
        ExpectUnchangedWithoutMemory(*matrix, [&] { delete matrix->Permute(perm.data()); });
        ExpectUnchangedWithoutMemory(*matrix, [&] { matrix->PermuteInPlace(perm.data()); });
    }
    ExpectUnchangedWithoutMemory(*full, [&] { full->PermuteRows(perm.data()); });
    ExpectUnchangedWithoutMemory(*full, [&] { full->SetColumnsToZero(perm.data(), 5); });
    ExpectUnchangedWithoutMemory(*full, [&] { ListOf(*full, &Matrix::EliminateTrivialColumns); });
}

} // namespace
