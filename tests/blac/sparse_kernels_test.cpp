#include "Dense.h"
#include "KVOBasProcessor.h"
#include "KVOFortran.h"
#include "interleaved.h"
#include "sparse_kernels.h"

#include <array>
#include <cstdint>
#include <numeric>

namespace
{

using Random = std::mt19937_64;

int Below(Random& random, int limit)
{
    return static_cast<int>(random() % static_cast<unsigned>(limit));
}

// Values whose products and sums round; with `special` also zeros of both signs, infinities, NaNs and the ends of the range.
Vector Values(Random& random, int rows, int columns, bool special)
{
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    constexpr double kSpecial[] = {-0.0, 0.0, kInfinity, -kInfinity, kNotANumber, 5e-324, 1e308};
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

    // All three products, with values of their own and into an array between guards, are those of the plain loops over the rows in their
    // order, to the bit; NaNs are equal whatever their payload, which depends on the order of the operands. `picked` is for the last one.
    static void ExpectPlainLoops(Random& random, Csr m, std::vector<int> const& picked, int vectors, bool special)
    {
        constexpr std::ptrdiff_t kGuard = 16;
        m.a = Values(random, static_cast<int>(m.ja.size()), 1, special);
        std::vector<int> all(m.rows);
        std::iota(all.begin(), all.end(), 0);
        for (char const* const product : {"UMV", "UMTV", "SPARSE_UMTV"}) {
            bool const transposed = product[2] != 'V', isPicked = product[0] == 'S';
            std::vector<int> const& index = isPicked ? picked : all;
            int const count = static_cast<int>(index.size()), in = transposed ? count : m.columns, out = transposed ? m.columns : count;
            Vector const x = Values(random, in, vectors, special);
            Vector actual(std::size_t{1} * out * vectors + 2 * kGuard, -7.25e77), expected = actual;
            std::fill(expected.begin() + kGuard, expected.end() - kGuard, 0.0);
            for (int j = 0; j < vectors; ++j)
                for (int l = 0; l < count; ++l)
                    for (int k = m.ia[index[l]]; k < m.ia[index[l] + 1]; ++k) {
                        auto const [to, from] = transposed ? std::pair(m.ja[k], l) : std::pair(l, m.ja[k]);
                        double const volatile term = m.a[k] * x[from + std::ptrdiff_t{j} * in]; // rounded, whatever this is compiled for
                        expected[kGuard + to + std::ptrdiff_t{j} * out] += term;
                    }
            double* const y = actual.data() + kGuard;
            if (isPicked)
                BLAC_SPARSE_SPARSE_UMTV(m.a.data(), x.data(), m.ia.data(), m.ja.data(), y, &count, &m.columns, &vectors, index.data());
            else
                (transposed ? BLAC_SPARSE_UMTV : BLAC_SPARSE_UMV)(m.a.data(), x.data(), m.ia.data(), m.ja.data(), y, &count, &m.columns,
                                                                  &vectors);
            auto const wrong = std::ranges::mismatch(actual, expected,
                                                     [](double a, double e) { return SameBits(a, e) || (std::isnan(a) && std::isnan(e)); });
            ASSERT_EQ(wrong.in1, actual.end()) << product << " at " << wrong.in1 - actual.begin() - kGuard;
        }
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

// So large and scattered that eight vectors go through the rows by four, by two and one by one; as large with the entries near the
// diagonal, where they stay together; and with so many entries that y is interleaved meanwhile, for groups by what the processor reaches.
TEST_P(SparseKernels, EqualThePlainLoopsForLargeMatrices)
{
    struct {
        int rows, columns, perRow;
        bool scattered, special;
    } const cases[] = {{600, 250000, 20, true, false},  {600, 450000, 20, true, false},  {600, 800000, 20, true, false},
                       {600, 250000, 20, false, false}, {600, 800000, 20, false, false}, {2801, 140000, 400, true, true}};
    Random random(2);
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c.columns << " columns, scattered " << c.scattered);
        Csr m{c.rows, c.columns, {}, {0}, {}};
        for (int i = 0; i < m.rows; ++i) {
            std::vector<int> pattern(c.perRow);
            std::ranges::generate(pattern, [&] { return c.scattered ? Below(random, c.columns) : i * 100 + Below(random, 500); });
            m.AddRow(pattern);
        }
        ExpectPlainLoops(random, m, {5, 3}, 9, c.special);
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
    constexpr std::pair<int, int> kColumns[] = {
        {250000, 250000}, {450000, 450000}, {800000, 800000}, {800000, 50000}}; // and those with entries
    std::pair<char const*, std::array<int, 4>> const cases[] = {
        {"zen4", {4, 2, 1, 8}}, {"sapphire-rapids", {4, 2, 1, 8}}, {"skylake-sp", {2, 1, 1, 8}}, {"unknown", {2, 1, 1, 8}}};
    Random random(4);
    for (auto const& [processor, expected] : cases)
        for (std::size_t k = 0; k < expected.size(); ++k) {
            std::vector<unsigned> const ia{0, 10000};
            std::vector<int> ja(10000);
            std::ranges::generate(ja, [&] { return Below(random, kColumns[k].second); });
            blac::SparseRows const rows{nullptr, ia.data(), ia.data() + 1, ja.data(), 1, nullptr, kColumns[k].first, 1};
            EXPECT_EQ(blac::SparseGroupSize(rows, KVOBasProcessor::Named(processor).choices.groupPages), expected[k])
                << processor << ' ' << k;
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
