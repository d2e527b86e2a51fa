#include "BlaMatrices.h"
#include "KVOSrvTransBlaMtx.h"

#include <csignal>
#include <cstring>
#include <gmock/gmock.h>

// Every position of an assertion. Where several conditions are broken, the first in the order of the checks reports.

/// Expects that each of the calls stops the process with this expression and line.
static void ExpectStops(int line, std::string const& expression, Calls const& calls)
{
    std::string const report = "Assertion failed: " + expression + "\nFile mtx/impl/KVOSrvBlaMatrix, line " + std::to_string(line) + "\n";
    for (auto const& call : calls)
        EXPECT_EXIT(call(), testing::KilledBySignal(SIGABRT), testing::Eq(report)) << "line " << line << ", " << &call - calls.begin();
}

static KVOSrvBlaMatrix Zero(int rows, int columns, Property property = kGeneral)
{
    return KVOSrvBlaMatrix(rows, columns, nullptr, property);
}

char const* const kNotNegative = "startRow>=0 && startCol>=0";
char const* const kViewNotEmpty = "startRow<=endRow && startCol<=endCol";

TEST(KVOSrvBlaMatrixDeathTest, RangesAndBlocks)
{
    KVOSrvBlaMatrix m = Zero(3, 4), block = Zero(2, 2);
    double a[4] = {}, *const none = nullptr;
    struct {
        int line; // the three conditions on a range stand on lines that follow one another
        std::function<void(int, int, int, int)> run;
        char const *inside = "lastRow < m_dim1 && lastCol< m_dim2", *notEmpty = "lastRow >= startRow && lastCol >= startCol";
    } const ranges[] = {
        {53, [&](int r0, int r1, int c0, int c1) { m.Submatrix(r0, r1, c0, c1); }, "endRow<m_dim1 && endCol<m_dim2", kViewNotEmpty},
        {70, [&](int r0, int r1, int c0, int c1) { m.SetValues(r0, r1, c0, c1, none); }},
        {86, [&](int r0, int r1, int c0, int c1) { m.SetValues(r0, r1, c0, c1, block); }},
        {108, [&](int r0, int r1, int c0, int c1) { m.GetValues(r0, r1, c0, c1, a); }},
        {124, [&](int r0, int r1, int c0, int c1) { m.GetValues(r0, r1, c0, c1, block); }}};
    for (auto const& range : ranges) {
        auto const& run = range.run;
        ExpectStops(range.line, kNotNegative, {[&] { run(-1, 3, 0, 4); }, [&] { run(0, 2, -1, 3); }});
        ExpectStops(range.line + 1, range.inside, {[&] { run(3, 3, 0, 3); }, [&] { run(2, 1, 0, 4); }});
        ExpectStops(range.line + 2, range.notEmpty, {[&] { run(2, 1, 0, 3); }, [&] { run(0, 2, 1, 0); }});
    }
    char const *const rows = "dimMatrix.NumberOfRows() == lastRow-startRow+1", *const columns =
                                                                                   "dimMatrix.NumberOfColumns() == lastCol-startCol+1";
    ExpectStops(90, rows, {[&] { m.SetValues(0, 2, 0, 2, block); }});
    ExpectStops(91, columns, {[&] { m.SetValues(0, 1, 0, 2, block); }});
    ExpectStops(107, "array", {[&] { m.GetValues(-1, 1, 0, 1, none); }});
    ExpectStops(128, rows, {[&] { m.GetValues(0, 2, 0, 2, block); }});
    ExpectStops(129, columns, {[&] { m.GetValues(0, 1, 0, 2, block); }});
}

TEST(KVOSrvBlaMatrixDeathTest, AssignmentTranspositionAndSums)
{
    KVOSrvBlaMatrix m = Zero(3, 4), wider = Zero(3, 5), taller = Zero(4, 4);
    BlaPointer const view(m.Submatrix(0, 1, 0, 2));
    ExpectStops(261, "m_dim1 == rhs.NumberOfRows() && m_dim2 == rhs.NumberOfColumns()", {[&] { m = wider; }, [&] { m = taller; }});
    ExpectStops(284, "(m_offset==m_dim1) || (m_dim1==m_dim2)", {[&] { view->Transpose(); }, [&] { m.Transpose(), m.Transpose(); }});
    ExpectStops(375, "(m_dim1 == rhs.m_dim1) && (m_dim2 == rhs.m_dim2)", {[&] { m.Add(0.0, wider); }, [&] { m.Add(1.0, taller); }});
}

