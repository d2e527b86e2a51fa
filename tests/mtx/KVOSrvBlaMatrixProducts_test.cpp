#include "BlaMatrices.h"

int const kTile = 144;

// alpha op(a) op(b) + beta c; with a beta of 0 the old values play no part.
static Dense Product(double alpha, Dense const& a, bool transA, Dense const& b, bool transB, double beta, Dense const& c)
{
    return Combined(alpha, Op(transA ? 'T' : 'N', a) * Op(transB ? 'T' : 'N', b), beta, c);
}

// Within one tile, or in a general target, every element is a sum of `terms` products; otherwise those of the stored triangle are, and the
// other is its exact mirror image, but for the bits of NaN.
static void ExpectProduct(KVOSrvBlaMatrix const& target, Property property, Dense const& sums, int terms)
{
    Dense const now = ValuesOf(target);
    bool const lower = now.rows >= now.columns, mirrors = property != kGeneral && std::max(now.rows, now.columns) > kTile;
    double const sign = property == kSkewSymmetric ? -1.0 : 1.0;
    ExpectSame(target, [&](int i, int j) {
        bool const mirrored = mirrors && (lower ? i < j : i > j);
        return mirrored ? Expected(sign * now.At(j, i), std::isnan(now.At(j, i)) ? 1.0 : 0.0)
                        : Expected(sums.At(i, j), ProductTolerance(terms, 3.0)); // factors up to 3
    });
}

TEST(KVOSrvBlaMatrixProducts, AllShapesFlagsAndProperties)
{
    int const kShapes[][3] = {{1, 1, 1},     {7, 9, 8},     {100, 100, 3}, {144, 144, 2}, {145, 145, 5}, {143, 145, 4},
                              {145, 144, 4}, {288, 288, 3}, {300, 300, 2}, {160, 433, 2}, {433, 160, 2}, {20, 20, 145}};
    int flags = 0;
    for (auto const& [m, n, k] : kShapes)
        for (Property property : {kGeneral, kSymmetric, kSkewSymmetric, kSecondSymmetric})
            for (auto const& [alpha, beta] :
                 {std::pair(1.0, 0.0), {-1.0, 1.0}, {0.5, -2.0}, {0.0, 3.0}, {kNotANumber, 1.0}, {1.0, kNotANumber}}) {
                bool const transA = (++flags & 1) != 0, transB = (flags & 2) != 0;
                SCOPED_TRACE(testing::Message() << m << ", " << n << ", " << k << ", property " << property << ", transposed " << transA
                                                << transB << ", alpha " << alpha << ", beta " << beta);
                flags += property == kSecondSymmetric && alpha == 0.0; // so that every factor meets every flag
                Framed const a(transA ? k : m, transA ? m : k), b(transB ? n : k, transB ? k : n), target(m, n);
                Dense const before = beta == 0.0 ? Dense(m, n, kNotANumber) : RandomDense(m, n);
                *target = *MakeBla(before, property);

                target->Multiply(*a, *b, alpha, beta, transA, transB);

                ExpectProduct(*target, property, Product(alpha, a.values, transA, b.values, transB, beta, before), k + 1);
                target.ExpectFrameUnchanged();
            }
}

TEST(KVOSrvBlaMatrixProducts, EmptyMatrices)
{
    KVOSrvBlaMatrix const tall(3, 0, nullptr, kGeneral), wide(0, 2, nullptr, kGeneral);
    Dense const values = RandomDense(3, 2);
    BlaPointer const target = MakeBla(values);
    target->Multiply(tall, wide, 1.0, 2.0, false, false); // a sum of no terms
    ExpectSame(*target, [&](int i, int j) { return 2.0 * values.At(i, j); });
    KVOSrvBlaMatrix empty(0, 0, nullptr, kSymmetric);
    empty.Multiply(wide, wide, 1.0, 0.0, false, true); // no tile to fetch
}

TEST(KVOSrvBlaMatrixProducts, TilesAreFetchedInOrder)
{
    struct {
        int m, n;
        bool transA, transB;
        Property property;
        char const* fetches;
    } const kCases[] = {
        {300, 300, false, false, kGeneral, ""},
        {100, 100, false, false, kSymmetric, "B0-4,0-99 A0-99,0-4 "},
        {145, 145, false, false, kSkewSymmetric, "B0-4,0-143 A0-143,0-4 A144-144,0-4 B0-4,144-144 A144-144,0-4 "},
        {300, 145, true, true, kSymmetric, "B0-143,0-4 A0-4,0-143 A0-4,144-287 A0-4,288-299 B144-144,0-4 A0-4,144-287 A0-4,288-299 "},
        {288, 289, true, false, kSecondSymmetric,
         "A0-4,0-143 B0-4,0-143 B0-4,144-287 B0-4,288-288 A0-4,144-287 B0-4,144-287 B0-4,288-288 "},
    };
    for (auto const& [m, n, transA, transB, property, expected] : kCases) {
        std::string fetches;
        auto const record = [&fetches](char name) {
            return [&fetches, name](std::string const& range, KVOSrvBlaMatrix* tile) {
                fetches += name + range + ' ';
                return tile;
            };
        };
        Probe const a(RandomDense(transA ? 5 : m, transA ? m : 5), record('A'));
        Probe const b(RandomDense(transB ? n : 5, transB ? 5 : n), record('B'));
        KVOSrvBlaMatrix(m, n, nullptr, property).Multiply(a, b, 1.0, 0.0, transA, transB);
        EXPECT_EQ(fetches, expected);
    }
}

