#include "BlaMatrices.h"
#include "KVOSrvTransBlaMtx.h"

#include <csignal>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <string>

namespace
{

// Every position of an assertion, in the order of its line. Where several conditions are broken, the first in the order of the checks
// reports.

struct Position {
    int line;
    char const* expression;
    std::function<void()> stop;
};

void ExpectStops(std::initializer_list<Position> positions)
{
    for (auto const& [line, expression, stop] : positions) {
        std::string const report =
            std::string("Assertion failed: ") + expression + "\nFile mtx/impl/KVOSrvBlaMatrix, line " + std::to_string(line) + "\n";
        EXPECT_EXIT(stop(), testing::KilledBySignal(SIGABRT), testing::Eq(report)) << "line " << line;
    }
}

KVOSrvBlaMatrix Zero(int rows, int columns, Property property = kGeneral)
{
    return KVOSrvBlaMatrix(rows, columns, nullptr, property);
}

char const* const kNotNegative = "startRow>=0 && startCol>=0";
char const* const kInside = "lastRow < m_dim1 && lastCol< m_dim2";
char const* const kNotEmpty = "lastRow >= startRow && lastCol >= startCol";
char const* const kRows = "dimMatrix.NumberOfRows() == lastRow-startRow+1";
char const* const kColumns = "dimMatrix.NumberOfColumns() == lastCol-startCol+1";

TEST(KVOSrvBlaMatrixDeathTest, Views)
{
    KVOSrvBlaMatrix const m = Zero(3, 4);
    char const *const inside = "endRow<m_dim1 && endCol<m_dim2", *const notEmpty = "startRow<=endRow && startCol<=endCol";
    ExpectStops({{53, kNotNegative, [&] { m.Submatrix(-1, 3, 0, 4); }},
                 {53, kNotNegative, [&] { m.Submatrix(0, 2, -1, 3); }},
                 {54, inside, [&] { m.Submatrix(3, 3, 0, 3); }},
                 {54, inside, [&] { m.Submatrix(2, 1, 0, 4); }},
                 {55, notEmpty, [&] { m.Submatrix(2, 1, 0, 3); }},
                 {55, notEmpty, [&] { m.Submatrix(0, 2, 1, 0); }}});
}

TEST(KVOSrvBlaMatrixDeathTest, Values)
{
    KVOSrvBlaMatrix m = Zero(3, 4), block = Zero(2, 2);
    double a[4] = {};
    ExpectStops({{70, kNotNegative, [&] { m.SetValues(-1, 3, 0, 1, a); }},
                 {70, kNotNegative, [&] { m.SetValues(0, 1, -1, 1, a); }},
                 {71, kInside, [&] { m.SetValues(2, 3, 0, 1, a); }},
                 {71, kInside, [&] { m.SetValues(0, 1, 3, 4, a); }},
                 {72, kNotEmpty, [&] { m.SetValues(1, 0, 0, 1, a); }},
                 {72, kNotEmpty, [&] { m.SetValues(0, 1, 1, 0, static_cast<double*>(nullptr)); }},
                 {86, kNotNegative, [&] { m.SetValues(0, 1, -1, 0, block); }},
                 {87, kInside, [&] { m.SetValues(2, 3, 0, 1, block); }},
                 {88, kNotEmpty, [&] { m.SetValues(1, 0, 0, 1, block); }},
                 {90, kRows, [&] { m.SetValues(0, 2, 0, 2, block); }},
                 {91, kColumns, [&] { m.SetValues(0, 1, 0, 2, block); }},
                 {107, "array", [&] { m.GetValues(-1, 1, 0, 1, static_cast<double*>(nullptr)); }},
                 {108, kNotNegative, [&] { m.GetValues(-1, 0, 0, 1, a); }},
                 {109, kInside, [&] { m.GetValues(0, 1, 3, 4, a); }},
                 {110, kNotEmpty, [&] { m.GetValues(0, 1, 1, 0, a); }},
                 {124, kNotNegative, [&] { m.GetValues(0, 1, -1, 0, block); }},
                 {125, kInside, [&] { m.GetValues(2, 3, 0, 1, block); }},
                 {126, kNotEmpty, [&] { m.GetValues(1, 0, 0, 1, block); }},
                 {128, kRows, [&] { m.GetValues(0, 2, 0, 2, block); }},
                 {129, kColumns, [&] { m.GetValues(0, 1, 0, 2, block); }}});
}

TEST(KVOSrvBlaMatrixDeathTest, AssignmentTranspositionAndSums)
{
    KVOSrvBlaMatrix m = Zero(3, 4), wider = Zero(3, 5), taller = Zero(4, 4);
    BlaPointer const view(m.Submatrix(0, 1, 0, 2));
    char const *const assign = "m_dim1 == rhs.NumberOfRows() && m_dim2 == rhs.NumberOfColumns()",
                      *const add = "(m_dim1 == rhs.m_dim1) && (m_dim2 == rhs.m_dim2)";
    ExpectStops({{261, assign, [&] { m = wider; }},
                 {261, assign, [&] { m = taller; }},
                 {284, "(m_offset==m_dim1) || (m_dim1==m_dim2)", [&] { view->Transpose(); }},
                 {284, "(m_offset==m_dim1) || (m_dim1==m_dim2)", [&] { m.Transpose(), m.Transpose(); }},
                 {375, add, [&] { m.Add(0.0, wider); }},
                 {375, add, [&] { m.Add(1.0, taller); }}});
}

TEST(KVOSrvBlaMatrixDeathTest, OperandsInTiles)
{
    KVOSrvBlaMatrix const m = Zero(145, 144), empty = Zero(3, 0);
    KVOSrvTransBlaMtx const plain(&m, false), transposed(&m, true);
    KVOSrvTransBlaMtx lost(&m, false);
    static_assert(std::is_trivially_copyable_v<KVOSrvTransBlaMtx>);
    std::memset(static_cast<void*>(&lost), 0, sizeof(void*)); // its first field, the operand
    ExpectStops({{417, "m_pMtx", [] { KVOSrvTransBlaMtx(nullptr, true); }},
                 {437, "m_pMtx", [&] { lost.RowBlock(9); }},
                 {438, "i<m_numRowBlocks", [&] { plain.RowBlock(2); }},
                 {438, "i<m_numRowBlocks", [&] { transposed.RowBlock(1); }},
                 {458, "m_pMtx", [&] { lost.ColBlock(9); }},
                 {459, "j<m_numColBlocks", [&] { plain.ColBlock(1); }},
                 {459, "j<m_numColBlocks", [&] { transposed.ColBlock(2); }},
                 {53, kNotNegative, [&] { plain.RowBlock(-1); }},
                 {55, "startRow<=endRow && startCol<=endCol", [&] { KVOSrvTransBlaMtx(&empty, false).RowBlock(0); }}});
}

TEST(KVOSrvBlaMatrixDeathTest, Products)
{
    KVOSrvBlaMatrix general = Zero(200, 300), lower = Zero(300, 200, kSymmetric), upper = Zero(200, 300, kSkewSymmetric);
    KVOSrvBlaMatrix const a = Zero(200, 5), b = Zero(5, 300), thin = Zero(200, 0), flat = Zero(0, 300);
    char const *const inner = "NumColsOpA == OpB.NumberOfRows()", *const outer = "(m_dim1 == NumRowsOpA) && (m_dim2 == NumColsOpB)";
    auto const product = [](KVOSrvBlaMatrix& target, KVOSrvBlaMatrix const& left, KVOSrvBlaMatrix const& right, bool transposed) {
        return [&, transposed] { target.Multiply(left, right, 1.0, 0.0, transposed, transposed); };
    };
    // An operand that has no tile to give after that many.
    auto const after = [](int fetches) {
        return [fetches](std::string const&, KVOSrvBlaMatrix* tile) mutable { return fetches-- > 0 ? tile : nullptr; };
    };
    auto const exhausted = [&after](KVOSrvBlaMatrix& target, bool transposed, int fetchesOfA, int fetchesOfB) {
        return [&target, &after, transposed, fetchesOfA, fetchesOfB] {
            int const m = target.NumberOfRows(), n = target.NumberOfColumns();
            Probe const left(transposed ? Dense(5, m) : Dense(m, 5), after(fetchesOfA));
            Probe const right(transposed ? Dense(n, 5) : Dense(5, n), after(fetchesOfB));
            target.Multiply(left, right, 1.0, 0.0, transposed, transposed);
        };
    };
    ExpectStops({{175, inner, product(general, b, a, false)},
                 {175, inner, product(lower, a, b, true)},
                 {176, outer, product(lower, a, b, false)},
                 {176, outer, product(general, b, a, true)},
                 {192, "OpBBlock", exhausted(lower, false, 0, 0)},
                 {192, "OpBBlock", exhausted(lower, true, 9, 1)},
                 {197, "OpABlock", exhausted(lower, true, 2, 9)},
                 {197, "OpABlock", exhausted(lower, false, 4, 9)},
                 {211, "OpABlock", exhausted(upper, false, 0, 0)},
                 {211, "OpABlock", exhausted(upper, true, 1, 9)},
                 {216, "OpBBlock", exhausted(upper, false, 9, 4)},
                 {55, "startRow<=endRow && startCol<=endCol", product(upper, thin, flat, false)}}); // a tile has elements
}

TEST(KVOSrvBlaMatrixDeathTest, Eigenproblems)
{
    KVOSrvBlaMatrix a = Zero(3, 3, kSymmetric), b = Zero(3, 3, kSecondSymmetric), x = Zero(3, 3), skew = Zero(3, 3, kSkewSymmetric);
    KVOSrvBlaMatrix wide = Zero(3, 4, kSymmetric), larger = Zero(4, 4, kSymmetric), empty = Zero(0, 0, kSymmetric);
    double lambda[4];
    auto const solve = [&lambda](KVOSrvBlaMatrix& left, KVOSrvBlaMatrix const& right, KVOSrvBlaMatrix& vectors, bool values = true) {
        return [&lambda, &left, &right, &vectors, values] { left.SolveEigenproblemSymmetric(right, values ? lambda : nullptr, vectors); };
    };
    char const *const shapeOfB = "(m_dim1 == B.NumberOfRows()) && (m_dim2 == B.NumberOfColumns())",
                      *const shapeOfX = "(m_dim1 == X.NumberOfRows()) && (m_dim2 == X.NumberOfColumns())";
    ExpectStops({{340, "IsSymmetric()", solve(x, b, x)},
                 {340, "IsSymmetric()", solve(skew, b, x)},
                 {341, "B.IsSymmetric()", solve(a, skew, x)},
                 {342, "m_dim1 == m_dim2", solve(wide, b, x)},
                 {343, shapeOfB, solve(a, larger, x)},
                 {343, shapeOfB, solve(a, wide, x)},
                 {344, shapeOfX, solve(a, b, larger)},
                 {344, shapeOfX, solve(a, b, wide)},
                 {345, "Lambda", solve(a, b, x, false)},
                 {368, "info==0", solve(a, b, x)}, // B is not positive definite
                 {126, kNotEmpty, solve(empty, empty, empty)}});
}

} // namespace
