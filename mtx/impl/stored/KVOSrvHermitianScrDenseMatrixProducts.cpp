// Products of a Hermitian matrix with complex vectors.

#include "DenseChecks.h"
#include "DenseGemm.h"
#include "DenseSource.h"
#include "HermitianPieces.h"
#include "KVOSrvHermitianScrDenseMatrix.h"

using namespace DensePieces;
using namespace HermitianPieces;
using DenseSlabs::Factor, DenseSlabs::Multiply, DenseSlabs::Result, DenseSlabs::Span;

namespace
{

// The rows, and alike the columns, in strips; a strip of each makes a piece. Some blocks if these are small, so that a call of DGEMM has
// something to do; parts of one if they are large, so that memory does not go with them.
constexpr int kLeastStrip = 1024, kMostStrip = 2048;

constexpr int kMostVectors = 1024;                                   // of a product at a time
constexpr std::int64_t kOfX = 4, kOfY = 2, kOfComplex = kOfX + kOfY; // numbers that a product keeps for each complex one

class Strips
{
public:
    /// @param most  rows of a strip
    Strips(KVOSrvDenseMatrix const& matrix, int most) : m_order(matrix.NumberOfRows())
    {
        int const block = std::min(matrix.MaxNumberOfRowsInBlock(), matrix.MaxNumberOfColumnsInBlock());
        m_size = std::clamp(block * std::max(1, kLeastStrip / block), 1, std::min(most, m_order));
    }

    int Count() const noexcept { return (m_order - 1) / m_size + 1; }
    Span At(int strip) const noexcept
    {
        return {strip * m_size, static_cast<int>(std::min<std::int64_t>(std::int64_t{strip + 1} * m_size, m_order)) - 1};
    }
    int Size() const noexcept { return m_size; }

private:
    int m_order;
    int m_size;
};

// The rows of some vectors that belong to a strip, real and imaginary numbers apart: of X = [-Im Re Im -Re], so that X, i X and -i X are
// consecutive columns of it, and of Y = [Re Im].
struct StripVectors {
    int rows, count; // count: of the complex vectors
    double* x;
    double* y;

    static std::int64_t Entries(std::int64_t rows, std::int64_t count) noexcept { return kOfComplex * rows * count; }
    /// In Entries() numbers at `memory`.
    StripVectors(Span strip, int vectors, double* memory)
        : rows(strip.Count()), count(vectors), x(memory), y(memory + kOfX * std::int64_t{rows} * vectors)
    {
    }

    /// Columns of each operand of a real product.
    int Columns() const noexcept { return 2 * count; }
    Factor X() const noexcept { return Factor{x, rows}.At(0, count); }
    Factor TimesI() const noexcept { return {x, rows}; }
    Factor TimesMinusI() const noexcept { return Factor{x, rows}.At(0, 2 * std::int64_t{count}); }
    Result Y() const noexcept { return {y, rows}; }

    /// Takes X and clears Y. @param values  of the strip's first row, in vectors of `order` rows
    void Load(double const* values, int order) const
    {
        std::fill_n(y, kOfY * std::int64_t{rows} * count, 0.0);
        std::int64_t const next = std::int64_t{count} * rows;
        ForEachNumber(values, order, [&](std::int64_t at, double const* complex) {
            x[at] = -complex[1];
            x[at + next] = complex[0];
            x[at + 2 * next] = complex[1];
            x[at + 3 * next] = -complex[0];
        });
    }
    /// Adds Y.
    void AddTo(double* values, int order) const
    {
        ForEachNumber(values, order, [&](std::int64_t at, double* complex) {
            complex[0] += y[at];
            complex[1] += y[at + std::int64_t{count} * rows];
        });
    }

private:
    template<class Number, class Run>
    void ForEachNumber(Number* values, int order, Run const& run) const
    {
        for (std::int64_t vector = 0; vector < count; ++vector)
            for (std::int64_t i = 0; i < rows; ++i)
                run(i + vector * rows, values + 2 * (i + vector * order));
    }
};

// A square on the diagonal, in memory, and what of the vectors belongs to it.
struct Square {
    Factor values; // S in and below the diagonal, K above it
    int order, columns;
    Factor x, timesI, timesMinusI;
    Result y;

