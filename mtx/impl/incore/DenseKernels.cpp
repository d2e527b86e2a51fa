#include "DenseKernels.h"

#include <algorithm>
#include <cstring>
#include <utility>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace DenseKernels
{

namespace
{

// A tile of 8 x 8 doubles is one cache line wide on both sides, so each line is read and written whole: with a leading dimension of a power
// of two the lines of a tile fall into one or two sets of the cache and would not survive a second visit. Within a supertile the pages of
// both sides stay in the TLB: at 4096 x 4096 that takes 1.8 times a memcpy, tiles of 8 x 8 without supertiles 3.7 (docs/measurements.md).
// Neither asks the processor: the cache line is common to all of them, and the 512 pages that both sides of a supertile need are within
// reach of every second-level translation buffer since 2013.
constexpr std::int64_t kTile = 8;
constexpr std::int64_t kSuperTile = 256;

// Two rows at a time: 2 x 2 squares are transposed in registers, by instructions that every 64-bit processor of the family has.
typedef double Pair __attribute__((vector_size(2 * sizeof(double))));
typedef std::int64_t PairMask __attribute__((vector_size(2 * sizeof(std::int64_t))));

inline Pair Load(double const* p)
{
    Pair pair;
    std::memcpy(&pair, p, sizeof pair);
    return pair;
}

inline void Store(double* p, Pair pair)
{
    std::memcpy(p, &pair, sizeof pair);
}
#ifdef __SSE2__
inline void Stream(double* p, Pair pair)
{
    _mm_stream_pd(p, pair);
}
inline void FenceStreams()
{
    _mm_sfence();
}
#else
inline void Stream(double* p, Pair pair)
{
    Store(p, pair);
}
inline void FenceStreams() {}
#endif
inline Pair Firsts(Pair x, Pair y)
{
    return __builtin_shufflevector(x, y, 0, 2);
}
inline Pair Seconds(Pair x, Pair y)
{
    return __builtin_shufflevector(x, y, 1, 3);
}
// The sign bit alone: also that of a zero or a NaN.
inline Pair Signed(Pair x, Sign sign)
{
    return sign == Sign::Flip ? -x : x;
}
inline double Signed(double x, Sign sign)
{
    return sign == Sign::Flip ? -x : x;
}

template<Sign sign>
void TransposeTile(double const* a, std::int64_t lda, double* b, std::int64_t ldb)
{
    for (std::int64_t i = 0; i < kTile; i += 2)
        for (std::int64_t j = 0; j < kTile; j += 2) {
            Pair const x = Load(a + i + j * lda), y = Load(a + i + (j + 1) * lda);
            Store(b + j + i * ldb, Signed(Firsts(x, y), sign));
            Store(b + j + (i + 1) * ldb, Signed(Seconds(x, y), sign));
        }
}

// The same, past the cache: a line of `b` that is written whole need not be read first. `b` begins at a line, `ldb` is whole lines.
template<Sign sign>
void StreamTile(double const* a, std::int64_t lda, double* b, std::int64_t ldb)
{
    for (std::int64_t i = 0; i < kTile; i += 2)
        for (std::int64_t second = 0; second < 2; ++second) // line by line, so that each leaves its write buffer full
            for (std::int64_t j = 0; j < kTile; j += 2) {
                Pair const x = Load(a + i + j * lda), y = Load(a + i + (j + 1) * lda);
                Stream(b + j + (i + second) * ldb, Signed(second == 0 ? Firsts(x, y) : Seconds(x, y), sign));
            }
}

// Elements from `p` on to where a cache line begins.
std::int64_t ToNextLine(double const* p)
{
    return -static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(p) / sizeof(double)) & (kTile - 1);
}

// b := a^T by tiles from column `firstColumn` on, what no tile covers element by element.
template<class Tile>
void TransposeByTiles(std::int64_t rows, std::int64_t columns, std::int64_t firstColumn, double const* a, std::int64_t lda, double* b,
                      std::int64_t ldb, Tile const& tile)
{
    auto const plain = [=](std::int64_t i0, std::int64_t i1, std::int64_t j0, std::int64_t j1) {
        for (std::int64_t j = j0; j < j1; ++j)
            for (std::int64_t i = i0; i < i1; ++i)
                b[j + i * ldb] = a[i + j * lda];
    };
    std::int64_t const endRow = rows - rows % kTile, endColumn = columns - (columns - firstColumn) % kTile;
    for (std::int64_t jj = firstColumn; jj < endColumn; jj += kSuperTile)
        for (std::int64_t ii = 0; ii < endRow; ii += kSuperTile)
            for (std::int64_t j = jj; j < std::min(endColumn, jj + kSuperTile); j += kTile)
                for (std::int64_t i = ii; i < std::min(endRow, ii + kSuperTile); i += kTile)
                    tile(a + i + j * lda, lda, b + j + i * ldb, ldb);
    plain(endRow, rows, 0, columns);
    plain(0, endRow, 0, firstColumn);
    plain(0, endRow, endColumn, columns);
}

void SwapTiles(double* lower, double* upper, std::int64_t lda)
{
    for (std::int64_t i = 0; i < kTile; i += 2)
        for (std::int64_t j = 0; j < kTile; j += 2) {
            double *const l = lower + i + j * lda, *const u = upper + j + i * lda;
            Pair const x = Load(l), y = Load(l + lda), v = Load(u), w = Load(u + lda);
            Store(u, Firsts(x, y));
            Store(u + lda, Seconds(x, y));
            Store(l, Firsts(v, w));
            Store(l + lda, Seconds(v, w));
        }
}

// Walking along a row, no prefetcher of the processor follows the lines of the tiles. They are fetched kAhead columns before they are used,
// into the second level of the cache: with a leading dimension of a power of two they would drive each other out of the first.
// Comparing squares of 512 takes 1.1 times a copy so, 1.7 without fetching. The 64 lines on their way are 4 KiB of the second level: no
// choice by the processor.
constexpr std::int64_t kAhead = 8 * kTile;

void FetchTile(double const* a, std::int64_t lda)
{
    for (std::int64_t k = 0; k < kTile; ++k)
        __builtin_prefetch(a + k * lda, 0, 2);
}

bool TilesEqual(double const* a, std::int64_t lda, double const* b, std::int64_t ldb)
{
    PairMask equal = {-1, -1};
    for (std::int64_t i = 0; i < kTile; i += 2)
        for (std::int64_t j = 0; j < kTile; j += 2) {
            double const *const l = a + i + j * lda, *const u = b + j + i * ldb;
            Pair const x = Load(l), y = Load(l + lda);
            equal &= (Firsts(x, y) == Load(u)) & (Seconds(x, y) == Load(u + ldb));
        }
    return (equal[0] & equal[1]) != 0;
}

// Visits the tile of order n whose lower-triangle corner is (i, j), i >= j: whole() for a full one below the diagonal, element() for each
// element below the diagonal of any other. Stops at a false.
template<class Whole, class Element>
bool VisitTile(std::int64_t n, std::int64_t i, std::int64_t j, Whole const& whole, Element const& element)
{
    if (i > j && i + kTile <= n) // j + kTile <= n follows
        return whole(i, j);
    for (std::int64_t y = j; y < std::min(n, j + kTile); ++y)
        for (std::int64_t x = std::max(i, y + 1); x < std::min(n, i + kTile); ++x)
            if (!element(x, y))
                return false;
    return true;
}

// Visits each tile on or below the diagonal once. `inward` names the triangle whose columns are walked downwards, the one that the
// prefetcher follows: for copying the one that is read (1.7 times as fast as the other).
template<class Whole, class Element>
bool VisitTiles(std::int64_t n, Triangle inward, Whole const& whole, Element const& element)
{
    bool const lower = inward == Triangle::Lower;
    for (std::int64_t outer = 0; outer < n; outer += kSuperTile)
        for (std::int64_t inner = lower ? outer : 0; inner < (lower ? n : outer + 1); inner += kSuperTile)
            for (std::int64_t p = outer; p < std::min(n, outer + kSuperTile); p += kTile) {
                std::int64_t const first = lower ? std::max(inner, p) : inner;
                std::int64_t const end = std::min(inner + kSuperTile, lower ? n : p + 1);
                for (std::int64_t q = first; q < end; q += kTile)
                    if (!VisitTile(n, lower ? q : p, lower ? p : q, whole, element))
                        return false;
            }
    return true;
}

// Tile by tile with `tile`, what no tile covers element by element.
template<Sign sign, class Tile>
void MirrorByTiles(std::int64_t n, Triangle from, double* a, std::int64_t lda, Tile const& tile)
{
    bool const lower = from == Triangle::Lower;
    VisitTiles(
        n, from,
        [=](std::int64_t i, std::int64_t j) {
            double *const l = a + i + j * lda, *const u = a + j + i * lda;
            tile(lower ? l : u, lda, lower ? u : l, lda);
            return true;
        },
        [=](std::int64_t i, std::int64_t j) {
            double &l = a[i + j * lda], &u = a[j + i * lda];
            (lower ? u : l) = Signed(lower ? l : u, sign);
            return true;
        });
}

template<Sign sign>
void MirrorSigned(std::int64_t n, Triangle from, double* a, std::int64_t lda, KVOBasProcessor const& processor)
{
    if (lda % kTile != 0 || !PassesCache(processor, n * n)) {
        MirrorByTiles<sign>(n, from, a, lda, TransposeTile<sign>);
        return;
    }
    // The first rows and columns up to a line; the rest is a matrix that begins at one.
    std::int64_t const first = std::min(ToNextLine(a), n);
    for (std::int64_t j = 0; j < first; ++j)
        for (std::int64_t i = j + 1; i < n; ++i) {
            double &l = a[i + j * lda], &u = a[j + i * lda];
            (from == Triangle::Lower ? u : l) = Signed(from == Triangle::Lower ? l : u, sign);
        }
    MirrorByTiles<sign>(n - first, from, a + first * (1 + lda), lda, StreamTile<sign>);
    FenceStreams();
}

} // namespace

