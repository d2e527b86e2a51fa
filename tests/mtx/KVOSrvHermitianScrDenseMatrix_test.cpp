#include "KVOSrvHermitianScrDenseMatrix.h"

#include "KVOSrvProductMemory.h"
#include "KVOSrvUtilities.h"
#include "MatrixSupport.h"
#include "WorkingFolder.h"

#include <complex>

using Complex = std::complex<double>;
using Matrix = KVOSrvHermitianScrDenseMatrix;

namespace
{

/// Complex numbers by columns, as the matrix takes them.
struct Block {
    Block(int r, int c) : rows(r), columns(c), values(static_cast<std::size_t>(r) * static_cast<std::size_t>(c)) {}

    Complex& At(int i, int j) { return values[static_cast<std::size_t>(j) * static_cast<std::size_t>(rows) + static_cast<std::size_t>(i)]; }
    Complex At(int i, int j) const { return const_cast<Block&>(*this).At(i, j); }
    double* Data() { return reinterpret_cast<double*>(values.data()); }

    int rows, columns;
    std::vector<Complex> values;
};

Block RandomBlock(int rows, int columns)
{
    Block block(rows, columns);
    std::uniform_real_distribution<> part(-1.0, 1.0);
    std::ranges::generate(block.values, [&] { return Complex(part(s_random), part(s_random)); });
    return block;
}

Block RandomHermitian(int n)
{
    Block block = RandomBlock(n, n);
    for (int j = 0; j < n; ++j) {
        block.At(j, j).imag(0.0);
        for (int i = 0; i < j; ++i)
            block.At(i, j) = std::conj(block.At(j, i));
    }
    return block;
}

Block ValuesOf(Matrix const& matrix)
{
    Block all(matrix.Order(), matrix.Order());
    matrix.GetValues(0, matrix.Order() - 1, 0, matrix.Order() - 1, all.Data());
    return all;
}

/// Up to the rounding of sums in any order: four real products are added up to a complex one.
void ExpectProduct(Block const& H, Block const& X, Block const& Y)
{
    double worst = 0.0;
    for (int v = 0; v < X.columns; ++v) {
        std::vector<Complex> expected(static_cast<std::size_t>(H.rows));
        for (int j = 0; j < H.columns; ++j)
            for (int i = 0; i < H.rows; ++i)
                expected[static_cast<std::size_t>(i)] += H.At(i, j) * X.At(j, v);
        for (int i = 0; i < H.rows; ++i)
            worst = std::fmax(worst, std::abs(Y.At(i, v) - expected[static_cast<std::size_t>(i)]));
        EXPECT_FALSE(std::isnan(std::abs(Y.At(H.rows - 1, v))));
    }
    EXPECT_LE(worst, 2.0 * ProductTolerance(2 * H.rows));
}

} // namespace

TEST(KVOSrvHermitianScrDenseMatrix, ReadsAndWritesAnyRangeWithItsMirrorImage)
{
    for (auto const& [n, chunk] : {std::pair{1, 1}, {7, 3}, {40, 16}, {65, -1}, {300, 100}}) {
        SCOPED_TRACE(testing::Message() << n << ", chunks of " << chunk);
        Matrix matrix(n, chunk);
        Block expected(n, n);
        for (int time = 0; time < 40; ++time) {
            int const r0 = Between(0, n - 1), r1 = Between(r0, n - 1), c0 = Between(0, n - 1), c1 = Between(c0, n - 1);
            Block const whole = RandomHermitian(n);
            Block part(r1 - r0 + 1, c1 - c0 + 1);
            for (int j = c0; j <= c1; ++j)
                for (int i = r0; i <= r1; ++i) {
                    part.At(i - r0, j - c0) = expected.At(i, j) = whole.At(i, j);
                    expected.At(j, i) = std::conj(whole.At(i, j));
                }
            matrix.SetValues(r0, r1, c0, c1, part.Data());
            int const q0 = Between(0, n - 1), q1 = Between(q0, n - 1);
            Block read(q1 - q0 + 1, r1 - r0 + 1);
            matrix.GetValues(q0, q1, r0, r1, read.Data());
            bool same = true;
            for (int j = r0; j <= r1; ++j)
                for (int i = q0; i <= q1; ++i)
                    same = same && read.At(i - q0, j - r0) == expected.At(i, j);
            ASSERT_TRUE(same);
        }
        ASSERT_TRUE(ValuesOf(matrix).values == expected.values);
        EXPECT_TRUE(matrix.IsHermitianNumerically());
        matrix.Scale(-3.0);
        std::ranges::for_each(expected.values, [](Complex& value) { value *= -3.0; });
        EXPECT_TRUE(ValuesOf(matrix).values == expected.values);
    }
}

