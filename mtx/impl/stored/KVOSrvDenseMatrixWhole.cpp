// Operations on whole matrices, piece by piece.

#include "DenseBuffer.h"
#include "DenseChecks.h"
#include "DenseKernels.h"
#include "KVOSimCSet.h"
#include "StatedMemory.h"
#include "mem_Vector.h"

#include <algorithm>
#include <cmath>
#include <utility>

using namespace DenseChecks;
using namespace DensePieces;

namespace
{

constexpr char const* kShape = "the other matrix is null or has another shape";

// What is computed with is worked on where it lies, or stays in the cache between its transfers, 1 MiB of each matrix: Scale, copied, takes
// 1.17 times its transfers so, 1.48 with 256 KiB and 1.21 with 2 MiB (docs/measurements.md). The calls weigh more than the level of the
// cache, which is the last one where the second level has less than 2 MiB.
constexpr std::int64_t kCacheEntries = 1 << 17;
// Two squares are compared at a time, where they lie or copied. Whole blocks although they lie in the last-level cache only: smaller
// squares are no contiguous part of the file, and reading those takes more than is won (1.9 times the reading of all blocks with a side of
// 512). That cost is the system's, not the processor's.
constexpr int kComparedSide = 1024;
// What is only passed on goes by whole blocks, but an unchunked matrix, all one block, does not go as a whole.
constexpr std::int64_t kPieceEntries = 1 << 24;

// Entries before column j of a triangle that is packed by columns.
std::int64_t PackedColumn(int j)
{
    return std::int64_t{j} * (j + 1) / 2;
}

// The greatest width of strips of `rows` rows, of which there are `buffers` in memory: a block's, or fewer columns where that were too
// much.
int StripWidth(KVOSrvBlockCut const& columns, int rows, int buffers, char const* operation)
{
    StatedMemory::Require(std::int64_t{buffers} * rows, operation);
    return std::clamp(static_cast<int>(StatedMemory::EntriesFor(kPieceEntries, buffers) / std::max(1, rows)), 1,
                      std::max(1, columns.MaxNumberInBlock()));
}

// Calls run(c0, c1) for strips of the columns of a matrix: parts of its block columns.
template<class Run>
void ForEachStrip(KVOSrvBlockCut const& columns, int width, Run const& run)
{
    for (int block = 0; block < columns.blocks; ++block) {
        int const first = columns.FirstInBlock(block);
        ForEachPart(first, first + columns.NumberInBlock(block) - 1, width, run);
    }
}

KVOSrvMatrix Wrap(double* values, int rows, int columns)
{
    return {rows, columns, values, false, false};
}

// Whether a(i, j) = b(j, i) but on the diagonal of the whole, of which a's window is `w`.
bool EqualsMirror(Window const& w, double const* a, double const* b)
{
    if (w.c0 > w.r1)
        return DenseKernels::EqualsTransposed(w.Rows(), w.Columns(), a, w.Rows(), b, w.Columns());
    for (int j = 0; j < w.Columns(); ++j)
        for (int i = 0; i < w.Rows(); ++i)
            if (w.r0 + i != w.c0 + j && !(a[i + std::int64_t{j} * w.Rows()] == b[j + std::int64_t{i} * w.Columns()]))
                return false;
    return true;
}

// Whether what is written to one may be a value of the other.
bool IsOneStore(KVOSrvDenseMatrix const& a, KVOSrvDenseMatrix const& b)
{
    return !a.IsNull() && a.DistributionID() == b.DistributionID();
}

// (member number, row) in ascending order of the numbers, and among equal ones of the rows.
using RowsByMember = mem_Vector<std::pair<int, int>>;

mem_Vector<int> RowMembers(KVOSrvDenseMatrix const& matrix)
{
    KVOSimArray<int> const members = KVOSimCSet(matrix.RowCSetID()).OrderedMembers();
    RequireFitting(members.Size() == matrix.NumberOfRows(), "CopyMappedRows", "a matrix has not as many row members as rows");
    RequireFitting(std::all_of(members.begin(), members.end(), [](int member) { return member >= 0; }), "CopyMappedRows",
                   "a row member has a negative number");
    return {members.begin(), members.end()};
}

// Row of `target` for every row of `source`, -1 without. Of rows with the same number the last one counts.
mem_Vector<int> MapRows(KVOSrvDenseMatrix const& source, KVOSrvDenseMatrix const& target)
{
    RowsByMember rows;
    for (int const member : RowMembers(target))
        rows.emplace_back(member, static_cast<int>(rows.size()));
    std::sort(rows.begin(), rows.end());
    mem_Vector<int> map = RowMembers(source);
    for (int& entry : map) {
        auto const behind = std::upper_bound(rows.begin(), rows.end(), std::pair(entry, INT32_MAX));
        entry = behind != rows.begin() && behind[-1].first == entry ? behind[-1].second : -1;
    }
    return map;
}

} // namespace

