#include "KVOSrvMtxExceptions.h"
#include "SparseOracle.h"

#include <cfloat>
#include <cmath>
#include <fstream>
#include <gmock/gmock.h>
#include <sstream>
#include <string>

namespace
{

constexpr double kPattern = -8.25e99;

struct Vectors {
    Vectors(int length, int count) : rows(length), values(static_cast<std::size_t>(length) * static_cast<std::size_t>(count) + 3, kPattern)
    {
    }
    static Vectors Random(int rows, int count, unsigned seed)
    {
        Vectors vectors(rows, count);
        std::mt19937 random(seed);
        std::generate(vectors.values.begin(), vectors.values.end() - 3, [&] { return std::normal_distribution<>()(random); });
        return vectors;
    }
    double& operator()(std::size_t row, int vector)
    {
        return values[row + static_cast<std::size_t>(vector) * static_cast<std::size_t>(rows)];
    }
    std::vector<std::uint64_t> Bits() const
    {
        std::vector<std::uint64_t> bits;
        for (double const value : values)
            bits.push_back(std::bit_cast<std::uint64_t>(value));
        return bits;
    }

    int rows;
    std::vector<double> values; // and three behind them that nobody may touch
};

Vectors Product(SparseOracle const& a, Vectors x, int nvec, bool transpose)
{
    Vectors y(transpose ? a.columns : a.rows, nvec);
    std::fill(y.values.begin(), y.values.end() - 3, 0.0);
    for (auto const& [place, value] : a.places)
        for (int j = 0; j < nvec; ++j)
            if (transpose)
                y(place.second, j) += value * x(place.first, j);
            else
                y(place.first, j) += value * x(place.second, j);
    return y;
}

Vectors Product(Half const& a, Vectors x, int nvec)
{
    Vectors y(a.Size(), nvec);
    std::fill(y.values.begin(), y.values.end() - 3, 0.0);
    for (int j = 0; j < nvec; ++j)
        for (std::size_t i = 0; i < a.rows.size(); ++i) {
            double s = 0;
            for (auto const& [column, value] : a.rows[i]) {
                s += value * x(static_cast<std::size_t>(column), j);
                y(static_cast<std::size_t>(column), j) += value * x(i, j);
            }
            y(i, j) += a.diagonal[i] * x(i, j) + s;
        }
    return y;
}

TEST(KVOSrvSparseMatrixProducts, MultiplyEqualsThePlainLoopsToTheBit)
{
    for (SparseShape const& shape : {SparseShape{0, 0, 0}, SparseShape{4, 0, 0}, SparseShape{0, 4, 0}, SparseShape{30, 17, 200},
                                     SparseShape{17, 30, 40}, SparseShape{200, 200, 9000}}) {
        SparseOracle const oracle = RandomOracle(shape, 21);
        auto const matrix = oracle.Matrix();
        for (int const nvec : {0, 1, 7, 8, 9, 20})
            for (bool const transpose : {false, true}) {
                SCOPED_TRACE(testing::Message() << shape.rows << " x " << shape.columns << ", " << nvec << " vectors, " << transpose);
                Vectors const x = Vectors::Random(transpose ? shape.rows : shape.columns, nvec, 22);
                Vectors y(transpose ? shape.columns : shape.rows, nvec);
                matrix->Multiply(x.values.data(), nvec, y.values.data(), transpose);
                EXPECT_EQ(y.Bits(), Product(oracle, x, nvec, transpose).Bits());
            }
    }
}

TEST(KVOSrvSparseMatrixProducts, MultiplyOfHalfStorageKeepsTheOrderOfItsSums)
{
    for (int const n : {0, 1, 2, 60})
        for (int const nvec : {0, 1, 5, 8, 17}) {
            Half const half = Half::Random(n, static_cast<std::size_t>(n * (n - 1) / 3), 23);
            auto const matrix = HalfStored(half);
            Vectors const x = Vectors::Random(n, nvec, 24);
            for (bool const transpose : {false, true}) {
                Vectors y(n, nvec);
                matrix->Multiply(x.values.data(), nvec, y.values.data(), transpose);
                EXPECT_EQ(y.Bits(), Product(half, x, nvec).Bits()) << n << ", " << nvec << " vectors";
            }
        }
    Half half(2);
    half.diagonal = {2, 3};
    half.rows[0] = {{1, 1.0}};
    double const x[] = {1, 1};
    double y[2];
    HalfStored(half)->Multiply(x, 1, y, true);
    EXPECT_THAT(y, testing::ElementsAre(3, 4));
}

TEST(KVOSrvSparseMatrixProducts, FullStorageStaysFullWhateverIsSymmetricSays)
{
    auto const matrix = SparseOracle{2, 2, {{{0, 0}, 2.0}, {{0, 1}, 1.0}, {{1, 0}, 1.0}}}.Matrix();
    ASSERT_TRUE(matrix->IsSymmetric());
    double const x[] = {3, 5};
    double y[2];
    matrix->Multiply(x, 1, y, false);
    EXPECT_THAT(y, testing::ElementsAre(11, 3));

    // The left-over diagonal of half storage takes no part, whatever is found on symmetry later.
    Half half(2);
    half.diagonal = {4, 5};
    auto const formerHalf = HalfStored(half);
    for (int k = 0; k < 2; ++k)
        formerHalf->AddData(0, 0, 1.0);
    EXPECT_TRUE(formerHalf->IsSymmetric());
    formerHalf->Multiply(x, 1, y, false);
    EXPECT_THAT(y, testing::ElementsAre(0, 0));
    formerHalf->Scale(2);
    EXPECT_TRUE(formerHalf->IsNull());
}

TEST(KVOSrvSparseMatrixProducts, AMatrixWithoutEntriesGivesZeros)
{
    KVOSrvSparseMatrix unassembled(2, 3);
    unassembled.AddData(1, 1, 5.0);
    auto const half = HalfStored(Half::Random(3, 2, 25));
    half->BeginAssembly();
    KVOSrvSparseMatrix grown(1, 3);
    grown.AddData(0, 0, 0.0);
    grown.EndAssembly();
    grown.AddData(1, 0, 1.0); // a second row, not assembled
    double const x[] = {1, 2, 3, 4, 5, 6};
    for (KVOSrvSparseMatrix const* const matrix : {&unassembled, half.get(), &grown})
        for (bool const transpose : {false, true}) {
            Vectors y(transpose ? matrix->NumberOfColumns() : matrix->NumberOfRows(), 2);
            matrix->Multiply(x, 2, y.values.data(), transpose);
            EXPECT_THAT(std::vector(y.values.begin(), y.values.end() - 3), testing::Each(0.0));
            EXPECT_EQ(y.values.back(), kPattern);
        }
}

TEST(KVOSrvSparseMatrixProducts, ScaleTakesInTheDiagonal)
{
    SparseOracle oracle = RandomOracle({20, 30, 100}, 26);
    auto const matrix = oracle.Matrix();
    for (auto& [place, value] : oracle.places)
        value *= -0.1;
    matrix->Scale(-0.1);
    EXPECT_EQ(ContentOf(*matrix).entries, oracle.Entries());

    Half half = Half::Random(20, 50, 27);
    auto const halfStored = HalfStored(half);
    for (double& value : half.diagonal)
        value *= 3;
    for (auto& row : half.rows)
        for (auto& [column, value] : row)
            value *= 3;
    halfStored->Scale(3);
    EXPECT_EQ(ContentOf(*halfStored).entries, half.Entries());

    auto const lopsided = SparseOracle{2, 2, {{{0, 1}, 1.0}, {{1, 0}, 2.0}}}.Matrix();
    EXPECT_FALSE(lopsided->IsSymmetric());
    lopsided->Scale(0);
    EXPECT_TRUE(lopsided->IsSymmetric());
}

TEST(KVOSrvSparseMatrixProducts, SubtractAssemblesTheDifference)
{
    SparseOracle const a = RandomOracle({40, 30, 300}, 28), b = RandomOracle({35, 50, 300}, 29);
    Half const half = Half::Random(45, 300, 30);
    SparseOracle const full = FullOracle(half);
    auto const matrixA = a.Matrix(), matrixB = b.Matrix(), matrixHalf = HalfStored(half);
    // The sizes are those before, enlarged where the entries need it.
    auto const expectDifference = [](KVOSrvSparseMatrix& matrix, KVOSrvSparseMatrix const& A, SparseOracle const& left,
                                     KVOSrvSparseMatrix const& B, SparseOracle const& right) {
        SparseOracle expected{matrix.NumberOfRows(), matrix.NumberOfColumns(), left.places};
        for (auto const& [place, value] : right.places)
            expected.Add(place.first, place.second, -value);
        for (auto const& [place, value] : expected.places) {
            expected.rows = std::max(expected.rows, static_cast<int>(place.first) + 1);
            expected.columns = std::max(expected.columns, static_cast<int>(place.second) + 1);
        }
        matrix.Subtract(A, B);
        EXPECT_EQ(ContentOf(matrix),
                  (Content{expected.rows, expected.columns, static_cast<int>(expected.places.size()), expected.Entries()}));
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

// Real unsymmetric matrices with products that are exact values rounded once.
struct RealMatrix {
    explicit RealMatrix(std::string const& name)
    {
        std::ifstream file(KVO_DATA_FOLDER "/" + name + ".mtx");
        std::string line;
        while (std::getline(file, line) && line[0] == '%')
            ;
        std::istringstream(line) >> oracle.rows >> oracle.columns;
        unsigned row = 0, column = 0;
        for (double value = 0; file >> row >> column >> value;)
            oracle.Add(row - 1, column - 1, value);
        std::ifstream reference(KVO_DATA_FOLDER "/reference/" + name + ".txt");
        std::getline(reference, line);
        for (double ones = 0, pattern = 0; reference >> ones >> pattern;)
            products.emplace_back(ones, pattern);
    }

    SparseOracle oracle{0, 0, {}};
    std::vector<std::pair<double, double>> products; // A x, then A-transposed x, for x = ones and for the pattern
};

TEST(KVOSrvSparseMatrixProducts, RealMatricesGiveTheReferenceProducts)
{
    for (char const* const name : {"west0479", "illc1033"}) {
        SCOPED_TRACE(name);
        RealMatrix const real(name);
        auto const [rows, columns] = std::pair(real.oracle.rows, real.oracle.columns);
        ASSERT_EQ(real.products.size(), static_cast<std::size_t>(rows + columns));
        auto const matrix = real.oracle.Matrix();
        SparseOracle absolute = real.oracle;
        for (auto& [place, value] : absolute.places)
            value = std::abs(value);
        for (bool const transpose : {false, true}) {
            int const length = transpose ? rows : columns, resultLength = transpose ? columns : rows;
            Vectors x(length, 2), y(resultLength, 2);
            for (int i = 0; i < length; ++i) {
                x(static_cast<std::size_t>(i), 0) = 1;
                x(static_cast<std::size_t>(i), 1) = std::vector{1.0, -2.0, 0.5, 4.0}[static_cast<std::size_t>(i % 4)];
            }
            matrix->Multiply(x.values.data(), 2, y.values.data(), transpose);

            // k products and sums err by at most k round-offs of the sum of magnitudes (Higham, Accuracy and Stability, 3.1).
            Vectors magnitudes = x;
            for (double& value : magnitudes.values)
                value = std::abs(value);
            Vectors bound = Product(absolute, magnitudes, 2, transpose);
            std::vector<int> length2(static_cast<std::size_t>(resultLength));
            for (auto const& [place, value] : absolute.places)
                ++length2[transpose ? place.second : place.first];
            for (std::size_t i = 0; i < length2.size(); ++i) {
                auto const& [ones, pattern] = real.products[i + static_cast<std::size_t>(transpose ? rows : 0)];
                double const roundOffs = (length2[i] + 1) * DBL_EPSILON;
                EXPECT_NEAR(y(i, 0), ones, roundOffs * bound(i, 0)) << i;
                EXPECT_NEAR(y(i, 1), pattern, roundOffs * bound(i, 1)) << i;
            }
        }
    }
}

} // namespace
