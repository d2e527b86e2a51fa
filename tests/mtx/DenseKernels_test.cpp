#include "DenseKernels.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <utility>
#include <vector>

namespace
{

using DenseKernels::Sign;
using DenseKernels::Triangle;

// Distinct values, among them -0 and NaNs of both signs, with padding up to the leading dimension; it begins within a cache line.
struct Array {
    Array(int rows, int columns, int padding) : lda(rows + padding), values(1 + static_cast<std::size_t>(lda) * columns)
    {
        for (std::size_t k = 0; k < values.size(); ++k)
            values[k] = k % 11 == 0   ? -0.0
                        : k % 13 == 0 ? std::bit_cast<double>((k << 63) + 0x7ff8000000000000 + k)
                                      : 1.0 + static_cast<double>(k);
    }
    double* Data() { return values.data() + 1; }
    double& At(int i, int j) { return Data()[i + j * lda]; }
    std::int64_t lda;
    std::vector<double> values;
};

std::uint64_t Bits(double x)
{
    return std::bit_cast<std::uint64_t>(x);
}

// Compares everything, padding included, to the bit.
void ExpectSame(Array const& a, Array const& b)
{
    EXPECT_TRUE(std::ranges::equal(a.values, b.values, {}, Bits, Bits));
}

int const kOrders[] = {0, 1, 2, 7, 8, 9, 16, 31, 255, 256, 257, 271, 520}; // around the tile of 8 and the supertile of 256

// Lets what is larger than 16 MiB go past the cache, and nothing.
KVOBasProcessor const kProcessors[] = {KVOBasProcessor::Named("zen2"), KVOBasProcessor::Named("unknown")};

void ExpectInPlace(int n, int padding, KVOBasProcessor const& processor)
{
    SCOPED_TRACE(testing::Message() << "order " << n << ", padding " << padding);
    Array original(n, n, padding), array = original;
    // Those places that moves(i, j) names receive what lies mirrored, its sign flipped or not.
    auto const expectMirrored = [&](auto const& moves, std::uint64_t sign = 0) {
        Array expected = original;
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i)
                if (moves(i, j))
                    expected.At(i, j) = std::bit_cast<double>(Bits(original.At(j, i)) ^ sign << 63);
        ExpectSame(array, expected);
        array = original;
    };
    DenseKernels::TransposeInPlace(n, array.Data(), array.lda);
    expectMirrored([](int i, int j) { return i != j; });
    for (Sign sign : {Sign::Keep, Sign::Flip}) {
        DenseKernels::MirrorTriangle(n, Triangle::Lower, sign, array.Data(), array.lda, processor);
        expectMirrored([](int i, int j) { return i < j; }, sign == Sign::Flip);
        DenseKernels::MirrorTriangle(n, Triangle::Upper, sign, array.Data(), array.lda, processor);
        expectMirrored([](int i, int j) { return i > j; }, sign == Sign::Flip);
    }
}

TEST(DenseKernels, TransposeAndMirrorInPlace)
{
    for (KVOBasProcessor const& processor : kProcessors) {
        for (int n : kOrders)
            for (int padding : {0, 3})
                ExpectInPlace(n, padding, processor);
        ExpectInPlace(1501, 3, processor); // of whole lines, and begins within one
    }
}

TEST(DenseKernels, PassCacheByProcessor)
{
    auto const passes = [](char const* name, std::int64_t bytes) {
        return DenseKernels::PassesCache(KVOBasProcessor::Named(name), bytes / 8);
    };
    EXPECT_FALSE(passes("zen2", 16383 << 10));
    EXPECT_TRUE(passes("zen2", 16384 << 10));
    EXPECT_FALSE(passes("skylake-sp", 32 << 20));
    EXPECT_TRUE(passes("skylake-sp", 36 << 20));
    EXPECT_FALSE(passes("unknown", std::int64_t{1} << 32));
}

TEST(DenseKernels, IsSymmetricSeesEveryElementOffTheDiagonal)
{
    for (int n : {1, 2, 8, 9, 31, 271}) {
        Array array(n, n, 3);
        std::ranges::fill(array.values, 0.0);
        int const step = n > 60 ? 15 : 1;
        for (int j = 0; j < n; j += step)
            for (int i = 0; i < n; i += step)
                for (double value : {std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::quiet_NaN(), -0.0}) {
                    array.At(i, j) = value;
                    EXPECT_EQ(DenseKernels::IsSymmetric(n, array.Data(), array.lda), i == j || value == 0.0) << i << ", " << j;
                    array.At(j, i) = value;
                    EXPECT_EQ(DenseKernels::IsSymmetric(n, array.Data(), array.lda), i == j || value == value) << i << ", " << j;
                    array.At(i, j) = array.At(j, i) = 0.0;
                }
    }
}

TEST(DenseKernels, EqualsTransposedSeesEveryElement)
{
    for (auto const& [rows, columns] : std::vector<std::pair<int, int>>{{0, 3}, {1, 1}, {7, 9}, {9, 15}, {8, 8}, {17, 40}}) {
        SCOPED_TRACE(testing::Message() << rows << " x " << columns);
        Array a(rows, columns, 3), b(columns, rows, 1); // what pads them differs
        for (int j = 0; j < columns; ++j)
            for (int i = 0; i < rows; ++i)
                a.At(i, j) = b.At(j, i) = i + 100 * j;
        auto const equal = [&, m = rows, n = columns] { return DenseKernels::EqualsTransposed(m, n, a.Data(), a.lda, b.Data(), b.lda); };
        EXPECT_TRUE(equal());
        for (int j = 0; j < columns; ++j)
            for (int i = 0; i < rows; ++i)
                for (double const wrong : {-1.0, std::numeric_limits<double>::quiet_NaN()}) {
                    double const right = std::exchange(a.At(i, j), wrong);
                    EXPECT_FALSE(equal()) << i << ", " << j;
                    a.At(i, j) = right;
                }
    }
}

TEST(DenseKernels, TransposeOutOfPlace)
{
    std::vector<std::vector<int>> cases{{2053, 2056, 0, 0}, {2053, 2049, 1, 7}, {3, 1398104, 0, 0}}; // large ones pass the cache by
    for (int rows : kOrders)
        for (int columns : {0, 1, 7, 8, 257, 264})
            cases.push_back({rows, columns, rows % 3, columns % 5});
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << c[0] << " x " << c[1]);
        Array source(c[0], c[1], c[2]), original(c[1], c[0], c[3]), expected = original;
        for (int j = 0; j < c[1]; ++j)
            for (int i = 0; i < c[0]; ++i)
                expected.At(j, i) = source.At(i, j);
        for (KVOBasProcessor const& processor : kProcessors) {
            Array target = original;
            DenseKernels::Transpose(c[0], c[1], source.Data(), source.lda, target.Data(), target.lda, processor);
            ExpectSame(target, expected);
        }
    }
}

} // namespace
