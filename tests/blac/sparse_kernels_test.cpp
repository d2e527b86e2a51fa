#include "KVOBasProcessor.h"
#include "KVOFortran.h"
#include "interleaved.h"
#include "sparse_kernels.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <numeric>
#include <random>
#include <vector>

namespace
{

using Random = std::mt19937_64;
using Vector = std::vector<double>;

int Below(Random& random, int limit)
{
    return static_cast<int>(random() % static_cast<unsigned>(limit));
}

// Values whose products and sums round; with `special` also zeros of both signs, infinities, NaNs and the ends of the range.
Vector Values(Random& random, int rows, int columns, bool special)
{
    constexpr double kInfinity = std::numeric_limits<double>::infinity(), kNaN = std::numeric_limits<double>::quiet_NaN();
    constexpr double kSpecial[] = {-0.0, 0.0, kInfinity, -kInfinity, kNaN, 5e-324, 1e308};
    Vector values(std::size_t{1} * rows * columns);
    for (double& value : values)
        value = special && random() % 16 == 0 ? kSpecial[random() % std::size(kSpecial)]
                                              : std::ldexp(static_cast<double>(random() >> 11), Below(random, 8) - 56) - 1.0;
    return values;
}

struct Csr {
    void AddRow(std::vector<int> const& pattern)
    {
        ja.insert(ja.end(), pattern.begin(), pattern.end());
        ia.push_back(static_cast<int>(ja.size()));
    }

    int rows, columns;
    Vector a;
    std::vector<int> ia{0}, ja;
};

// One row: empty, ascending runs of 1 to 20 columns, or columns in any order with repetitions.
std::vector<int> Pattern(Random& random, int columns)
{
    std::vector<int> pattern;
    if (columns == 0 || random() % 8 == 0)
        return pattern;
    if (random() % 3 == 0) {
        for (int left = Below(random, 30); left > 0; --left) {
            bool const next = random() % 3 == 0 && !pattern.empty() && pattern.back() + 1 < columns;
            pattern.push_back(next ? pattern.back() + 1 : Below(random, columns));
        }
        return pattern;
    }
    for (int column = Below(random, 4); column < columns; column += 1 + Below(random, 5))
        for (int run = 1 + Below(random, 20); run > 0 && column < columns; --run)
            pattern.push_back(column++);
    return pattern;
}

// Rows of equal pattern come in groups of 1 to 7.
Csr RandomCsr(Random& random, int rows, int columns)
{
    Csr matrix{rows, columns, {}, {0}, {}};
    for (int row = 0; row < rows;) {
        std::vector<int> const pattern = Pattern(random, columns);
        for (int same = 1 + Below(random, 7); same > 0 && row < rows; --same, ++row)
            matrix.AddRow(pattern);
    }
    return matrix;
}

int SetLevel(int request)
{
    int inForce = -1;
    BLAC_SPARSE_LEVEL(&request, &inForce);
    return inForce;
}

// Every level that this processor has.
class SparseKernels : public testing::TestWithParam<int>
{
protected:
    void SetUp() override
    {
        if (SetLevel(GetParam()) != GetParam())
            GTEST_SKIP() << "this processor lacks level " << GetParam();
    }
    void TearDown() override { SetLevel(-1); }

    // A product into an array between guards is the one of the plain loops over the rows in `index`, in their order, to the bit; NaNs are
    // equal whatever their payload, which depends on the order of the operands. entry(which row, column, vector) gives place and factor.
    template<class Product, class Entry>
    static void ExpectSame(int rows, int vectors, Csr const& m, std::vector<int> const& index, Product const& product, Entry const& entry)
    {
        constexpr std::ptrdiff_t kGuard = 16;
        Vector actual(std::size_t{1} * rows * vectors + 2 * kGuard, -7.25e77), expected = actual;
        std::fill(expected.begin() + kGuard, expected.end() - kGuard, 0.0);
        for (int j = 0; j < vectors; ++j)
            for (std::size_t l = 0; l < index.size(); ++l)
                for (int k = m.ia[index[l]]; k < m.ia[index[l] + 1]; ++k) {
                    auto const [target, x] = entry(static_cast<int>(l), m.ja[k], j);
                    double const volatile term = m.a[k] * x; // rounded, whatever this file is compiled for
                    expected[kGuard + target + std::ptrdiff_t{j} * rows] += term;
                }
        product(actual.data() + kGuard);
        for (std::size_t k = 0; k < actual.size(); ++k)
            ASSERT_TRUE(std::bit_cast<std::uint64_t>(actual[k]) == std::bit_cast<std::uint64_t>(expected[k]) ||
                        (std::isnan(actual[k]) && std::isnan(expected[k])))
                << "at " << static_cast<std::ptrdiff_t>(k) - kGuard << ": " << actual[k] << " and " << expected[k];
    }

