#include "SparseOracle.h"

#include <gmock/gmock.h>

// Vectors one behind the other, as the columns of a matrix.
static Dense RandomVectors(int length, int count, unsigned seed)
{
    return Part(Seeded(length, count, seed), 0, length - 1, 0, count - 1);
}

// The product as the matrix forms it, in front of a vector more, which must not be touched.
static Dense ProductOf(KVOSrvSparseMatrix const& matrix, Dense const& x, bool transpose)
{
    Dense y(transpose ? matrix.NumberOfColumns() : matrix.NumberOfRows(), x.columns + 1, kPadding);
    matrix.Multiply(x.data(), x.columns, y.data(), transpose);
    auto const behind = y.values.begin() + std::ptrdiff_t{1} * y.rows * x.columns;
    EXPECT_EQ(std::count(behind, y.values.end(), kPadding), y.rows);
    y.values.erase(behind, y.values.end());
    return y;
}

static Dense ProductOf(Half const& a, Dense const& x)
{
    Dense y(a.Size(), x.columns);
    for (int j = 0; j < x.columns; ++j)
        for (int i = 0; i < a.Size(); ++i) {
            double s = 0;
            for (auto const& [column, value] : a.rows[i]) {
                s += value * x.At(column, j);
                y.At(column, j) += value * x.At(i, j);
            }
            y.At(i, j) += a.diagonal[i] * x.At(i, j) + s;
        }
    return y;
}

TEST(KVOSrvSparseMatrixProducts, MultiplyEqualsThePlainLoopsInTheirOrder)
{
    for (SparseShape const& shape : {SparseShape{0, 0, 0}, {4, 0, 0}, {0, 4, 0}, {30, 17, 200}, {17, 30, 40}, {200, 200, 9000}})
        for (int const nvec : {0, 1, 7, 8, 9, 20})
            for (bool const transpose : {false, true}) {
                SCOPED_TRACE(testing::Message() << shape.rows << " x " << shape.columns << ", " << nvec << " vectors, " << transpose);
                SparseOracle const oracle = RandomOracle(shape, 21);
                Dense const x = RandomVectors(transpose ? shape.rows : shape.columns, nvec, 22);
                EXPECT_EQ(ProductOf(*oracle.Matrix(), x, transpose).values, ProductOf(oracle, x, transpose).values);

                Half const half = Half::Random(shape.rows, static_cast<std::size_t>(shape.entries), 23);
                Dense const z = RandomVectors(shape.rows, nvec, 24);
                EXPECT_EQ(ProductOf(*HalfStored(half), z, transpose).values, ProductOf(half, z).values);
            }
}

// So large and scattered that vectors go through the rows in smaller groups.
TEST(KVOSrvSparseMatrixProducts, EqualThePlainLoopsForLargeHalfStorage)
{
    Half half = Half::Random(150000, 0, 31);
    for (int row = 0; row < 5000; ++row)
        half.rows[static_cast<std::size_t>(row)].emplace_back(row + 1 + row * 2741 % 140000, 1.0 / (row + 1));
    Dense const x = RandomVectors(half.Size(), 9, 32);
    EXPECT_EQ(ProductOf(*HalfStored(half), x, false).values, ProductOf(half, x).values);
}

TEST(KVOSrvSparseMatrixProducts, ScaleTakesInTheDiagonal)
{
    SparseOracle oracle = RandomOracle({20, 30, 100}, 26);
    auto const matrix = oracle.Matrix();
    matrix->Scale(-0.1);
    for (auto& [place, value] : oracle.places)
        value *= -0.1;
    EXPECT_EQ(ContentOf(*matrix), oracle.ExpectedContent());

    Half half = Half::Random(20, 50, 27);
    auto const halfStored = HalfStored(half);
    halfStored->Scale(3);
    for (int i = 0; i < 20; ++i) {
        half.diagonal[i] *= 3;
        for (auto& [column, value] : half.rows[i])
            value *= 3;
    }
    EXPECT_EQ(ContentOf(*halfStored).entries, half.Entries());
}