void Copy(int rows, int columns, double const* source, std::int64_t lds, double* target, std::int64_t ldt)
{
    ForEachRun(rows, columns, source, lds, target, ldt, [](double const* from, double* to, std::int64_t count) {
        std::memmove(to, from, static_cast<std::size_t>(count) * sizeof(double));
    });
}

// Stores past the cache: on a Zen 4, 4096 x 4096, a transposition in 1.1 instead of 1.8 times memcpy, the mirror of a triangle in 0.9
// instead of 1.3. What is smaller than the last cache would be there when it is used.
bool PassesCache(KVOBasProcessor const& processor, std::int64_t entries)
{
    return processor.choices.storesPastCache &&
           entries * static_cast<std::int64_t>(sizeof(double)) >= static_cast<std::int64_t>(std::max(processor.l3Bytes, processor.l2Bytes));
}

void Transpose(int rows, int columns, double const* a, std::int64_t lda, double* b, std::int64_t ldb, KVOBasProcessor const& processor)
{
    if (ldb % kTile != 0 || !PassesCache(processor, std::int64_t{rows} * columns)) {
        TransposeByTiles(rows, columns, 0, a, lda, b, ldb, TransposeTile<Sign::Keep>);
        return;
    }
    TransposeByTiles(rows, columns, std::min<std::int64_t>(ToNextLine(b), columns), a, lda, b, ldb, StreamTile<Sign::Keep>);
    FenceStreams();
}

