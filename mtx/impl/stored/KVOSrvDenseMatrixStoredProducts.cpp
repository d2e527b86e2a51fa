// Products of two stored matrices.

#include "DenseChecks.h"
#include "DenseGemm.h"
#include "DenseKernels.h"
#include "TiledProduct.h"

using namespace DenseChecks;
using namespace DenseSlabs;

namespace
{

// How far one group reaches along the rows and columns of C and along the inner dimension, in blocks.
struct Groups {
    std::int64_t rowBlocks, innerBlocks, columnBlocks;
};

std::int64_t BlocksFor(double extent, int perBlock)
{
    return extent > 1.0 ? (static_cast<std::int64_t>(extent) + perBlock - 1) / perBlock : 1;
}

// The memory for one group of A, of B and of C together: as many doubles as B has and a block row of A besides. The extents are found in
// this order, each from what the ones before leave: callers know the memory that a product takes by it.
Groups GroupsFor(KVOSrvDenseMatrix const& A, KVOSrvDenseMatrix const& B)
{
    int const perRowBlock = A.StoredRowBlocks().MaxNumberInBlock(), perInnerBlock = A.StoredColumnBlocks().MaxNumberInBlock();
    double const rb = perRowBlock, cb = perInnerBlock;
    double const m = A.NumberOfRows(), n = A.NumberOfColumns(), p = B.NumberOfColumns();
    double const budget = p * n + std::max(rb * n, m);
    double const columns = std::min((budget - cb * rb) / (cb + rb), p);
    double rows = (budget - columns * cb) / (columns + cb);
    rows = rows > m ? m : rows > 0.0 ? rows : rb;
    double inner = (budget - rows * columns) / (rows + columns);
    inner = inner > n ? n : inner > 0.0 ? inner : cb;
    return {BlocksFor(rows, perRowBlock), BlocksFor(inner, perInnerBlock), BlocksFor(columns, B.StoredColumnBlocks().MaxNumberInBlock())};
}

// C(rows, columns) := C(rows, columns) + T
void AddBlock(double const* T, int rows, int columns, Result const& C)
{
    for (int j = 0; j < columns; ++j)
        DenseKernels::AddMultiple(1.0, T + std::int64_t{j} * rows, rows, C.At(0, j).values, 1);
}

} // namespace

void KVOSrvDenseMatrix::Multiply(KVOSrvDenseMatrix const* B, double* C) const
{
    RequireFitting(B != nullptr, "Multiply", kNull);
    RequireReadable(B->NumberOfRows() <= NumberOfColumns()); // the columns of A that have a row of B take part
    int const m = NumberOfRows(), p = B->NumberOfColumns();
    if (m == 0 || p == 0)
        return;
    RequireFitting(C != nullptr, "Multiply", kNull);
    if (KVOSrvProductMemory::IsSet()) {
        KVOSrvDenseMatrix const* const a = this;
        return DenseTiles::Multiply("Multiply", {{&a, 1}, {0, m - 1}}, {B}, p, 1.0, 0.0, {nullptr, {C, m}});
    }
    Walk const inner(B->StoredRowBlocks()), rows(StoredRowBlocks()), columns(B->StoredColumnBlocks());
    Buffer const b(std::int64_t{inner.MaxCount()} * p);
    std::int64_t const ofA = std::int64_t{rows.MaxCount()} * inner.MaxCount();
    // Of A, and behind it one of its product.
    mem_Vector<Buffer> const memory = BuffersAtOnce(ofA + std::int64_t{rows.MaxCount()} * columns.MaxCount(), rows.Slabs());
    Result const result{C, m};
    std::fill_n(C, std::int64_t{m} * p, 0.0);
    inner.ForEach([&](Span k) { B->AnnounceRead(k.first, k.last, 0, p - 1); },
                  [&](Span k) {
                      b.Read(*B, {k.first, k.last, 0, p - 1});
                      auto const multiply = [&](Span i, double const* a, double* product) {
                          // Deliberate: not added by DGEMM. C receives whole sums, in the order of B's block rows.
                          for (int block = 0; block < columns.Slabs(); ++block) {
                              Span const j = columns.At(block);
                              DenseSlabs::Multiply("N", {i.Count(), j.Count(), k.Count()}, 1.0, {a, i.Count()},
                                                   Factor{b.Values(), k.Count()}.At(0, j.first), 0.0, {product, i.Count()});
                              AddBlock(product, i.Count(), j.Count(), result.At(i.first, j.first));
                          }
                      };
                      rows.ForEachFew(
                          static_cast<int>(memory.size()), [&](Span i) { AnnounceRead(i.first, i.last, k.first, k.last); },
                          [&](std::span<Span const> few) {
                              ReadAndMultiply(
                                  static_cast<int>(few.size()), memory,
                                  [&](int n, Buffer const& buffer) {
                                      Span const i = few[static_cast<std::size_t>(n)];
                                      buffer.Read(*this, {i.first, i.last, k.first, k.last});
                                  },
                                  [&](int n, Buffer const& buffer) {
                                      multiply(few[static_cast<std::size_t>(n)], buffer.Values(), buffer.Values() + ofA);
                                  });
                          });
                  });
}