TEST(KVOSrvSparseMatrixProducts, SubtractAssemblesTheDifference)
{
    Half const half = Half::Random(45, 300, 30);
    SparseOracle const a = RandomOracle({40, 30, 300}, 28), b = RandomOracle({35, 50, 300}, 29), full = FullOracle(half);
    auto const matrixA = a.Matrix(), matrixB = b.Matrix(), matrixHalf = HalfStored(half);
    // The sizes are those before, enlarged where the entries need it.
    auto const expectDifference = [](KVOSrvSparseMatrix& matrix, KVOSrvSparseMatrix const& A, SparseOracle const& left,
                                     KVOSrvSparseMatrix const& B, SparseOracle const& right) {
        SparseOracle expected{matrix.NumberOfRows(), matrix.NumberOfColumns(), left.places};
        for (auto const& [place, value] : right.places)
            expected.Add(place.first, place.second, -value);
        expected.rows = std::max({expected.rows, left.rows, right.rows}); // each has an entry in its last row and column
        expected.columns = std::max({expected.columns, left.columns, right.columns});
        matrix.Subtract(A, B);
        EXPECT_EQ(ContentOf(matrix), expected.ExpectedContent());
    };
    KVOSrvSparseMatrix result(40, 30);
    result.AddData(0, 0, 1e9); // the difference has nothing to do with what was here before
    expectDifference(result, *matrixA, a, *matrixB, b);
    expectDifference(result, *matrixHalf, full, *matrixB, b);
    expectDifference(*matrixA, *matrixA, a, *matrixHalf, full);
    expectDifference(*matrixHalf, *matrixB, b, *matrixHalf, full);
    ExpectUnchangedWithoutMemory(*matrixB, [&] { matrixB->Subtract(*matrixB, *matrixB); });
    EXPECT_EQ(matrixB->NumberOfNonzeros(), static_cast<int>(b.places.size()));
    EXPECT_TRUE(matrixB->IsNull()); // every place is still stored
}

// Products of real unsymmetric matrices that are exact values rounded once: those by ones and those by a pattern, in two columns, first of
// the matrix and then of its transpose.
TEST(KVOSrvSparseMatrixProducts, RealMatricesGiveTheReferenceProducts)
{
    for (std::string const name : {"west0479", "illc1033"}) {
        SCOPED_TRACE(name);
        auto const matrix = KVOSrvSparseMatrix::ReadMatrixMarket((KVO_DATA_FOLDER "/" + name + ".mtx").c_str());
        SparseOracle absolute{matrix->NumberOfRows(), matrix->NumberOfColumns(), {}};
        for (auto const& [row, column, bits] : ContentOf(*matrix).entries)
            absolute.Add(row, column, std::abs(std::bit_cast<double>(bits)));

        std::ifstream reference(KVO_DATA_FOLDER "/reference/" + name + ".txt");
        std::string line;
        std::getline(reference, line);
        for (bool const transpose : {false, true}) {
            double const pattern[] = {1.0, -2.0, 0.5, 4.0};
            auto const entry = [&](int i, int j) { return j == 0 ? 1 : pattern[i % 4]; };
            Dense const x = Filled(transpose ? absolute.rows : absolute.columns, 2, entry), y = ProductOf(*matrix, x, transpose);
            // A sum of n products errs by at most n round-offs of that of their magnitudes (Higham, Accuracy and Stability, 3.1).
            Dense const bound = ProductOf(absolute, Filled(x.rows, 2, [&](int i, int j) { return std::abs(entry(i, j)); }), transpose);
            for (int i = 0; i < y.rows; ++i)
                for (int j = 0; j < 2; ++j) {
                    double expected = 0;
                    ASSERT_TRUE(reference >> expected);
                    EXPECT_NEAR(y.At(i, j), expected, x.rows * kEpsilon * bound.At(i, j)) << i << ", " << j;
                }
        }
    }
}