void TransposeInPlace(int n, double* a, std::int64_t lda)
{
    VisitTiles(
        n, Triangle::Lower,
        [=](std::int64_t i, std::int64_t j) {
            SwapTiles(a + i + j * lda, a + j + i * lda, lda);
            return true;
        },
        [=](std::int64_t i, std::int64_t j) {
            std::swap(a[i + j * lda], a[j + i * lda]);
            return true;
        });
}

void MirrorTriangle(int n, Triangle from, Sign sign, double* a, std::int64_t lda, KVOBasProcessor const& processor)
{
    sign == Sign::Flip ? MirrorSigned<Sign::Flip>(n, from, a, lda, processor) : MirrorSigned<Sign::Keep>(n, from, a, lda, processor);
}

// A sum and a difference apart, since they are exact where the product with the factor is not faster, and the usual cases.
void AddMultiple(double f, double const* source, std::int64_t count, double* target, std::int64_t stride)
{
    auto const apply = [=](auto const& sum) {
        if (stride == 1)
            for (std::int64_t i = 0; i < count; ++i)
                target[i] = sum(target[i], source[i]);
        else
            for (std::int64_t i = 0; i < count; ++i)
                target[i * stride] = sum(target[i * stride], source[i]);
    };
    if (f == 1.0)
        apply([](double x, double y) { return x + y; });
    else if (f == -1.0)
        apply([](double x, double y) { return x - y; });
    else
        apply([f](double x, double y) { return x + f * y; });
}

bool IsSymmetric(int n, double const* a, std::int64_t lda)
{
    return VisitTiles(
        n, Triangle::Lower,
        [=](std::int64_t i, std::int64_t j) {
            if (i + kAhead + kTile <= n)
                FetchTile(a + j + (i + kAhead) * lda, lda);
            return TilesEqual(a + i + j * lda, lda, a + j + i * lda, lda);
        },
        [=](std::int64_t i, std::int64_t j) { return a[i + j * lda] == a[j + i * lda]; });
}

bool EqualsTransposed(int rows, int columns, double const* a, std::int64_t lda, double const* b, std::int64_t ldb)
{
    auto const plain = [=](std::int64_t i0, std::int64_t i1, std::int64_t j0, std::int64_t j1) {
        for (std::int64_t j = j0; j < j1; ++j)
            for (std::int64_t i = i0; i < i1; ++i)
                if (!(a[i + j * lda] == b[j + i * ldb]))
                    return false;
        return true;
    };
    std::int64_t const endRow = rows - rows % kTile, endColumn = columns - columns % kTile;
    for (std::int64_t j = 0; j < endColumn; j += kTile)
        for (std::int64_t i = 0; i < endRow; i += kTile) {
            if (i + kAhead < endRow)
                FetchTile(b + j + (i + kAhead) * ldb, ldb);
            if (!TilesEqual(a + i + j * lda, lda, b + j + i * ldb, ldb))
                return false;
        }
    return plain(endRow, rows, 0, columns) && plain(0, endRow, endColumn, columns);
}

} // namespace DenseKernels
