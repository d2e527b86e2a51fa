#include "KVOFortran.h"

#include <algorithm>
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

constexpr double kGuard = -7.25e77;
constexpr std::size_t kGuardLength = 16;

struct Csr {
    int rows, columns;
    std::vector<double> a;
    std::vector<int> ia{0}, ja;

    void AddRow(std::vector<int> const& pattern)
    {
        ja.insert(ja.end(), pattern.begin(), pattern.end());
        ia.push_back(static_cast<int>(ja.size()));
    }
};

// Values whose products and sums round; with `special` also zeros of both signs, infinities and NaNs.
double Value(Random& random, bool special)
{
    if (special && random() % 16 == 0) {
        constexpr double kSpecial[] = {-0.0,
                                       0.0,
                                       std::numeric_limits<double>::infinity(),
                                       -std::numeric_limits<double>::infinity(),
                                       std::numeric_limits<double>::quiet_NaN(),
                                       5e-324,
                                       1e308};
        return kSpecial[random() % std::size(kSpecial)];
    }
    return std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 8) - 56) - 1.0;
}

std::vector<double> Values(Random& random, std::size_t count, bool special)
{
    std::vector<double> values(count);
    for (double& value : values)
        value = Value(random, special);
    return values;
}

// One row: empty, ascending runs of 1 to 20 columns, or columns in any order with repetitions.
std::vector<int> Pattern(Random& random, int columns)
{
    std::vector<int> pattern;
    if (columns == 0 || random() % 8 == 0)
        return pattern;
    if (random() % 3 == 0) {
        for (std::size_t left = random() % 30; left > 0; --left)
            pattern.push_back(random() % 3 == 0 && !pattern.empty() && pattern.back() + 1 < columns
                                  ? pattern.back() + 1
                                  : static_cast<int>(random() % static_cast<unsigned>(columns)));
        return pattern;
    }
    for (int column = static_cast<int>(random() % 4); column < columns; column += 1 + static_cast<int>(random() % 5))
        for (std::size_t run = 1 + random() % 20; run > 0 && column < columns; --run)
            pattern.push_back(column++);
    return pattern;
}

// Rows of equal pattern come in groups of 1 to 7.
Csr RandomCsr(Random& random, int rows, int columns, bool special)
{
    Csr matrix{rows, columns, {}, {0}, {}};
    for (int row = 0; row < rows;) {
        std::vector<int> const pattern = Pattern(random, columns);
        for (std::size_t same = 1 + random() % 7; same > 0 && row < rows; --same, ++row)
            matrix.AddRow(pattern);
    }
    matrix.a = Values(random, matrix.ja.size(), special);
    return matrix;
}

struct Shape {
    int rows, columns, vectors;
};

std::vector<Shape> Shapes()
{
    std::vector<Shape> shapes;
    for (int vectors = 0; vectors <= 17; ++vectors)
        shapes.push_back({23, 41, vectors});
    for (int vectors : {1, 8, 9, 32})
        for (auto [rows, columns] : {std::pair{1, 1}, {3, 2}, {5, 3}, {4, 5}, {0, 7}, {7, 0}, {60, 9}, {31, 200}})
            shapes.push_back({rows, columns, vectors});
    return shapes;
}

std::size_t At(int i, int j, int ld)
{
    return static_cast<std::size_t>(i) + static_cast<std::size_t>(j) * static_cast<std::size_t>(ld);
}

// The plain loops.
void Umv(Csr const& m, std::vector<double> const& x, int vectors, double* y)
{
    for (int j = 0; j < vectors; ++j)
        for (int i = 0; i < m.rows; ++i) {
            double sum = 0.0;
            for (auto k = static_cast<std::size_t>(m.ia[static_cast<std::size_t>(i)]);
                 k < static_cast<std::size_t>(m.ia[static_cast<std::size_t>(i) + 1]); ++k) {
                double const volatile product = m.a[k] * x[At(m.ja[k], j, m.columns)]; // rounded, whatever this file is compiled for
                sum += product;
            }
            y[At(i, j, m.rows)] = sum;
        }
}

void Umtv(Csr const& m, std::vector<int> const& index, std::vector<double> const& x, int vectors, double* y)
{
    int const count = static_cast<int>(index.size());
    for (int j = 0; j < vectors; ++j) {
        std::fill_n(y + At(0, j, m.columns), m.columns, 0.0);
        for (int l = 0; l < count; ++l) {
            auto const r = static_cast<std::size_t>(index[static_cast<std::size_t>(l)]);
            for (auto k = static_cast<std::size_t>(m.ia[r]); k < static_cast<std::size_t>(m.ia[r + 1]); ++k) {
                double const volatile product = m.a[k] * x[At(l, j, count)];
                y[At(m.ja[k], j, m.columns)] += product;
            }
        }
    }
}

// Equal bits; NaNs are equal whatever their payload, which depends on the order of the operands.
bool SameBits(double a, double b)
{
    return std::bit_cast<std::uint64_t>(a) == std::bit_cast<std::uint64_t>(b) || (std::isnan(a) && std::isnan(b));
}