void KVOSrvDenseMatrix::GetAllValues(double* out) const
{
    int const rows = NumberOfRows(), columns = NumberOfColumns();
    if (rows == 0 || columns == 0)
        return;
    RequireFitting(out != nullptr, "GetAllValues", "the array is null");
    KVOSrvMatrix values = Wrap(out, rows, columns);
    GetValues(0, rows - 1, 0, columns - 1, values);
}

void KVOSrvDenseMatrix::GetUpperValues(double* out) const
{
    int const columns = NumberOfColumns();
    RequireFitting(NumberOfRows() >= columns, "GetUpperValues", "the matrix has fewer rows than columns");
    RequireFitting(out != nullptr || columns == 0, "GetUpperValues", "the array is null");
    int const width = StripWidth(m_columnCut, columns, 1, "GetUpperValues");
    Buffer const strip(std::int64_t{columns} * width);
    ForEachStrip(m_columnCut.Stored(), width, [&](int c0, int c1) {
        strip.Read(*this, {0, c1, c0, c1});
        for (int j = c0; j <= c1; ++j)
            std::copy_n(strip.Values() + std::int64_t{j - c0} * (c1 + 1), j + 1, out + PackedColumn(j));
    });
}

void KVOSrvDenseMatrix::GetLowerValues(double* out) const
{
    int const rows = NumberOfRows();
    RequireFitting(NumberOfColumns() >= rows, "GetLowerValues", "the matrix has fewer columns than rows");
    RequireFitting(out != nullptr || rows == 0, "GetLowerValues", "the array is null");
    int const height = StripWidth(m_rowCut, rows, 2, "GetLowerValues");
    Buffer const strip(std::int64_t{rows} * height), transposed(std::int64_t{rows} * height);
    ForEachStrip(m_rowCut.Stored(), height, [&](int r0, int r1) {
        strip.Read(*this, {r0, r1, 0, r1});
        DenseKernels::Transpose(r1 - r0 + 1, r1 + 1, strip.Values(), r1 - r0 + 1, transposed.Values(), r1 + 1);
        for (int i = r0; i <= r1; ++i)
            std::copy_n(transposed.Values() + std::int64_t{i - r0} * (r1 + 1), i + 1, out + PackedColumn(i));
    });
}

void KVOSrvDenseMatrix::GetSymmetricValues(double* out) const
{
    int const n = NumberOfColumns();
    RequireFitting(NumberOfRows() == n, "GetSymmetricValues", "the matrix is not square");
    RequireFitting(out != nullptr || n == 0, "GetSymmetricValues", "the array is null");
    int const width = StripWidth(m_columnCut, n, 3, "GetSymmetricValues");
    Buffer const upper(std::int64_t{n} * width), lower(std::int64_t{n} * width), mirrored(std::int64_t{n} * width);
    ForEachStrip(m_columnCut.Stored(), width, [&](int c0, int c1) {
        upper.Read(*this, {0, c1, c0, c1});
        lower.Read(*this, {c0, c1, 0, c1});
        DenseKernels::Transpose(c1 - c0 + 1, c1 + 1, lower.Values(), c1 - c0 + 1, mirrored.Values(), c1 + 1);
        for (int j = c0; j <= c1; ++j) {
            double const *const u = upper.Values() + std::int64_t{j - c0} * (c1 + 1), *const l = mirrored.Values() +
                                                                                                 std::int64_t{j - c0} * (c1 + 1);
            double* const packed = out + PackedColumn(j);
            for (int i = 0; i < j; ++i)
                packed[i] = 0.5 * (u[i] + l[i]);
            packed[j] = u[j];
        }
    });
}

void KVOSrvDenseMatrix::GetSubmatrix(KVOSrvDenseMatrix& dest, int r0, int r1, int c0, int c1) const
{
    RequireReadable(Contains(r0, r1, c0, c1));
    RequireWritable(c1 - c0 < dest.NumberOfColumns());
    // The walk is over the rows of `dest`: what has no row there is left out. Within one store a block row is read before it is written:
    // views may overlap.
    bool const sameStore = IsOneStore(*this, dest);
    KVOSrvBlockCut const rows =
        KVOSrvBlockCut::AtChunks(std::min(r1 - r0 + 1, dest.NumberOfRows()), dest.m_rowCut.perBlock, dest.m_rowCut.offset);
    KVOSrvBlockCut const columns = sameStore ? KVOSrvBlockCut::Whole(c1 - c0 + 1, 0)
                                             : KVOSrvBlockCut::AtChunks(c1 - c0 + 1, dest.m_columnCut.perBlock, dest.m_columnCut.offset);
    Limit const limit =
        sameStore ? Limit{rows.MaxNumberInBlock(), columns.size} : LimitEntries(rows, StatedMemory::EntriesFor(kPieceEntries));
    StatedMemory::Require(sameStore ? std::int64_t{limit.rows} * limit.columns : 1, "GetSubmatrix");
    Buffer const piece(rows, columns, limit);
    ForEachPiece(rows, columns, limit, [&](Window const& w) {
        piece.Read(*this, {w.r0 + r0, w.r1 + r0, w.c0 + c0, w.c1 + c0});
        piece.Write(dest, w);
    });
}