// One of the tiles is given as a copy with twice its values, in an array of its own: the product takes what it is given.
TEST(KVOSrvBlaMatrixProducts, ATileFromElsewhereIsMultipliedAsItIs)
{
    int const blocks = 3;
    Dense const values = RandomDense(5, blocks * kTile), target = RandomDense(blocks * kTile, blocks * kTile);
    BlaPointer const plain = MakeBla(values);
    Dense const sums = Product(1.0, values, true, values, false, 0.0, target);
    for (int replaced = 0; replaced < 9; ++replaced) { // the first six of A, by columns of the lower triangle; the others of B
        SCOPED_TRACE(replaced);
        int fetch = 0;
        auto const replace = [&](std::string const&, KVOSrvBlaMatrix* tile) {
            if (fetch++ != replaced % 6)
                return tile;
            BlaPointer const unused(tile);
            return MakeBla(Combined(2.0, ValuesOf(*tile), 0.0, values)).release();
        };
        Probe const probe(values, replace);
        KVOSrvBlaMatrix const& operand = probe;
        BlaPointer const result = MakeBla(target, kSymmetric);
        result->Multiply(replaced < 6 ? operand : *plain, replaced < 6 ? *plain : operand, 1.0, 1.0, true, false);

        int const numberOfA[blocks][blocks] = {{0, -1, -1}, {1, 3, -1}, {2, 4, 5}};
        ExpectSame(*result, [&](int i, int j) {
            int const row = std::max(i, j), column = std::min(i, j), block = column / kTile;
            bool const doubled = replaced < 6 ? numberOfA[row / kTile][block] == replaced : block == replaced - 6;
            return Expected((doubled ? 2 : 1) * sums.At(row, column) + target.At(row, column), ProductTolerance(6, 2.0));
        });
    }
}

TEST(KVOSrvBlaMatrixProducts, NothingIsChangedWithoutMemory)
{
    BlaPointer const a = MakeBla(RandomDense(300, 2)), target = MakeBla(RandomDense(300, 300), kSymmetric);
    EXPECT_EQ(FailEachBlaAllocation(*target, [&] { target->Multiply(*a, *a, 1.0, 1.0, false, true); }), 9);
    EXPECT_EQ(FailEachBlaAllocation(*a, [&] { a->LeftMultiply(*target, 1.0, false); }), 2);
}

TEST(KVOSrvBlaMatrixProducts, InPlaceFromBothSides)
{
    for (auto const& [rows, columns] : {std::pair(1, 1), {7, 9}, {150, 150}})
        for (Property property : {kGeneral, kSkewSymmetric})
            for (bool transposed : {false, true}) {
                SCOPED_TRACE(testing::Message() << rows << " x " << columns << ", property " << property << ", transposed " << transposed);
                Dense const values = RandomDense(rows, columns);
                Framed const left(rows, rows), right(columns, columns);
                BlaPointer const matrix = MakeBla(values, property), other = MakeBla(values, property);
                matrix->LeftMultiply(*left, -2.0, transposed);
                other->RightMultiply(*right, -2.0, transposed);
                ExpectProduct(*matrix, property, Product(-2.0, left.values, transposed, values, false, 0.0, values), rows);
                ExpectProduct(*other, property, Product(-2.0, values, false, right.values, transposed, 0.0, values), columns);
            }
    // A view is copied as if its columns had no gaps, up to the end of the array and not beyond.
    Dense const values = RandomDense(4, 4);
    double const one = 1.0;
    KVOSrvBlaMatrix const unit(1, 1, &one, kGeneral);
    BlaPointer const matrix = MakeBla(values);
    BlaPointer const lastRow(matrix->Submatrix(3, 3, 1, 3));
    lastRow->LeftMultiply(unit, 1.0, false);
    ExpectSame(*matrix, [&](int i, int j) { return i == 3 && j >= 1 ? values.values[7 + (j - 1)] : values.At(i, j); });
}