TEST(KVOSrvHermitianScrDenseMatrix, RefusesWhatIsNotHermitianAndLeavesAllAsItWas)
{
    constexpr int kOrder = 90;
    Matrix matrix(kOrder, 32);
    Block all = RandomHermitian(kOrder);
    matrix.SetValues(0, kOrder - 1, 0, kOrder - 1, all.Data());
    auto const expectRefused = [&](Block& part, int r0, int c0) {
        ExpectThrows<KVOSrvMtxRefusedInput>(
            "KVOSrvHermitianScrDenseMatrix::SetValues - Illegal input: the range crosses the diagonal and is not Hermitian.",
            [&] { matrix.SetValues(r0, r0 + part.rows - 1, c0, c0 + part.columns - 1, part.Data()); });
    };
    for (int time = 0; time < 200; ++time) { // one flaw: the last bit of one number, or a diagonal that is not real
        int const r0 = Between(0, 40), c0 = Between(0, 40), first = std::max(r0, c0), last = std::min(r0 + 49, c0 + 44);
        Block part(50, 45);
        for (int j = 0; j < part.columns; ++j)
            for (int i = 0; i < part.rows; ++i)
                part.At(i, j) = 2.0 * all.At(r0 + i, c0 + j);
        Complex& flaw = part.At(Between(first, last) - r0, Between(first, last) - c0);
        flaw = flaw.imag() == 0.0   ? Complex(flaw.real(), 5e-324)
               : Between(0, 2) == 0 ? Complex(kNotANumber, 0.0)
                                    : Complex(flaw.real(), std::nextafter(flaw.imag(), 9.0));
        expectRefused(part, r0, c0);
    }
    double* const none = nullptr;
    ExpectEachThrows<KVOSrvMtxInvalidSetRange>({[&] { matrix.SetValues(-1, 0, 0, 0, all.Data()); },
                                                [&] { matrix.SetValues(0, 0, 3, 2, all.Data()); },
                                                [&] { matrix.SetValues(0, kOrder, 0, 0, all.Data()); }});
    ExpectEachThrows<KVOSrvMtxInvalidGetRange>(
        {[&] { matrix.GetValues(0, 0, -1, 0, all.Data()); }, [&] { matrix.GetValues(0, 0, 0, kOrder, all.Data()); }});
    ExpectEachThrows<KVOSrvMtxIllegalInput>({[&] { matrix.SetValues(0, 0, 0, 0, none); }, [&] { matrix.GetValues(0, 0, 0, 0, none); },
                                             [&] { matrix.Multiply(none, 1, all.Data()); },
                                             [&] { matrix.Multiply(all.Data(), 1, all.Data()); },
                                             [&] { matrix.Multiply(all.Data(), -1, none); }, [] { Matrix(0, 1); }, [] { Matrix(1, 0); }});
    EXPECT_TRUE(ValuesOf(matrix).values == all.values);

    Complex nan(0.0, kNotANumber);
    matrix.SetValues(80, 80, 3, 3, reinterpret_cast<double*>(&nan));
    EXPECT_FALSE(matrix.IsHermitianNumerically());
}

// Several blocks in a strip, several strips in a block, and strips that end within one; all vectors at once and, within little memory, few.
TEST(KVOSrvHermitianScrDenseMatrix, MultipliesAsAComplexLoopDoes)
{
    struct {
        int order, chunk, vectors;
        std::int64_t limit;
    } const cases[] = {{1, 1, 1, 0},     {50, 7, 130, 0},      {300, 64, 3, 0},     {1300, 700, 2, 0},
                       {2100, -1, 1, 0}, {300, 64, 5, 60'000}, {200, -1, 7, 16'384}};
    for (auto const& [n, chunk, k, limit] : cases) {
        SCOPED_TRACE(testing::Message() << n << ", chunks of " << chunk << ", " << k << " vectors in " << limit << " bytes");
        Matrix matrix(n, chunk);
        Block all = RandomHermitian(n), X = RandomBlock(n, k), Y(n, k);
        matrix.SetValues(0, n - 1, 0, n - 1, all.Data());
        std::ranges::fill(Y.values, Complex(kNotANumber, kNotANumber)); // to be overwritten
        auto const scoped = limit == 0 ? nullptr : std::make_unique<KVOSrvProductMemory>(limit);
        matrix.Multiply(X.Data(), k, Y.Data());
        ExpectProduct(all, X, Y);
    }

    Matrix const matrix(1000, 100);
    Block X = RandomBlock(1000, 1), Y = X;
    KVOSrvProductMemory const limit(16'383);
    ExpectThrows<KVOSrvMtxIllegalInput>(
        "KVOSrvHermitianScrDenseMatrix::Multiply - Illegal input: the limit of memory is too small, 16384 bytes would do.",
        [&] { matrix.Multiply(X.Data(), 1, Y.Data()); });
    EXPECT_TRUE(Y.values == X.values);
}

TEST(KVOSrvHermitianScrDenseMatrix, HasOneFileOfHalfTheSize)
{
    constexpr int kOrder = 512;
    WorkingFolder const folder; // the temporary directory, unless another one was set
    {
        Matrix matrix(kOrder, 128);
        matrix.SetValues(0, kOrder - 1, 0, kOrder - 1, RandomHermitian(kOrder).Data());
        ASSERT_EQ(folder.Files().size(), 1U);
        EXPECT_LT(std::filesystem::file_size(folder / folder.Files()[0]), 1.1 * sizeof(double) * kOrder * kOrder);
    }
    EXPECT_TRUE(folder.Files().empty());
}