void KVOSrvDenseMatrix::CopyRowsToMemory(int const* rowMap, int n, KVOSrvMatrix& out) const
{
    int const rows = NumberOfRows(), columns = NumberOfColumns();
    RequireFitting(n >= 0 && std::int64_t{n} * columns <= out.AddressableEntries(), "CopyRowsToMemory",
                   "the number of rows is negative, or the target too small for them");
    RequireFitting(rows == 0 || (rowMap != nullptr && std::all_of(rowMap, rowMap + rows, [n](int row) { return row >= 0 && row < n; })),
                   "CopyRowsToMemory", "the row map is null or leaves the target");
    KVOSrvBlockCut const rowCut = m_rowCut.Stored(), columnCut = m_columnCut.Stored();
    Limit const limit = LimitEntries(rowCut, StatedMemory::EntriesFor(kCacheEntries));
    Buffer const piece(rowCut, columnCut, limit);
    bool cleared = false; // only after a first successful reading, so that a matrix that cannot be read changes nothing
    auto const clear = [&] {
        if (!std::exchange(cleared, true))
            std::fill_n(out.Values(), std::int64_t{n} * columns, 0.0);
    };
    ForEachPiece(rowCut, columnCut, limit, [&](Window const& w) {
        piece.Read(*this, w);
        clear();
        double const* value = piece.Values();
        for (int j = w.c0; j <= w.c1; ++j)
            for (int i = w.r0; i <= w.r1; ++i)
                out.Values()[rowMap[i] + std::int64_t{n} * j] = *value++;
    });
    clear();
}

void KVOSrvDenseMatrix::CopyValues(KVOSrvDenseMatrix const* src)
{
    RequireFitting(src != nullptr && src->NumberOfRows() == NumberOfRows() && src->NumberOfColumns() == NumberOfColumns(), "CopyValues",
                   kShape);
    // Within one store a block column is read before it is written: views may overlap in rows.
    bool const sameStore = IsOneStore(*this, *src);
    KVOSrvBlockCut const rows = sameStore ? KVOSrvBlockCut::Whole(NumberOfRows(), 0) : m_rowCut.Stored();
    KVOSrvBlockCut const columns = sameStore ? src->m_columnCut.Stored() : m_columnCut.Stored();
    Limit limit = LimitEntries(rows, StatedMemory::EntriesFor(kPieceEntries));
    if (sameStore)
        StatedMemory::Require(rows.size, "CopyValues");
    if (sameStore || !KVOSrvProductMemory::IsSet())
        limit.rows = rows.MaxNumberInBlock();
    limit.columns = std::max(1, std::min(limit.columns, src->m_columnCut.Stored().MaxNumberInBlock()));
    Buffer const piece(rows, columns, limit);
    ForEachPiece(rows, columns, limit, [&](Window const& w) {
        piece.Read(*src, w);
        piece.Write(*this, w);
    });
}

void KVOSrvDenseMatrix::CopyMappedRows(KVOSrvDenseMatrix const* src, bool /*clear*/)
{
    RequireFitting(src != nullptr && src->NumberOfColumns() <= NumberOfColumns(), "CopyMappedRows",
                   "the source is null or has more columns");
    int const rows = NumberOfRows(), sourceRows = src->NumberOfRows();
    if (rows == 0 || src->NumberOfColumns() == 0)
        return;
    // Two numbers of a row in its set and two in the search, one of a row of the source and where it goes.
    std::int64_t const forNumbers =
        (16 * std::int64_t{rows} + 8 * std::int64_t{sourceRows}) / static_cast<std::int64_t>(sizeof(double)) + 1;
    std::int64_t const perColumn = std::int64_t{rows} + sourceRows;
    StatedMemory::Require(perColumn + forNumbers, "CopyMappedRows");
    mem_Vector<int> const map = sourceRows > 0 ? MapRows(*src, *this) : mem_Vector<int>();
    int const width = std::min(StripWidth(src->m_columnCut.Stored(), std::max(rows, sourceRows), 1, "CopyMappedRows"),
                               StatedMemory::ColumnsWithin(src->m_columnCut.Stored(), perColumn, forNumbers).perBlock);
    Buffer const source(std::int64_t{sourceRows} * width), target(std::int64_t{rows} * width);
    // Rows without a source are zero from here on, asked for or not: what is copied goes to the same rows in every strip.
    std::fill_n(target.Values(), std::int64_t{rows} * width, 0.0);
    ForEachStrip(src->m_columnCut.Stored(), width, [&](int c0, int c1) {
        int const columns = c1 - c0 + 1;
        if (sourceRows > 0)
            source.Read(*src, {0, sourceRows - 1, c0, c1});
        for (int j = 0; j < columns; ++j)
            for (int i = 0; i < sourceRows; ++i)
                if (int const row = map[static_cast<std::size_t>(i)]; row >= 0)
                    target.Values()[row + std::int64_t{j} * rows] = source.Values()[i + std::int64_t{j} * sourceRows];
        target.Write(*this, {0, rows - 1, c0, c1});
    });
}