TEST(KVOSrvBlaMatrixDeathTest, OperandsInTiles)
{
    KVOSrvBlaMatrix const m = Zero(145, 144), empty = Zero(3, 0);
    KVOSrvTransBlaMtx const plain(&m, false), transposed(&m, true);
    KVOSrvTransBlaMtx lost(&m, false);
    static_assert(std::is_trivially_copyable_v<KVOSrvTransBlaMtx>);
    std::memset(static_cast<void*>(&lost), 0, sizeof(void*)); // its first field, the operand
    ExpectStops(417, "m_pMtx", {[] { KVOSrvTransBlaMtx(nullptr, true); }});
    ExpectStops(437, "m_pMtx", {[&] { lost.RowBlock(9); }});
    ExpectStops(438, "i<m_numRowBlocks", {[&] { plain.RowBlock(2); }, [&] { transposed.RowBlock(1); }});
    ExpectStops(458, "m_pMtx", {[&] { lost.ColBlock(9); }});
    ExpectStops(459, "j<m_numColBlocks", {[&] { plain.ColBlock(1); }, [&] { transposed.ColBlock(2); }});
    ExpectStops(53, kNotNegative, {[&] { plain.RowBlock(-1); }});
    ExpectStops(55, kViewNotEmpty, {[&] { KVOSrvTransBlaMtx(&empty, false).RowBlock(0); }});
}

TEST(KVOSrvBlaMatrixDeathTest, Products)
{
    KVOSrvBlaMatrix general = Zero(200, 300), lower = Zero(300, 200, kSymmetric), upper = Zero(200, 300, kSkewSymmetric);
    KVOSrvBlaMatrix const a = Zero(200, 5), b = Zero(5, 300), thin = Zero(200, 0), flat = Zero(0, 300);
    auto const product = [](KVOSrvBlaMatrix& target, KVOSrvBlaMatrix const& left, KVOSrvBlaMatrix const& right, bool transposed) {
        return [&, transposed] { target.Multiply(left, right, 1.0, 0.0, transposed, transposed); };
    };
    // Operands that have no tile to give after that many.
    auto const exhausted = [](KVOSrvBlaMatrix& target, bool transposed, int tilesOfA, int tilesOfB) {
        return [&target, transposed, tilesOfA, tilesOfB] {
            auto const after = [](int tiles) {
                return [tiles](std::string const&, KVOSrvBlaMatrix* tile) mutable { return tiles-- > 0 ? tile : nullptr; };
            };
            Dense const left(target.NumberOfRows(), 5), right(5, target.NumberOfColumns());
            Probe const probeA(transposed ? Transposed(left) : left, after(tilesOfA));
            Probe const probeB(transposed ? Transposed(right) : right, after(tilesOfB));
            target.Multiply(probeA, probeB, 1.0, 0.0, transposed, transposed);
        };
    };
    ExpectStops(175, "NumColsOpA == OpB.NumberOfRows()", {product(general, b, a, false), product(lower, a, b, true)});
    ExpectStops(176, "(m_dim1 == NumRowsOpA) && (m_dim2 == NumColsOpB)", {product(lower, a, b, false), product(general, b, a, true)});
    ExpectStops(192, "OpBBlock", {exhausted(lower, false, 0, 0), exhausted(lower, true, 9, 1)});
    ExpectStops(197, "OpABlock", {exhausted(lower, true, 2, 9), exhausted(lower, false, 4, 9)});
    ExpectStops(211, "OpABlock", {exhausted(upper, false, 0, 0), exhausted(upper, true, 1, 9)});
    ExpectStops(216, "OpBBlock", {exhausted(upper, false, 9, 4)});
    ExpectStops(55, kViewNotEmpty, {product(upper, thin, flat, false)}); // a tile has elements
}

TEST(KVOSrvBlaMatrixDeathTest, Eigenproblems)
{
    KVOSrvBlaMatrix a = Zero(3, 3, kSymmetric), b = Zero(3, 3, kSecondSymmetric), x = Zero(3, 3), skew = Zero(3, 3, kSkewSymmetric);
    KVOSrvBlaMatrix wide = Zero(3, 4, kSymmetric), larger = Zero(4, 4, kSymmetric), empty = Zero(0, 0, kSymmetric);
    double values[4];
    auto const solve = [](KVOSrvBlaMatrix& left, KVOSrvBlaMatrix const& right, KVOSrvBlaMatrix& vectors, double* lambda) {
        return [&left, &right, &vectors, lambda] { left.SolveEigenproblemSymmetric(right, lambda, vectors); };
    };
    ExpectStops(340, "IsSymmetric()", {solve(x, b, x, values), solve(skew, b, x, values)});
    ExpectStops(341, "B.IsSymmetric()", {solve(a, skew, x, values)});
    ExpectStops(342, "m_dim1 == m_dim2", {solve(wide, b, x, values)});
    ExpectStops(343, "(m_dim1 == B.NumberOfRows()) && (m_dim2 == B.NumberOfColumns())",
                {solve(a, larger, x, values), solve(a, wide, x, values)});
    ExpectStops(344, "(m_dim1 == X.NumberOfRows()) && (m_dim2 == X.NumberOfColumns())",
                {solve(a, b, larger, values), solve(a, b, wide, values)});
    ExpectStops(345, "Lambda", {solve(a, b, x, nullptr)});
    ExpectStops(368, "info==0", {solve(a, b, x, values)}); // B is not positive definite
    ExpectStops(126, "lastRow >= startRow && lastCol >= startCol", {solve(empty, empty, empty, values)});
}