    Square(Factor const& piece, StripVectors const& vectors)
        : values(piece), order(vectors.rows), columns(vectors.Columns()), x(vectors.X()), timesI(vectors.TimesI()),
          timesMinusI(vectors.TimesMinusI()), y(vectors.Y())
    {
    }
    Square Part(int first, int count) const
    {
        Square part = *this;
        part.order = count;
        part.values = values.At(first, first);
        for (Factor* const factor : {&part.x, &part.timesI, &part.timesMinusI})
            *factor = factor->At(first, 0);
        part.y = y.At(first, 0);
        return part;
    }
};

// Y += H X for a square that is small enough for S and K in full.
constexpr int kSmallSquare = 64;
void MultiplySmall(Square const& square)
{
    double real[kSmallSquare * kSmallSquare], imaginary[kSmallSquare * kSmallSquare];
    int const n = square.order;
    for (int j = 0; j < n; ++j)
        for (int i = j; i < n; ++i) {
            double const s = *square.values.At(i, j).values, k = i == j ? 0.0 : *square.values.At(j, i).values;
            real[i + j * n] = real[j + i * n] = s;
            imaginary[j + i * n] = k;
            imaginary[i + j * n] = -k;
        }
    Multiply("N", {n, square.columns, n}, 1.0, {real, n}, square.x, 1.0, square.y);
    Multiply("N", {n, square.columns, n}, 1.0, {imaginary, n}, square.timesI, 1.0, square.y);
}

// Y += H X, by halves: what lies off the diagonal is multiplied where it is. S and K in full would take as long to form as the product with
// a few vectors.
void MultiplySquare(Square const& square)
{
    if (square.order <= kSmallSquare)
        return MultiplySmall(square);
    int const n = square.order / 2, m = square.order - n, p = square.columns;
    Square const high = square.Part(0, n), low = square.Part(n, m);
    MultiplySquare(high);
    MultiplySquare(low);
    Factor const real = square.values.At(n, 0), imaginary = square.values.At(0, n);
    Multiply("N", {m, p, n}, 1.0, real, high.x, 1.0, low.y);
    Multiply("T", {n, p, m}, 1.0, real, low.x, 1.0, high.y);
    Multiply("N", {n, p, m}, 1.0, imaginary, low.timesI, 1.0, high.y);
    Multiply("T", {m, p, n}, 1.0, imaginary, high.timesMinusI, 1.0, low.y);
}

constexpr Window PieceAt(Span rows, Span columns)
{
    return {rows.first, rows.last, columns.first, columns.last};
}

// Calls run(high, low) for the pieces below the diagonal and on it: strips `low` of the rows and `high` of the columns.
template<class Run>
void ForEachPair(Strips const& strips, Run const& run)
{
    for (int high = 0; high < strips.Count(); ++high)
        for (int low = high; low < strips.Count(); ++low)
            run(high, low);
}

// Y += H X with all of the vectors in memory, by the products of stored matrices: each two pieces that mirror each other are used straight
// and transposed before the next ones are read.
void MultiplyInMemory(KVOSrvDenseMatrix const& stored, double const* X, int k, double* Y)
{
    int const order = stored.NumberOfRows();
    Strips const strips(stored, kMostStrip);
    Buffer const memory(StripVectors::Entries(order, k)), square(std::int64_t{strips.Size()} * strips.Size());
    auto const at = [&](int strip) {
        return StripVectors(strips.At(strip), k, memory.Values() + StripVectors::Entries(strips.At(strip).first, k));
    };
    for (int strip = 0; strip < strips.Count(); ++strip)
        at(strip).Load(X + 2 * strips.At(strip).first, order);
    // With few vectors the products take the blocks where they lie, fetched in large pages, which an announcement prevents.
    bool const announces = 2 * k > DenseSlabs::kFewVectors;
    ForEachPair(strips, [&](int high, int low) {
        Span const i = strips.At(low), j = strips.At(high);
        StripVectors const ofI = at(low), ofJ = at(high);
        int const p = ofI.Columns();
        if (announces && low + 1 < strips.Count()) {
            Window const next = PieceAt(strips.At(low + 1), j), mirror = MirrorOf(next);
            stored.AnnounceRead(next.r0, next.r1, next.c0, next.c1);
            stored.AnnounceRead(mirror.r0, mirror.r1, mirror.c0, mirror.c1);
        }
        if (low == high)
            return MultiplySquare({{square.Find(stored, PieceAt(i, i)), i.Count()}, ofI});
        auto const real = stored.View(i.first, i.last, j.first, j.last), imaginary = stored.View(j.first, j.last, i.first, i.last);
        real->Multiply(ofJ.X().values, p, ofI.y);
        real->TransposeMultiply(ofI.X().values, p, ofJ.y, i.Count());
        imaginary->Multiply(ofI.TimesI().values, p, ofJ.y);
        imaginary->TransposeMultiply(ofJ.TimesMinusI().values, p, ofI.y, j.Count());
    });
    for (int strip = 0; strip < strips.Count(); ++strip)
        at(strip).AddTo(Y + 2 * strips.At(strip).first, order);
}

// Y += H X within a limit: each two pieces that mirror each other are read once, and take as many vectors at a time as there is memory for.
void MultiplyWithinLimit(KVOSrvDenseMatrix const& stored, double const* X, int k, double* Y)
{
    int const order = stored.NumberOfRows();
    // A quarter of the limit for each of two pieces, and for each of two strips of vectors.
    Strips const strips(stored, LargestPiece(4, kMostStrip));
    std::int64_t const entries = KVOSrvProductMemory::Bytes() / static_cast<std::int64_t>(4 * sizeof(double));
    int const size = strips.Size(), most = static_cast<int>(std::clamp<std::int64_t>(entries / StripVectors::Entries(size, 1), 1, k));
    Buffer const real(std::int64_t{size} * size), imaginary(std::int64_t{size} * size), ofLow(StripVectors::Entries(size, most)),
        ofHigh(StripVectors::Entries(size, most));
    ForEachPair(strips, [&](int high, int low) {
        Span const i = strips.At(low), j = strips.At(high);
        real.Read(stored, PieceAt(i, j));
        if (low != high)
            imaginary.Read(stored, PieceAt(j, i));
        for (int first = 0, count; first < k; first += count) {
            count = std::min(most, k - first);
            std::int64_t const vector = 2 * std::int64_t{first} * order;
            StripVectors const ofI(i, count, ofLow.Values()), ofJ(j, count, ofHigh.Values());
            int const p = ofI.Columns();
            ofI.Load(X + vector + 2 * i.first, order);
            if (low == high) {
                MultiplySquare({{real.Values(), i.Count()}, ofI});
            } else {
                ofJ.Load(X + vector + 2 * j.first, order);
                Factor const s{real.Values(), i.Count()}, t{imaginary.Values(), j.Count()};
                Multiply("N", {i.Count(), p, j.Count()}, 1.0, s, ofJ.X(), 1.0, ofI.Y());
                Multiply("T", {j.Count(), p, i.Count()}, 1.0, s, ofI.X(), 1.0, ofJ.Y());
                Multiply("N", {j.Count(), p, i.Count()}, 1.0, t, ofI.TimesI(), 1.0, ofJ.Y());
                Multiply("T", {i.Count(), p, j.Count()}, 1.0, t, ofJ.TimesMinusI(), 1.0, ofI.Y());
                ofJ.AddTo(Y + vector + 2 * j.first, order);
            }
            ofI.AddTo(Y + vector + 2 * i.first, order);
        }
    });
}

} // namespace

void KVOSrvHermitianScrDenseMatrix::Multiply(double const* X, int k, double* Y) const
{
    RequireLegal(k >= 0, "Multiply", "the number of vectors is negative");
    if (k == 0)
        return;
    RequireLegal(X != nullptr && Y != nullptr, "Multiply", DenseChecks::kNull);
    RequireLegal(X != Y, "Multiply", DenseChecks::kOverlap);
    constexpr std::int64_t kLeast = 16384;
    RequireLegal(!KVOSrvProductMemory::IsSet() || KVOSrvProductMemory::Bytes() >= kLeast, "Multiply",
                 "the limit of memory is too small, 16384 bytes would do");
    std::fill_n(Y, 2 * std::int64_t{k} * Order(), 0.0);
    if (KVOSrvProductMemory::IsSet())
        return MultiplyWithinLimit(m_stored, X, k, Y);
    for (int first = 0; first < k; first += kMostVectors) {
        std::int64_t const begin = 2 * std::int64_t{first} * Order();
        MultiplyInMemory(m_stored, X + begin, std::min(kMostVectors, k - first), Y + begin);
    }
}