void KVOSrvDenseMatrix::AddAssign(KVOSrvDenseMatrix const& other)
{
    RequireFitting(other.NumberOfRows() == NumberOfRows() && other.NumberOfColumns() == NumberOfColumns(), "AddAssign", kShape);
    // Views of one store may overlap.
    bool const sameStore = IsOneStore(*this, other);
    KVOSrvBlockCut const rows = m_rowCut.Stored(), columns = m_columnCut.Stored();
    Limit const limit = sameStore ? Limit{rows.MaxNumberInBlock(), columns.MaxNumberInBlock()}
                                  : LimitEntries(rows, StatedMemory::EntriesFor(kCacheEntries, 2));
    StatedMemory::Require(sameStore ? 2 * std::int64_t{limit.rows} * limit.columns : 1, "AddAssign");
    Buffer const sum(rows, columns, limit), addend(rows, columns, limit);
    ForEachPiece(rows, columns, limit, [&](Window const& w) {
        double* const values = sameStore ? nullptr : ValuesInPlace(w.r0, w.r1, w.c0, w.c1);
        double const* const added = values != nullptr ? other.ValuesInPlace(w.r0, w.r1, w.c0, w.c1) : nullptr;
        // Asked again: a matrix of the same file may have moved the values when its own were looked for.
        if (double* const still = added != nullptr ? ValuesInPlace(w.r0, w.r1, w.c0, w.c1) : nullptr)
            return DenseKernels::AddMultiple(1.0, added, w.Entries(), still, 1);
        sum.Read(*this, w);
        addend.Read(other, w);
        DenseKernels::AddMultiple(1.0, addend.Values(), w.Entries(), sum.Values(), 1);
        sum.Write(*this, w);
    });
}

void KVOSrvDenseMatrix::Scale(double factor)
{
    KVOSrvBlockCut const rows = m_rowCut.Stored(), columns = m_columnCut.Stored();
    Limit const limit = LimitEntries(rows, StatedMemory::EntriesFor(kCacheEntries));
    Buffer const piece(rows, columns, limit);
    ForEachPiece(rows, columns, limit, [&](Window const& w) {
        double* const inPlace = ValuesInPlace(w.r0, w.r1, w.c0, w.c1);
        if (inPlace == nullptr)
            piece.Read(*this, w);
        double* const values = inPlace != nullptr ? inPlace : piece.Values();
        std::for_each(values, values + w.Entries(), [factor](double& value) { value *= factor; });
        if (inPlace == nullptr)
            piece.Write(*this, w);
    });
}

// Rows and columns may be cut differently, by chunk sizes or by a view: then the mirror image of a piece is no piece. It is read all the
// same.
bool KVOSrvDenseMatrix::IsSymmetric() const
{
    if (NumberOfRows() != NumberOfColumns())
        return false;
    KVOSrvBlockCut const rows = m_rowCut.Stored(), columns = m_columnCut.Stored();
    int const side = static_cast<int>(std::sqrt(static_cast<double>(StatedMemory::EntriesFor(kComparedSide * kComparedSide, 2))));
    Limit const limit{side, side};
    Buffer const piece(rows, columns, limit), mirror(rows, columns, limit);
    bool symmetric = true;
    ForEachPiece(rows, columns, limit, [&](Window const& w) {
        if (!symmetric || w.r0 > w.c1) // known already, or below the diagonal: it has been the mirror image of others
            return;
        if (w.r0 == w.c0 && w.r1 == w.c1) {
            symmetric = DenseKernels::IsSymmetric(w.Rows(), piece.Find(*this, w), w.Rows());
            return;
        }
        double const* a = piece.Find(*this, w);
        double const* const b = mirror.Find(*this, {w.c0, w.c1, w.r0, w.r1});
        if (a != piece.Values())
            a = piece.Find(*this, w); // finding the mirror image may have moved it
        symmetric = EqualsMirror(w, a, b);
    });
    return symmetric;
}
