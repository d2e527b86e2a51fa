// Products of KVOSrvBlaMatrix; into a structured target by tiles.

#include "KVOFortran.h"
#include "KVOSrvBlaMatrix.h"
#include "KVOSrvBlaMatrixSupport.h"
#include "KVOSrvMatrixSupport.h"
#include "KVOSrvTransBlaMtx.h"
#include "TriangleTiles.h"

#include <algorithm>
#include <utility>

using KVOSrvBlaMatrixSupport::kTileSize;
using KVOSrvBlaMatrixSupport::RequirePrecondition;
using KVOSrvMatrixSupport::LeadingDimension;

/// C := alpha op(A) op(B) + beta C, of the whole of C or of the tiles of one triangle.
class KVOSrvBlaMatrix::Product
{
public:
    Product(KVOSrvBlaMatrix& C, KVOSrvBlaMatrix const& A, KVOSrvBlaMatrix const& B, double alpha, double beta, bool transA, bool transB)
        : m_C(C), m_A(A), m_B(B), m_alpha(alpha), m_beta(beta), m_transA(transA), m_transB(transB), m_opA(&A, transA), m_opB(&B, transB)
    {
        RequirePrecondition(m_opA.NumberOfColumns() == m_opB.NumberOfRows(), "NumColsOpA == OpB.NumberOfRows()", 175);
        RequirePrecondition((C.m_dim1 == m_opA.NumberOfRows()) && (C.m_dim2 == m_opB.NumberOfColumns()),
                            "(m_dim1 == NumRowsOpA) && (m_dim2 == NumColsOpB)", 176);
    }

    void ComputeAll() const { Multiply(RowsOfA(0, m_C.m_dim1), ColumnsOfB(0, m_C.m_dim2)); }

    void ComputeLowerTiles() const
    {
        ComputeTiles(
            {m_C.m_dim2, kTileSize, false}, {m_C.m_dim1, kTileSize, false}, // columns outside, rows inside
            [this](int j) { return ColumnTileOfB(j, 192); }, [this](int i) { return RowTileOfA(i, 197); },
            [this](int column, int endColumn, int row, int endRow) { Multiply(RowsOfA(row, endRow), ColumnsOfB(column, endColumn)); },
            [this](Strip const& columns, Strip const& rows) { Multiply(rows, columns); });
    }

    void ComputeUpperTiles() const
    {
        ComputeTiles(
            {m_C.m_dim1, kTileSize, false}, {m_C.m_dim2, kTileSize, false}, // rows outside, columns inside
            [this](int i) { return RowTileOfA(i, 211); }, [this](int j) { return ColumnTileOfB(j, 216); },
            [this](int row, int endRow, int column, int endColumn) { Multiply(RowsOfA(row, endRow), ColumnsOfB(column, endColumn)); },
            [this](Strip const& rows, Strip const& columns) { Multiply(rows, columns); });
    }

    bool HasSeveralTiles() const { return m_opA.NumberOfRowBlocks() > 1 || m_opB.NumberOfColBlocks() > 1; }

private:
    // Rows of op(A), or columns of op(B), and where they stand.
    struct Strip {
        double const* values;
        int first;
        int end;
    };

    struct Tile {
        KVOSrvBlaMatrixPointer view;
        Strip strip;
        bool isInPlace; // in the operand itself, so that it is still there when the view is deleted
    };

    Strip RowsOfA(int first, int end) const { return {m_transA ? m_A.Element(0, first) : m_A.Element(first, 0), first, end}; }
    Strip ColumnsOfB(int first, int end) const { return {m_transB ? m_B.Element(first, 0) : m_B.Element(0, first), first, end}; }

    // A view of the operand itself stands where the operand has it; whatever else there is in memory stands elsewhere.
    static Tile MakeTile(KVOSrvBlaMatrixPointer view, Strip const& place)
    {
        double const* const values = view->m_values;
        return {std::move(view), {values, place.first, place.end}, values == place.values};
    }
    Tile RowTileOfA(int i, int line) const
    {
        KVOSrvBlaMatrixPointer view = m_opA.RowView(i);
        RequirePrecondition(view != nullptr, "OpABlock", line);
        return MakeTile(std::move(view), RowsOfA(i * kTileSize, i * kTileSize + m_opA.RowBlockSize(i)));
    }
    Tile ColumnTileOfB(int j, int line) const
    {
        KVOSrvBlaMatrixPointer view = m_opB.ColView(j);
        RequirePrecondition(view != nullptr, "OpBBlock", line);
        return MakeTile(std::move(view), ColumnsOfB(j * kTileSize, j * kTileSize + m_opB.ColBlockSize(j)));
    }

