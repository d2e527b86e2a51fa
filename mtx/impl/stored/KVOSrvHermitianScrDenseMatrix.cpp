#include "KVOSrvHermitianScrDenseMatrix.h"

#include "DenseChecks.h"
#include "HermitianPieces.h"

using namespace DensePieces;
using namespace HermitianPieces;

namespace
{

// Calls run(Window) for pieces of a range of at most size x size.
template<class Run>
void ForEachPieceOf(Window const& range, int size, Run const& run)
{
    ForEachPart(range.c0, range.c1, size, [&](int c0, int c1) {
        ForEachPart(range.r0, range.r1, size, [&](int r0, int r1) { run(Window{r0, r1, c0, c1}); });
    });
}

// What is transferred at a time, a piece and its mirror image: both stay in a second-level cache while one is transposed.
struct Transfer {
    static constexpr int kTransferred = 256;

    explicit Transfer(KVOSrvDenseMatrix const& matrix)
        : size(LargestPiece(2, std::min(kTransferred, matrix.NumberOfRows()))), direct(std::int64_t{size} * size),
          mirror(std::int64_t{size} * size)
    {
    }

    int const size;
    Buffer const direct, mirror;
};

// Calls run(row, column, complex, stored, mirrored) for the entries of a piece: the complex one in the caller's array, and those stored in
// its place, in `direct`, and in that of its mirror image, in `mirror`. Row and column tell which of them is real and which imaginary.
template<class Complex, class Run>
void ForEachEntry(Window const& piece, Window const& range, Complex* values, double* direct, double* mirror, Run const& run)
{
    for (int j = piece.c0; j <= piece.c1; ++j)
        for (int i = piece.r0; i <= piece.r1; ++i) {
            std::int64_t const at = (i - range.r0) + std::int64_t{j - range.c0} * range.Rows();
            run(i, j, values + 2 * at, direct[(i - piece.r0) + std::int64_t{j - piece.c0} * piece.Rows()],
                mirror[(j - piece.c0) + std::int64_t{i - piece.r0} * piece.Columns()]);
        }
}

// Of the square in the middle of the range, in which both of two mirrored entries lie.
bool IsHermitian(Window const& range, double const* values)
{
    constexpr int kTile = 32; // as many columns as a first-level cache holds lines of
    auto const at = [&](int i, int j) { return values + 2 * ((i - range.r0) + std::int64_t{j - range.c0} * range.Rows()); };
    bool hermitian = true;
    auto const compare = [&](int i, int j) {
        double const *const entry = at(i, j), *const mirror = at(j, i);
        hermitian &= i == j ? entry[1] == 0.0 : entry[0] == mirror[0] && entry[1] == -mirror[1];
    };
    int const first = std::max(range.r0, range.c0), last = std::min(range.r1, range.c1);
    for (int column = first; column <= last; column += kTile)
        for (int row = column; row <= last; row += kTile)
            for (int j = column; j < std::min(column + kTile, last + 1); ++j)
                for (int i = std::max(row, j); i < std::min(row + kTile, last + 1); ++i)
                    compare(i, j);
    return hermitian;
}

int LegalOrder(int order, int chunk)
{
    RequireLegal(order > 0, kClass, "the order is not positive");
    RequireLegal(chunk > 0 || chunk == -1, kClass, "the chunks have no positive size");
    return order;
}

} // namespace

KVOSrvHermitianScrDenseMatrix::KVOSrvHermitianScrDenseMatrix(int order, int chunk) : m_stored(LegalOrder(order, chunk), order, chunk, chunk)
{
}

KVOSrvHermitianScrDenseMatrix::~KVOSrvHermitianScrDenseMatrix() = default;

void KVOSrvHermitianScrDenseMatrix::GetValues(int r0, int r1, int c0, int c1, double* values) const
{
    DenseChecks::RequireReadable(r0 >= 0 && r0 <= r1 && r1 < Order() && c0 >= 0 && c0 <= c1 && c1 < Order());
    RequireLegal(values != nullptr, "GetValues", DenseChecks::kNull);
    Window const range{r0, r1, c0, c1};
    Transfer const transfer(m_stored);
    ForEachPieceOf(range, transfer.size, [&](Window const& piece) {
        transfer.direct.Read(m_stored, piece);
        transfer.mirror.Read(m_stored, MirrorOf(piece));
        ForEachEntry(piece, range, values, transfer.direct.Values(), transfer.mirror.Values(),
                     [](int i, int j, double* complex, double stored, double mirrored) {
                         complex[0] = i < j ? mirrored : stored;
                         complex[1] = i < j ? stored : i > j ? -mirrored : 0.0;
                     });
    });
}

void KVOSrvHermitianScrDenseMatrix::SetValues(int r0, int r1, int c0, int c1, double const* values)
{
    DenseChecks::RequireWritable(r0 >= 0 && r0 <= r1 && r1 < Order() && c0 >= 0 && c0 <= c1 && c1 < Order());
    RequireLegal(values != nullptr, "SetValues", DenseChecks::kNull);
    Window const range{r0, r1, c0, c1};
    RequireLegal(IsHermitian(range, values), "SetValues", "the range crosses the diagonal and is not Hermitian");
    Transfer const transfer(m_stored);
    ForEachPieceOf(range, transfer.size, [&](Window const& piece) {
        ForEachEntry(piece, range, values, transfer.direct.Values(), transfer.mirror.Values(),
                     [](int i, int j, double const* complex, double& stored, double& mirrored) {
                         stored = i < j ? complex[1] : complex[0];
                         mirrored = i > j ? -complex[1] : complex[0];
                     });
        transfer.direct.Write(m_stored, piece);
        transfer.mirror.Write(m_stored, MirrorOf(piece));
    });
}

void KVOSrvHermitianScrDenseMatrix::Scale(double factor)
{
    m_stored.Scale(factor);
}

bool KVOSrvHermitianScrDenseMatrix::IsHermitianNumerically() const
{
    constexpr int kRead = 1024; // rows and columns at a time
    int const size = LargestPiece(1, std::min(kRead, Order()));
    Buffer const buffer(std::int64_t{size} * size);
    bool hermitian = true;
    ForEachPieceOf({0, Order() - 1, 0, Order() - 1}, size, [&](Window const& piece) {
        if (!hermitian)
            return;
        buffer.Read(m_stored, piece);
        double const* value = buffer.Values();
        for (int j = piece.c0; j <= piece.c1; ++j)
            for (int i = piece.r0; i <= piece.r1; ++i, ++value)
                hermitian &= i == j || *value == *value;
    });
    return hermitian;
}
