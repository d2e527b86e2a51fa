#include "DenseKernels.h"

#include "Dense.h"

#include <bit>
#include <cstdint>
#include <tuple>

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

// Compares everything, padding included, to the bit.
void ExpectSame(Array const& a, Array const& b)
{
    EXPECT_TRUE(std::ranges::equal(a.values, b.values, SameBits));
}

int const kOrders[] = {0, 1, 2, 7, 8, 9, 16, 31, 255, 256, 257, 271, 520}; // around the tile of 8 and the supertile of 256

// Lets what is larger than 16 MiB go past the cache, and nothing.
KVOBasProcessor const kProcessors[] = {KVOBasProcessor::Named("zen2"), KVOBasProcessor::Named("unknown")};

void ExpectInPlace(int n, int padding, KVOBasProcessor const& processor)
{
    SCOPED_TRACE(testing::Message() << "order " << n << ", padding " << padding);
    Array original(n, n, padding), array = original;
    // Those places that moves(i, j) names receive what lies mirrored, its sign flipped or not.
    auto const expectMirrored = [&](auto const& moves, Sign sign = Sign::Keep) {
        Array expected = original;
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i)
                if (moves(i, j))
                    expected.At(i, j) = sign == Sign::Flip ? -original.At(j, i) : original.At(j, i);
        ExpectSame(array, expected);
        array = original;
    };
    DenseKernels::TransposeInPlace(n, array.Data(), array.lda);
    expectMirrored([](int i, int j) { return i != j; });
    for (Sign sign : {Sign::Keep, Sign::Flip}) {
        DenseKernels::MirrorTriangle(n, Triangle::Lower, sign, array.Data(), array.lda, processor);
        expectMirrored([](int i, int j) { return i < j; }, sign);
        DenseKernels::MirrorTriangle(n, Triangle::Upper, sign, array.Data(), array.lda, processor);
        expectMirrored([](int i, int j) { return i > j; }, sign);
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
    for (auto const& [name, kibibytes, passes] : {std::tuple("zen2", 16383, false),
                                                  {"zen2", 16384, true},
                                                  {"skylake-sp", 32 << 10, false},
                                                  {"skylake-sp", 36 << 10, true},
                                                  {"unknown", 4 << 20, false}})
        EXPECT_EQ(DenseKernels::PassesCache(KVOBasProcessor::Named(name), std::int64_t{kibibytes} * 128), passes) << name << kibibytes;
}

TEST(DenseKernels, ComparisonsSeeEveryElement)
{
    for (auto const& [m, n] : {std::pair(0, 3), {1, 1}, {2, 2}, {7, 9}, {9, 15}, {8, 8}, {9, 9}, {17, 40}, {31, 31}, {271, 271}}) {
        SCOPED_TRACE(testing::Message() << m << " x " << n);
        Array a(m, n, 3), b(n, m, 1); // what pads them differs
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < m; ++i)
                a.At(i, j) = b.At(j, i) = 1.0 * i * j;
        auto const expectEqual = [&, rows = m, columns = n](bool equal, bool onDiagonal) {
            EXPECT_EQ(DenseKernels::EqualsTransposed(rows, columns, a.Data(), a.lda, b.Data(), b.lda), equal);
            EXPECT_TRUE(rows != columns || DenseKernels::IsSymmetric(rows, a.Data(), a.lda) == (equal || onDiagonal));
        };
        expectEqual(true, true);
        int const step = n > 60 ? 15 : 1;
        for (int j = 0; j < n; j += step)
            for (int i = 0; i < m; i += step) {
                double const right = a.At(i, j);
                for (double const value : {std::nextafter(right, 1e9), kNotANumber, -right}) {
                    SCOPED_TRACE(testing::Message() << value << " at " << i << ", " << j);
                    a.At(i, j) = value;
                    expectEqual(value == right, i == j);
                }
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
