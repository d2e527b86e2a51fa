#include "BlaMatrices.h"

TEST(KVOSrvBlaMatrix, CopiesItsValuesOrIsZero)
{
    for (auto const& [rows, columns] : {std::pair(0, 0), {0, 3}, {3, 0}, {1, 1}, {7, 8}, {145, 3}}) {
        SCOPED_TRACE(testing::Message() << rows << " x " << columns);
        Dense const values = RandomDense(rows, columns);
        ExpectSame(*MakeBla(values, kSymmetric), values);
        ExpectSame(KVOSrvBlaMatrix(rows, columns, nullptr, kGeneral), Dense(rows, columns));
    }
    KVOSrvBlaMatrix const bystander(1, 1, nullptr, kGeneral);
    EXPECT_EQ(FailEachBlaAllocation(bystander, [] { KVOSrvBlaMatrix(3, 3, nullptr, kGeneral); }), 2);
    for (auto const& [rows, columns] : {std::pair(-1, 5), {65536, 65536}, {65537, 65537}}) // the last wraps around to a small number
        EXPECT_THROW(KVOSrvBlaMatrix(rows, columns, nullptr, kGeneral), mem_OutOfMemory);
}

TEST(KVOSrvBlaMatrix, ViewsShareTheArrayAndOutliveTheirParents)
{
    Dense values = RandomDense(9, 8);
    int const firstRow[] = {0, 1, 3}, firstColumn[] = {0, 2, 3};
    int order[] = {0, 1, 2}; // in which a matrix, a view of it and a view of that one go
    do {
        BlaPointer views[3] = {MakeBla(values), nullptr, nullptr};
        views[1].reset(views[0]->Submatrix(1, 7, 2, 7));
        views[2].reset(views[1]->Submatrix(2, 5, 1, 3));
        for (int const gone : order) { // written by one, seen by all that are left
            double const value = values.At(4, 5) += 1.0;
            int const row = 4 - firstRow[gone], column = 5 - firstColumn[gone];
            views[gone]->SetValues(row, row, column, column, &value);
            for (int v = 0; v < 3; ++v)
                if (views[v] != nullptr)
                    ExpectSame(*views[v], [&](int i, int j) { return values.At(firstRow[v] + i, firstColumn[v] + j); });
            views[gone].reset();
        }
    } while (std::next_permutation(order, order + 3));
    KVOSrvBlaMatrix const matrix(3, 3, nullptr, kGeneral);
    EXPECT_EQ(FailEachBlaAllocation(matrix, [&] { BlaPointer(matrix.Submatrix(0, 1, 0, 1)); }), 1);
}

TEST(KVOSrvBlaMatrix, SetsAndGetsRanges)
{
    int const ranges[][4] = {{0, 8, 0, 6}, {2, 5, 6, 6}, {0, 8, 1, 3}, {8, 8, 0, 6}, {4, 4, 0, 0}}; // of 9 x 7: first and last row, column
    for (auto const& [r0, r1, c0, c1] : ranges) {
        SCOPED_TRACE(testing::Message() << r0 << " to " << r1 << ", " << c0 << " to " << c1);
        int const rows = r1 - r0 + 1, columns = c1 - c0 + 1;
        Framed const target(9, 7), block(rows, columns), taken(rows, columns);
        Dense packed = RandomDense(rows, columns), expected = target.values;

        target->SetValues(r0, r1, c0, c1, packed.values.data());
        Put(expected, packed, r0, c0);
        ExpectSame(*target, expected);
        target->SetValues(r0, r1, c0, c1, *block);
        Put(expected, block.values, r0, c0);
        ExpectSame(*target, expected);
        target->GetValues(r0, r1, c0, c1, packed.values.data());
        ExpectSame(packed, block.values);
        target->GetValues(r0, r1, c0, c1, *taken);
        ExpectSame(*taken, packed);

        target.ExpectFrameUnchanged();
        taken.ExpectFrameUnchanged();
    }
}

TEST(KVOSrvBlaMatrix, SetDiagonal)
{
    double const values[] = {1.5, 2.5, 3.5, 4.5};
    for (auto const& [rows, columns] : {std::pair(3, 4), {4, 3}, {4, 4}, {1, 1}, {0, 4}}) {
        Framed const matrix(std::max(rows, 1), columns);
        BlaPointer const view(rows > 0 ? matrix->Submatrix(0, rows - 1, 0, columns - 1) : new KVOSrvBlaMatrix(0, 4, nullptr, kGeneral));
        view->SetDiagonal(values);
        ExpectSame(*view, [&](int i, int j) { return i == j ? values[i] : matrix.values.At(i, j); });
        matrix.ExpectFrameUnchanged();
    }
}

TEST(KVOSrvBlaMatrix, AssignmentCopiesValuesAndProperty)
{
    Framed const target(5, 7), source(5, 7);
    KVOSrvBlaMatrix symmetric(5, 7, nullptr, kSymmetric);
    symmetric = 2.0;
    *target = symmetric;
    ExpectSame(*target, Dense(5, 7, 2.0));
    EXPECT_TRUE(target->IsSymmetric() && !target->IsSkewSymmetric());
    EXPECT_FALSE(symmetric.View(0, 3, 1, 2)->IsSymmetric());
    symmetric = *source;
    symmetric = static_cast<KVOSrvBlaMatrix const&>(symmetric);
    *source = -1.0; // shared by nobody
    ExpectSame(symmetric, source.values);
    EXPECT_FALSE(symmetric.IsSymmetric());
    target.ExpectFrameUnchanged();
    source.ExpectFrameUnchanged();
}

TEST(KVOSrvBlaMatrix, Transpose)
{
    for (int n : {1, 2, 7, 9, 33}) {
        Framed const matrix(n, n);
        matrix->Transpose();
        ExpectSame(*matrix, Transposed(matrix.values));
        matrix.ExpectFrameUnchanged();
    }
    Dense const values = RandomDense(2, 3);
    BlaPointer const matrix = MakeBla(values, kSymmetric);
    EXPECT_EQ(FailEachBlaAllocation(*matrix, [&] { matrix->Transpose(); }), 1);
    EXPECT_TRUE(matrix->NumberOfRows() == 3 && matrix->NumberOfColumns() == 2 && matrix->IsSymmetric());
    // By columns without gaps, but the leading dimension is still 2: the second column is found one element early.
    double transposed[] = {values.At(0, 0), values.At(0, 1), values.At(0, 2), values.At(1, 0), values.At(1, 1)};
    ExpectSame(*matrix, [&](int i, int j) { return transposed[2 * j + i]; });
    double const diagonal[] = {transposed[0] = 7.5, transposed[3] = 8.5};
    matrix->SetDiagonal(diagonal);
    ExpectSame(*matrix, [&](int i, int j) { return transposed[2 * j + i]; });
    KVOSrvBlaMatrix tall(50000, 2, nullptr, kGeneral);
    tall.Transpose();
    BlaPointer const view(tall.Submatrix(0, 1, 45000, 45002)); // behind the array, and behind what 32 bits hold
    EXPECT_EQ(view->NumberOfColumns(), 3);
}