void KVOSrvDenseMatrix::Multiply(KVOSrvDenseMatrix const& B, KVOSrvDenseMatrix& C) const
{
    int const m = NumberOfRows(), n = NumberOfColumns(), p = B.NumberOfColumns();
    RequireReadable(B.NumberOfRows() >= n);
    RequireWritable(C.NumberOfRows() >= m && C.NumberOfColumns() >= p);
    RequireFitting(!C.Overlaps(*this) && !C.Overlaps(B), "Multiply", kOverlap);
    if (m == 0 || p == 0)
        return;
    if (KVOSrvProductMemory::IsSet()) {
        KVOSrvDenseMatrix const* const a = this;
        return DenseTiles::Multiply("Multiply", {{&a, 1}, {0, m - 1}}, {&B}, p, 1.0, 0.0, {&C});
    }
    Groups const groups = GroupsFor(*this, B);
    Walk const rows(StoredRowBlocks(), groups.rowBlocks), inner(StoredColumnBlocks(), groups.innerBlocks);
    Walk const columns(B.StoredColumnBlocks(), groups.columnBlocks);
    // By the largest groups: the first one of a view may be short.
    mem_Vector<Buffer> const a = BuffersAtOnce(std::int64_t{rows.MaxCount()} * inner.MaxCount(), rows.Slabs());
    Buffer const b(std::int64_t{inner.MaxCount()} * columns.MaxCount());
    int const atOnce = static_cast<int>(a.size());
    Buffer const c(std::int64_t{rows.MaxCount()} * columns.MaxCount() * atOnce);
    auto const announceNothing = [](Span) {};
    columns.ForEach(announceNothing, [&](Span j) {
        rows.ForEachFew(atOnce, announceNothing, [&](std::span<Span const> few) {
            Span const i = WholeOf(few);
            if (n == 0)
                std::fill_n(c.Values(), std::int64_t{i.Count()} * j.Count(), 0.0);
            double beta = 0.0;
            inner.ForEach(
                [&](Span k) {
                    AnnounceRead(i.first, i.last, k.first, k.last);
                    B.AnnounceRead(k.first, k.last, j.first, j.last);
                },
                [&](Span k) {
                    b.Read(B, {k.first, k.last, j.first, j.last});
                    ReadAndMultiply(
                        static_cast<int>(few.size()), a,
                        [&](int group, Buffer const& buffer) {
                            Span const some = few[static_cast<std::size_t>(group)];
                            buffer.Read(*this, {some.first, some.last, k.first, k.last});
                        },
                        [&](int group, Buffer const& buffer) {
                            Span const some = few[static_cast<std::size_t>(group)];
                            DenseSlabs::Multiply("N", {some.Count(), j.Count(), k.Count()}, 1.0, {buffer.Values(), some.Count()},
                                                 {b.Values(), k.Count()}, beta, Result{c.Values(), i.Count()}.At(some.first - i.first, 0));
                        });
                    beta = 1.0;
                });
            c.Write(C, {i.first, i.last, j.first, j.last});
        });
    });
}

bool KVOSrvDenseMatrix::Overlaps(KVOSrvDenseMatrix const& other) const noexcept
{
    auto const meet = [](KVOSrvBlockCut const& a, KVOSrvBlockCut const& b) {
        return a.offset < std::int64_t{b.offset} + b.size && b.offset < std::int64_t{a.offset} + a.size;
    };
    return !IsNull() && !other.IsNull() && DistributionID() == other.DistributionID() && meet(m_rowCut, other.m_rowCut) &&
           meet(m_columnCut, other.m_columnCut);
}