    // All three products with values of their own; `index` is for the one of selected rows.
    static void ExpectPlainLoops(Random& random, Csr m, std::vector<int> const& index, int vectors, bool special)
    {
        m.a = Values(random, static_cast<int>(m.ja.size()), 1, special);
        int const count = static_cast<int>(index.size());
        std::vector<int> all(m.rows);
        std::iota(all.begin(), all.end(), 0);
        Vector const x = Values(random, m.columns, vectors, special), xt = Values(random, m.rows, vectors, special),
                     xi = Values(random, count, vectors, special);
        auto const at = [](Vector const& v, int i, int j, int ld) { return v[i + std::ptrdiff_t{j} * ld]; };

        ExpectSame(
            m.rows, vectors, m, all,
            [&](double* y) { BLAC_SPARSE_UMV(m.a.data(), x.data(), m.ia.data(), m.ja.data(), y, &m.rows, &m.columns, &vectors); },
            [&](int row, int column, int j) { return std::pair(row, at(x, column, j, m.columns)); });
        ExpectSame(
            m.columns, vectors, m, all,
            [&](double* y) { BLAC_SPARSE_UMTV(m.a.data(), xt.data(), m.ia.data(), m.ja.data(), y, &m.rows, &m.columns, &vectors); },
            [&](int row, int column, int j) { return std::pair(column, at(xt, row, j, m.rows)); });
        ExpectSame(
            m.columns, vectors, m, index,
            [&](double* y) {
                BLAC_SPARSE_SPARSE_UMTV(m.a.data(), xi.data(), m.ia.data(), m.ja.data(), y, &count, &m.columns, &vectors, index.data());
            },
            [&](int row, int column, int j) { return std::pair(column, at(xi, row, j, count)); });
    }
};

TEST_P(SparseKernels, EqualThePlainLoopsBitForBit)
{
    std::vector<std::array<int, 3>> shapes; // rows, columns, vectors
    for (int vectors = 0; vectors <= 17; ++vectors)
        shapes.push_back({23, 41, vectors});
    for (int vectors : {1, 8, 9, 32})
        for (auto [rows, columns] : {std::pair{1, 1}, {3, 2}, {5, 3}, {4, 5}, {0, 7}, {7, 0}, {60, 9}, {31, 200}})
            shapes.push_back({rows, columns, vectors});
    Random random(1);
    for (auto const& [rows, columns, vectors] : shapes)
        for (int repetition = 0; repetition < 12; ++repetition) {
            SCOPED_TRACE(testing::Message() << rows << " x " << columns << ", " << vectors << " vectors, repetition " << repetition);
            std::vector<int> index(rows == 0 ? 0 : random() % 40); // any order, with repetitions
            for (int& row : index)
                row = Below(random, rows);
            ExpectPlainLoops(random, RandomCsr(random, rows, columns), index, vectors, repetition % 2 == 1);
            if (HasFatalFailure())
                return;
        }
}

// So large and scattered that eight vectors go through the rows by four, by two and one by one; and as large with the entries near the
// diagonal, where they stay together.
TEST_P(SparseKernels, EqualThePlainLoopsForLargeMatrices)
{
    Random random(2);
    for (int const columns : {250000, 450000, 800000})
        for (bool const scattered : {true, false}) {
            SCOPED_TRACE(testing::Message() << columns << " columns, scattered " << scattered);
            Csr m{600, columns, {}, {0}, {}};
            for (int i = 0; i < m.rows; ++i) {
                std::vector<int> pattern(20);
                for (int& column : pattern)
                    column = scattered ? Below(random, columns) : i * 100 + Below(random, 500);
                m.AddRow(pattern);
            }
            ExpectPlainLoops(random, m, {5, 3}, 9, false);
        }
}

// So many entries and so scattered that y is interleaved meanwhile, for groups of 8, 4 or 2 vectors by what the processor reaches.
TEST_P(SparseKernels, EqualThePlainLoopsForManyScatteredEntries)
{
    Random random(5);
    Csr m{2801, 140000, {}, {0}, {}};
    for (int i = 0; i < m.rows; ++i) {
        std::vector<int> pattern(400);
        std::generate(pattern.begin(), pattern.end(), [&] { return Below(random, m.columns); });
        m.AddRow(pattern);
    }
    ExpectPlainLoops(random, m, {5, 3}, 9, true);
}

// The last column of the last vector is the last place that may be read: x ends there. (The sanitizers see a step further.)
TEST_P(SparseKernels, ReadNothingBehindX)
{
    Random random(3);
    for (int columns = 1; columns <= 12; ++columns)
        for (int length = 1; length <= columns; ++length) {
            std::vector<int> pattern(length);
            std::iota(pattern.begin(), pattern.end(), columns - length);
            Csr m{3, columns, {}, {0}, {}};
            for (int i = 0; i < m.rows; ++i)
                m.AddRow(pattern);
            ExpectPlainLoops(random, m, {2}, 8, false);
        }
}

INSTANTIATE_TEST_SUITE_P(Levels, SparseKernels, testing::Values(0, 1, 2));

TEST(Deinterleave, MakesColumnsOfRows)
{
    for (int const vectors : {2, 4, 8})
        for (int const rows : {0, 1, 63, 64, 65, 1000, 1048700, 2100000}) { // blocks of 64 rows, of 128 and of 256
            SCOPED_TRACE(testing::Message() << rows << " rows of " << vectors);
            Vector values(std::size_t{1} * rows * vectors + 1);
            std::iota(values.begin(), values.end(), 0.0);
            double const behind = values.back();
            blac::Deinterleave(values.data(), rows, vectors);
            std::int64_t wrong = 0;
            for (std::int64_t j = 0; j < vectors; ++j)
                for (std::int64_t i = 0; i < rows; ++i)
                    wrong += values[j * rows + i] != static_cast<double>(i * vectors + j);
            EXPECT_EQ(wrong, 0);
            EXPECT_EQ(values.back(), behind);
        }
}

// By what the processor's translation buffer reaches.
TEST(SparseGroups, AreSmallerTheFartherEntriesLieApart)
{
    struct Case {
        char const* processor;
        int of250000Columns, of450000Columns, of800000Columns;
    };
    Random random(4);
    for (Case const& c : {Case{"zen4", 4, 2, 1}, {"sapphire-rapids", 4, 2, 1}, {"skylake-sp", 2, 1, 1}, {"unknown", 2, 1, 1}}) {
        SCOPED_TRACE(c.processor);
        int const pages = KVOBasProcessor::Named(c.processor).choices.groupPages;
        for (auto const& [columns, expected] :
             {std::pair{250000, c.of250000Columns}, {450000, c.of450000Columns}, {800000, c.of800000Columns}}) {
            std::vector<unsigned> const ia{0, 10000};
            std::vector<int> ja(10000);
            std::generate(ja.begin(), ja.end(), [&, below = columns] { return Below(random, below); });
            blac::SparseRows const rows{nullptr, ia.data(), ia.data() + 1, ja.data(), 1, nullptr, columns, 1};
            EXPECT_EQ(blac::SparseGroupSize(rows, pages), expected) << columns;
            std::generate(ja.begin(), ja.end(), [&] { return Below(random, 50000); });
            EXPECT_EQ(blac::SparseGroupSize(rows, pages), 8) << columns;
        }
    }
}

TEST(SparseLevel, IsCappedByTheProcessorAndReset)
{
    int const best = SetLevel(-1);
    EXPECT_EQ(SetLevel(0), 0);
    EXPECT_EQ(SetLevel(1000), best);
    EXPECT_EQ(SetLevel(0), 0);
    EXPECT_EQ(SetLevel(-1000), best);
}

} // namespace
