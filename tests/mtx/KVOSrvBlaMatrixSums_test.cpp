#include "BlaMatrices.h"

namespace
{

// What an operation on the elements makes of a matrix: of a structured one it works on the stored triangle, and the other mirrors it.
template<class Operation>
void ExpectOnStoredTriangle(KVOSrvBlaMatrix const& matrix, Property property, Operation const& operation)
{
    bool const lower = matrix.NumberOfRows() >= matrix.NumberOfColumns();
    ExpectSame(matrix, [&](int i, int j) {
        bool const mirrored = property != kGeneral && (lower ? i < j : i > j);
        double const value = mirrored ? operation(j, i) : operation(i, j);
        return mirrored && property == kSkewSymmetric ? -value : value;
    });
}

template<class Run>
void ForEachKind(Run const& run)
{
    for (auto const& [rows, columns] : {std::pair(0, 0), {1, 1}, {9, 9}, {17, 17}, {11, 8}, {8, 11}, {5, 1}})
        for (Property property : {kGeneral, kSymmetric, kSkewSymmetric, kSecondSymmetric}) {
            SCOPED_TRACE(testing::Message() << rows << " x " << columns << ", property " << property);
            run(RandomDense(rows, columns), property); // neither triangle mirrors the other
        }
}

TEST(KVOSrvBlaMatrixSums, ScalesTheStoredTriangleAndMirrorsIt)
{
    ForEachKind([](Dense const& values, Property property) {
        for (double alpha : {0.0, -1.0, 2.5}) {
            BlaPointer const matrix = MakeBla(values, property);
            matrix->Multiply(alpha);
            ExpectOnStoredTriangle(*matrix, property, [&](int i, int j) { return alpha * values.At(i, j); });
        }
        BlaPointer const matrix = MakeBla(values, property);
        matrix->Multiply(1.0);
        ExpectSame(*matrix, values); // the other triangle too
        matrix->Multiply(kNotANumber);
        Dense const nothing = ValuesOf(*matrix);
        EXPECT_TRUE(std::all_of(nothing.values.begin(), nothing.values.end(), [](double x) { return std::isnan(x); }));
    });
}

TEST(KVOSrvBlaMatrixSums, AddsToTheStoredTriangleAndMirrorsIt)
{
    ForEachKind([](Dense const& values, Property property) {
        if (values.values.empty())
            return;
        Framed const other(values.rows, values.columns);
        for (double alpha : {1.0, -1.0, 0.3}) {
            BlaPointer const matrix = MakeBla(values, property);
            matrix->Add(alpha, *other);
            ExpectOnStoredTriangle(*matrix, property, [&](int i, int j) { return values.At(i, j) + alpha * other.values.At(i, j); });
        }
        BlaPointer const matrix = MakeBla(values, property);
        matrix->Add(-0.0, *other);
        ExpectSame(*matrix, values);
        matrix->Add(2.0, *matrix);
        ExpectOnStoredTriangle(*matrix, property, [&](int i, int j) { return values.At(i, j) + 2.0 * values.At(i, j); });
        matrix->Add(kNotANumber, *other);
        EXPECT_TRUE(std::isnan(ValuesOf(*matrix).values.back()));
    });
}

TEST(KVOSrvBlaMatrixSums, WorkOnAViewWithinItsFrame)
{
    Framed const target(9, 4), other(9, 4);
    BlaPointer const symmetric = MakeBla(other.values, kSymmetric);
    target->Add(1.0, *symmetric); // the property of the other plays no part
    target->Multiply(0.5);
    ExpectSame(*target, [&](int i, int j) { return 0.5 * (target.values.At(i, j) + other.values.At(i, j)); });
    target.ExpectFrameUnchanged();

    Framed const square(9, 9); // a structured view, by assignment
    *square = KVOSrvBlaMatrix(9, 9, square.values.values.data(), kSkewSymmetric);
    square->Multiply(-2.0);
    ExpectOnStoredTriangle(*square, kSkewSymmetric, [&](int i, int j) { return -2.0 * square.values.At(i, j); });
    square.ExpectFrameUnchanged();
}

} // namespace
