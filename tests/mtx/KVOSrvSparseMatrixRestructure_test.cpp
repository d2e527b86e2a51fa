#include "SparseOracle.h"

#include <climits>
#include <gmock/gmock.h>
#include <set>

namespace
{

using Matrix = KVOSrvSparseMatrix;

constexpr SparseShape kShapes[] = {{0, 0, 0},  {0, 4, 0},      {5, 0, 0},       {1, 1, 1},       {9, 30, 20},
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

// Row and column i go to place newNumber[i], or the row alone.
SparseOracle Renumbered(SparseOracle const& oracle, std::vector<int> const& newNumber, bool columns = true)
{
    auto const number = [&](unsigned i) { return static_cast<unsigned>(newNumber[i]); };
    return Sent(oracle, oracle.rows, oracle.columns,
                [&](unsigned row, unsigned column) { return std::pair(number(row), columns ? number(column) : column); });
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

TEST(KVOSrvSparseMatrixRestructure, MovesEveryEntryToItsPlace)
{
    for (SparseShape const& shape : kShapes) {
        SCOPED_TRACE(testing::Message() << shape.rows << " x " << shape.columns << ", " << shape.entries << " entries");
        SparseOracle const oracle = RandomOracle(shape, 2);
        auto const matrix = oracle.Matrix();
        SparseOracle const transposed =
            Sent(oracle, shape.columns, shape.rows, [](unsigned row, unsigned column) { return std::pair(column, row); });
        EXPECT_EQ(ContentOf(*matrix->Transposed()), transposed.ExpectedContent());

        // perm[i] is the new place of row i here, and the old place of row and column k there.
        std::vector<int> const perm = RandomPermutation(shape.rows, 3), inverse = Inverse(perm);
        if (shape.rows == shape.columns) {
            auto const permuted = matrix->Permuted(perm.data());
            EXPECT_EQ(ContentOf(*permuted), Renumbered(oracle, inverse).ExpectedContent());
            permuted->PermuteInPlace(inverse.data());
            EXPECT_EQ(ContentOf(*permuted), oracle.ExpectedContent());
        }
        EXPECT_EQ(ContentOf(*matrix), oracle.ExpectedContent());
        matrix->PermuteRows(perm.data());
        EXPECT_EQ(ContentOf(*matrix), Renumbered(oracle, perm, false).ExpectedContent());
    }
}

TEST(KVOSrvSparseMatrixRestructure, MovesHalfStorageAsTheFullMatrix)
{
    Half unordered(30); // as some files have it: unordered and repeated columns, more than are sorted by insertion
    for (int k = 0; k < 40; ++k)
        unordered.rows[4].emplace_back(k * 7 % 20, k);
    unordered.rows[6] = {{3, 1.0}, {0, 2.0}, {3, 3.0}};
    for (Half const& half : {Half(0), Half(1), Half::Random(2, 1, 7), Half::Random(40, 500, 7), unordered}) {
        auto const matrix = HalfStored(half);
        SparseOracle const oracle = FullOracle(half);
        std::vector<int> const perm = RandomPermutation(half.Size(), 8);
        auto const transposed = matrix->Transposed(), permuted = matrix->Permuted(perm.data());
        EXPECT_EQ(ContentOf(*transposed->InFullStorage()), oracle.ExpectedContent());
        EXPECT_EQ(ContentOf(*permuted->InFullStorage()), Renumbered(oracle, Inverse(perm)).ExpectedContent());
        for (Matrix const* const moved : {transposed.get(), permuted.get()})
            EXPECT_TRUE(moved->IsSymmetric() && moved->NumberOfNonzeros() == matrix->NumberOfNonzeros());
        for (KVOSrvSparseRows const rows = permuted->Rows(); int const row : perm)
            EXPECT_TRUE(std::is_sorted(rows.columnIndices + rows.rowStart[row], rows.columnIndices + rows.rowStart[row + 1]));
        matrix->PermuteInPlace(perm.data());
        EXPECT_EQ(ContentOf(*matrix), ContentOf(*permuted));
    }
}

TEST(KVOSrvSparseMatrixRestructure, FindsAndEliminatesTrivialColumns)
{
    std::vector<SparseShape> shapes(std::begin(kShapes), std::end(kShapes));
    shapes.push_back({7, INT_MAX, 1000});
    for (SparseShape const& shape : shapes) {
        SparseOracle const oracle = RandomOracle(shape, 10);
        auto const matrix = oracle.Matrix();
        std::set<unsigned> rows, columns;
        for (auto const& [place, value] : oracle.places) {
            rows.insert(place.first);
            columns.insert(place.second);
        }
        std::vector<unsigned> const kept(columns.begin(), columns.end());
        EXPECT_EQ(ListOf(*matrix, &Matrix::FindNontrivialRows), std::vector(rows.begin(), rows.end()));
        EXPECT_EQ(ListOf(*matrix, &Matrix::FindNontrivialColumns), kept);
        EXPECT_EQ(ListOf(*matrix, &Matrix::EliminateTrivialColumns), kept);
        SparseOracle const expected = Sent(oracle, shape.rows, static_cast<int>(kept.size()), [&](unsigned row, unsigned column) {
            return std::pair(row, static_cast<unsigned>(std::ranges::lower_bound(kept, column) - kept.begin()));
        });
        EXPECT_EQ(ContentOf(*matrix), expected.ExpectedContent());
    }
}

TEST(KVOSrvSparseMatrixRestructure, SetsColumnsToZeroAndKeepsTheStructure)
{
    SparseOracle oracle = RandomOracle({30, 20, 200}, 11);
    oracle.places[{3, 17}] = kNotANumber;
    auto const matrix = oracle.Matrix();
    int const columns[] = {17, 0, 5, 17};
    for (auto& [place, value] : oracle.places)
        if (std::ranges::count(columns, static_cast<int>(place.second)) != 0)
            value = 0;
    matrix->SetColumnsToZero(columns, 4);
    matrix->SetColumnsToZero(nullptr, 0);
    EXPECT_EQ(ContentOf(*matrix), oracle.ExpectedContent());
}

// So does one from BeginAssembly() on, and the triangle that is left of half storage when entries come.
TEST(KVOSrvSparseMatrixRestructure, AnUnassembledMatrixCountsAsOneWithoutEntries)
{
    Matrix unassembled(3, 3);
    auto const half = HalfStored(Half::Random(3, 2, 25)), former = HalfStored(Half(3));
    half->BeginAssembly();
    former->AddData(0, 0, 1.0);
    former->AddData(0, 0, 1.0);
    EXPECT_TRUE(former->IsSymmetric());
    int const perm[] = {2, 0, 1};
    double const x[] = {1, 2, 3};
    std::vector<Entry> const none;
    for (Matrix* const matrix : {&unassembled, half.get(), former.get()}) {
        EXPECT_TRUE(matrix->IsNull());
        for (bool const transpose : {false, true}) {
            double y[] = {7, 7, 7};
            matrix->Multiply(x, 1, y, transpose);
            EXPECT_THAT(y, testing::Each(0.0));
        }
        for (auto const& moved : {matrix->Transposed(), matrix->Permuted(perm), matrix->InFullStorage()})
            EXPECT_EQ(ContentOf(*moved).entries, none);
        for (auto const find : {&Matrix::FindNontrivialRows, &Matrix::FindNontrivialColumns})
            EXPECT_THAT(ListOf(*matrix, find), testing::IsEmpty());
        matrix->PermuteInPlace(perm);
        if (matrix != half.get()) {
            matrix->PermuteRows(perm);
            matrix->SetColumnsToZero(perm, 3);
        }
        matrix->Scale(2);
        EXPECT_EQ(ContentOf(*matrix).entries, none);
    }
    half->EndAssembly(); // an assembly of nothing
    EXPECT_TRUE(half->IsSymmetric());
    half->BeginAssembly();
    half->AddData(0, 1, 3.0);
    half->EndAssembly();
    EXPECT_EQ(ContentOf(*half), (Content{3, 3, 1, {MakeEntry(0, 1, 3.0)}}));
}

TEST(KVOSrvSparseMatrixRestructure, LosesNothingWithoutMemory)
{
    std::vector<int> const perm = RandomPermutation(50, 13);
    auto const half = HalfStored(Half::Random(50, 400, 14)), symmetric = half->InFullStorage();
    auto const full = RandomOracle({50, 50, 1000}, 15).Matrix();
    ExpectUnchangedWithoutMemory(*symmetric, [&] { symmetric->InHalfStorage(); });
    for (Matrix* const matrix : {half.get(), full.get()}) {
        ExpectUnchangedWithoutMemory(*matrix, [&] { matrix->Transposed(); });
        ExpectUnchangedWithoutMemory(*matrix, [&] { matrix->Permuted(perm.data()); });
        ExpectUnchangedWithoutMemory(*matrix, [&] { matrix->InFullStorage(); });
        ExpectUnchangedWithoutMemory(*matrix, [&] { matrix->PermuteInPlace(perm.data()); });
    }
    ExpectUnchangedWithoutMemory(*full, [&] { full->PermuteRows(perm.data()); });
    ExpectUnchangedWithoutMemory(*full, [&] { full->SetColumnsToZero(perm.data(), 5); });
    ExpectUnchangedWithoutMemory(*full, [&] { ListOf(*full, &Matrix::EliminateTrivialColumns); });
}

} // namespace
