#include "DenseKernels.h"
#include "TriangleBlocks.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
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
bool Same(Array const& a, Array const& b)
{
    return std::equal(a.values.begin(), a.values.end(), b.values.begin(), [](double x, double y) { return Bits(x) == Bits(y); });
}

int const kOrders[] = {0, 1, 2, 7, 8, 9, 16, 31, 255, 256, 257, 271, 520}; // around the tile of 8 and the supertile of 256

TEST(DenseKernels, TransposeAndMirrorInPlace)
{
    for (int n : kOrders)
        for (int padding : {0, 3}) {
            SCOPED_TRACE(testing::Message() << "order " << n << ", padding " << padding);
            Array const original(n, n, padding);
            Array source = original, array = original, expected = original;
            for (int j = 0; j < n; ++j)
                for (int i = 0; i < n; ++i)
                    expected.At(i, j) = source.At(j, i);
            DenseKernels::TransposeInPlace(n, array.Data(), array.lda);
            EXPECT_TRUE(Same(array, expected));

            for (Triangle from : {Triangle::Lower, Triangle::Upper})
                for (Sign sign : {Sign::Keep, Sign::Flip}) {
                    array = expected = original;
                    for (int j = 0; j < n; ++j)
                        for (int i = 0; i < n; ++i)
                            if (from == Triangle::Lower ? i < j : i > j)
                                expected.At(i, j) =
                                    std::bit_cast<double>(Bits(source.At(j, i)) ^ (std::uint64_t{sign == Sign::Flip} << 63));
                    DenseKernels::MirrorTriangle(n, from, sign, array.Data(), array.lda);
                    EXPECT_TRUE(Same(array, expected));
                }
        }
}

TEST(DenseKernels, IsSymmetricSeesEveryElementOffTheDiagonal)
{
    for (int n : {1, 2, 8, 9, 31, 271}) {
        Array array(n, n, 3);
        std::fill(array.values.begin(), array.values.end(), 0.0);
        for (int j = 0; j<n; j += n> 60 ? 15 : 1)
            for (int i = 0; i<n; i += n> 60 ? 15 : 1)
                for (double value : {std::numeric_limits<double>::denorm_min(), std::numeric_limits<double>::quiet_NaN(), -0.0}) {
                    array.At(i, j) = value;
                    EXPECT_EQ(DenseKernels::IsSymmetric(n, array.Data(), array.lda), i == j || value == 0.0) << i << ", " << j;
                    array.At(j, i) = value;
                    EXPECT_EQ(DenseKernels::IsSymmetric(n, array.Data(), array.lda), i == j || value == value) << i << ", " << j;
                    array.At(i, j) = array.At(j, i) = 0.0;
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
        Array source(c[0], c[1], c[2]), target(c[1], c[0], c[3]), expected = target;
        for (int j = 0; j < c[1]; ++j)
            for (int i = 0; i < c[0]; ++i)
                expected.At(j, i) = source.At(i, j);
        DenseKernels::Transpose(c[0], c[1], source.Data(), source.lda, target.Data(), target.lda);
        EXPECT_TRUE(Same(target, expected));
    }
}

TEST(TriangleBlocks, CoverEachEntryOfTheTriangleOnceAndNoOther)
{
    for (int size : {0, 1, 127, 128, 129, 257, 700})
        for (int beyond : {0, 300})
            for (bool remainderFirst : {true, false}) {
                SCOPED_TRACE(testing::Message() << size << " + " << beyond << (remainderFirst ? ", remainder first" : ""));
                TriangleBlocks::Cut const cut{size, 128, remainderFirst};
                std::vector<int> covered(static_cast<std::size_t>(size) * (size + beyond), 0);
                TriangleBlocks::Cover(cut, 0, cut.NumberOfBlocks(), size + beyond, [&](int first, int end, int otherFirst, int otherEnd) {
                    for (int other = otherFirst; other < otherEnd; ++other)
                        for (int strip = first; strip < end; ++strip)
                            ++covered[strip + static_cast<std::size_t>(other) * size];
                });
                int const firstBlock = remainderFirst && size % 128 != 0 ? size % 128 : 128;
                int wrong = 0;
                for (int strip = 0; strip < size; ++strip) {
                    int const blockStart = strip < firstBlock ? 0 : firstBlock + (strip - firstBlock) / 128 * 128;
                    for (int other = 0; other < size + beyond; ++other)
                        wrong += covered[strip + static_cast<std::size_t>(other) * size] != (other >= blockStart ? 1 : 0);
                }
                EXPECT_EQ(wrong, 0);
            }
}

} // namespace