    // Fetches each outer tile, and with it the inner ones from the diagonal on, in the order that callers see in Submatrix(). The
    // products wait until all are seen, and are then few: rectangle() takes ranges along the outer and the inner dimension. A tile that is
    // not in place is multiplied while it exists, by tile(), and so are all after it: 0.58 of the time of
    // the full product, tile by tile 0.76 (docs/measurements.md).
    template<class FetchOuter, class FetchInner, class Rectangle, class TileProduct>
    static void ComputeTiles(TriangleTiles::Cut const& outerCut, TriangleTiles::Cut const& innerCut, FetchOuter const& fetchOuter,
                             FetchInner const& fetchInner, Rectangle const& rectangle, TileProduct const& tile)
    {
        int const strips = std::min(outerCut.NumberOfTiles(), innerCut.NumberOfTiles());
        bool allInPlace = true;
        for (int o = 0; o < outerCut.NumberOfTiles(); ++o) {
            Tile const outer = fetchOuter(o);
            for (int i = o; i < innerCut.NumberOfTiles(); ++i) {
                Tile const inner = fetchInner(i);
                if (allInPlace && !(outer.isInPlace && inner.isInPlace)) {
                    allInPlace = false;
                    TriangleTiles::Cover(outerCut, 0, o, innerCut.size, rectangle);
                    if (i > o)
                        rectangle(outerCut.Border(o), outerCut.Border(o + 1), innerCut.Border(o), innerCut.Border(i));
                }
                if (!allInPlace)
                    tile(outer.strip, inner.strip);
            }
        }
        if (allInPlace)
            TriangleTiles::Cover(outerCut, 0, strips, innerCut.size, rectangle);
    }

    void Multiply(Strip const& rows, Strip const& columns) const
    {
        int const m = rows.end - rows.first, n = columns.end - columns.first, k = m_opA.NumberOfColumns();
        int const lda = LeadingDimension(m_A.m_offset), ldb = LeadingDimension(m_B.m_offset), ldc = LeadingDimension(m_C.m_offset);
        BLAC_DGEMM(m_transA ? "T" : "N", m_transB ? "T" : "N", &m, &n, &k, &m_alpha, rows.values, &lda, columns.values, &ldb, &m_beta,
                   m_C.Element(rows.first, columns.first), &ldc);
    }

    KVOSrvBlaMatrix& m_C;
    KVOSrvBlaMatrix const& m_A;
    KVOSrvBlaMatrix const& m_B;
    double m_alpha;
    double m_beta;
    bool m_transA;
    bool m_transB;
    KVOSrvTransBlaMtx m_opA;
    KVOSrvTransBlaMtx m_opB;
};

void KVOSrvBlaMatrix::Multiply(KVOSrvBlaMatrix const& A, KVOSrvBlaMatrix const& B, double alpha, double beta, bool transA, bool transB)
{
    Product const product(*this, A, B, alpha, beta, transA, transB);
    if (!IsStructured()) {
        product.ComputeAll();
        return;
    }
    m_lowerStored ? product.ComputeLowerTiles() : product.ComputeUpperTiles();
    if (product.HasSeveralTiles())
        CompleteOtherTriangle(); // deliberate: a single tile is left as it was computed
}

void KVOSrvBlaMatrix::LeftMultiply(KVOSrvBlaMatrix const& A, double alpha, bool transA)
{
    // Deliberate, here and below: the copy takes the values as they follow one another, whatever the leading dimension. They end no later
    // than the last element of this matrix, hence inside of the array.
    KVOSrvBlaMatrix const copy(m_dim1, m_dim2, m_values, m_property);
    Multiply(A, copy, alpha, 0.0, transA, false);
}

void KVOSrvBlaMatrix::RightMultiply(KVOSrvBlaMatrix const& B, double alpha, bool transB)
{
    KVOSrvBlaMatrix const copy(m_dim1, m_dim2, m_values, m_property);
    Multiply(copy, B, alpha, 0.0, false, transB);
}
