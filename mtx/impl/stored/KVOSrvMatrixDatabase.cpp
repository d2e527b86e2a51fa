// The one thing that the matrix in memory knows of stored ones; it stands beside their products.

#include "DenseBuffer.h"
#include "DenseKernels.h"
#include "KVOSrvMatrixSupport.h"
#include "StatedMemory.h"

namespace
{

constexpr KVOSrvMatrixSupport::InputCheck RequireLegal("mtx/impl/KVOSrvMatrixArithmetic");

// A piece, 512 KiB, stays in the second-level cache of server processors since 2017 between its reading and its sum.
constexpr std::int64_t kPieceEntries = std::int64_t{1} << 16;

} // namespace

void KVOSrvMatrix::Add(double f, KVOSrvDenseMatrix const& D)
{
    if (f == 0.0)
        return;
    RequireLegal(!m_diagonal, "Assignment operator"); // as AddSlice(), which adds each piece, refuses a diagonal target
    RequireLegal(D.NumberOfRows() <= m_rows && D.NumberOfColumns() <= m_columns, "Add");
    bool const byTriangle = m_symmetric && IsSquare();
    KVOSrvBlockCut const rows = D.StoredRowBlocks(), columns = D.StoredColumnBlocks();
    DensePieces::Limit const limit = DensePieces::LimitEntries(rows, StatedMemory::EntriesFor(kPieceEntries));
    DensePieces::Buffer const piece(rows, columns, limit);
    DensePieces::ForEachPiece(rows, columns, limit, [&](DensePieces::Window w) {
        // Rows and columns may be cut differently: a piece counts up to its last diagonal element, not by its block's number.
        if (byTriangle)
            w.r1 = std::min(w.r1, w.c1);
        if (w.r1 < w.r0)
            return;
        piece.Read(D, w);
        AddSlice(f, piece.As(w.Rows(), w.Columns()), w.r0, w.c0);
    });
    if (byTriangle)
        DenseKernels::MirrorTriangle(m_rows, DenseKernels::Triangle::Upper, DenseKernels::Sign::Keep, m_values, m_rows);
}