// A result between guards.
class Result
{
public:
    explicit Result(std::size_t size) : m_values(size + 2 * kGuardLength, kGuard) {}
    double* Values() { return m_values.data() + kGuardLength; }
    void ExpectSame(Result const& other) const
    {
        for (std::size_t k = 0; k < m_values.size(); ++k)
            ASSERT_TRUE(SameBits(m_values[k], other.m_values[k]))
                << "at " << static_cast<std::ptrdiff_t>(k - kGuardLength) << ": " << m_values[k] << " and " << other.m_values[k];
    }

private:
    std::vector<double> m_values;
};

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

    static void CompareUmv(Csr const& m, std::vector<double> const& x, int vectors)
    {
        Result actual(At(0, vectors, m.rows)), expected(At(0, vectors, m.rows));
        Umv(m, x, vectors, expected.Values());
        BLAC_SPARSE_UMV(m.a.data(), x.data(), m.ia.data(), m.ja.data(), actual.Values(), &m.rows, &m.columns, &vectors);
        actual.ExpectSame(expected);
    }

    static void CompareUmtv(Csr const& m, std::vector<double> const& x, int vectors)
    {
        Result actual(At(0, vectors, m.columns)), expected(At(0, vectors, m.columns));
        std::vector<int> rows(static_cast<std::size_t>(m.rows));
        std::iota(rows.begin(), rows.end(), 0);
        Umtv(m, rows, x, vectors, expected.Values());
        BLAC_SPARSE_UMTV(m.a.data(), x.data(), m.ia.data(), m.ja.data(), actual.Values(), &m.rows, &m.columns, &vectors);
        actual.ExpectSame(expected);
    }

    static void CompareIndexed(Csr const& m, std::vector<int> const& index, std::vector<double> const& x, int vectors)
    {
        Result actual(At(0, vectors, m.columns)), expected(At(0, vectors, m.columns));
        Umtv(m, index, x, vectors, expected.Values());
        int const count = static_cast<int>(index.size());
        BLAC_SPARSE_SPARSE_UMTV(m.a.data(), x.data(), m.ia.data(), m.ja.data(), actual.Values(), &count, &m.columns, &vectors,
                                index.data());
        actual.ExpectSame(expected);
    }
};

TEST_P(SparseKernels, EqualThePlainLoopsBitForBit)
{
    Random random(1);
    for (auto const& [rows, columns, vectors] : Shapes())
        for (int repetition = 0; repetition < 12; ++repetition) {
            SCOPED_TRACE(testing::Message() << rows << " x " << columns << ", " << vectors << " vectors, repetition " << repetition);
            bool const special = repetition % 2 == 1;
            Csr const m = RandomCsr(random, rows, columns, special);

            ASSERT_NO_FATAL_FAILURE(CompareUmv(m, Values(random, At(0, vectors, columns), special), vectors));
            ASSERT_NO_FATAL_FAILURE(CompareUmtv(m, Values(random, At(0, vectors, rows), special), vectors));

            // Any order, with repetitions.
            std::vector<int> index(rows == 0 ? 0 : random() % 40);
            for (int& row : index)
                row = static_cast<int>(random() % static_cast<unsigned>(rows));
            ASSERT_NO_FATAL_FAILURE(
                CompareIndexed(m, index, Values(random, At(0, vectors, static_cast<int>(index.size())), special), vectors));
        }
}

// So large and scattered that eight vectors go through the rows by four, by two and one by one; and as large with the entries near the
// diagonal, where they stay together.
TEST_P(SparseKernels, EqualThePlainLoopsForLargeMatrices)
{
    Random random(2);
    int const vectors = 9;
    for (int const columns : {250000, 450000, 800000})
        for (bool const scattered : {true, false}) {
            SCOPED_TRACE(testing::Message() << columns << " columns, scattered " << scattered);
            Csr m{600, columns, {}, {0}, {}};
            for (int i = 0; i < m.rows; ++i) {
                std::vector<int> pattern(20);
                for (int& column : pattern)
                    column = static_cast<int>(scattered ? random() % static_cast<unsigned>(columns)
                                                        : static_cast<unsigned>(i) * 100 + random() % 500);
                m.AddRow(pattern);
            }
            m.a = Values(random, m.ja.size(), false);

            ASSERT_NO_FATAL_FAILURE(CompareUmv(m, Values(random, At(0, vectors, columns), false), vectors));
            ASSERT_NO_FATAL_FAILURE(CompareUmtv(m, Values(random, At(0, vectors, m.rows), false), vectors));
        }
}

// The last column of the last vector is the last place that may be read: x ends there. (The sanitizers see a step further.)
TEST_P(SparseKernels, ReadNothingBehindX)
{
    Random random(3);
    for (int columns = 1; columns <= 12; ++columns)
        for (int first = 0; first < columns; ++first) {
            Csr m{3, columns, {}, {0}, {}};
            std::vector<int> pattern(static_cast<std::size_t>(columns - first));
            std::iota(pattern.begin(), pattern.end(), first);
            for (int i = 0; i < m.rows; ++i)
                m.AddRow(pattern);
            m.a = Values(random, m.ja.size(), false);

            ASSERT_NO_FATAL_FAILURE(CompareUmv(m, Values(random, At(0, 8, columns), false), 8));
            ASSERT_NO_FATAL_FAILURE(CompareUmtv(m, Values(random, At(0, 8, m.rows), false), 8));
        }
}

INSTANTIATE_TEST_SUITE_P(Levels, SparseKernels, testing::Values(0, 1, 2));

TEST(SparseLevel, IsCappedByTheProcessorAndReset)
{
    int const best = SetLevel(-1);
    EXPECT_EQ(SetLevel(0), 0);
    EXPECT_EQ(SetLevel(1000), best);
    EXPECT_EQ(SetLevel(0), 0);
    EXPECT_EQ(SetLevel(-1000), best);
}

} // namespace
