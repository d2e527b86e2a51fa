#include "KVOSrvDenseMatrixSet.h"

#include "DatabaseSupport.h"

// [x y]
static Dense Beside(Dense x, Dense const& y)
{
    x.values.insert(x.values.end(), y.values.begin(), y.values.end());
    x.columns += y.columns;
    return x;
}

TEST(KVOSrvDenseMatrixSet, MultipliesItsMembersSideBySide)
{
    TestDatabase const database;
    struct {
        int rows;
        std::vector<int> columns;
        int rowChunk, columnChunk, p;
    } const cases[] = {{10, {3}, 4, 2, 5}, {10, {3, 1, 4}, 3, 2, 8}, {7, {2, 2}, -1, -1, 4}, {9, {1, 9}, 2, 9, 3}, {50, {4, 2}, 1, 4, 6}};
    for (auto const& c : cases) {
        SCOPED_TRACE(c.rows);
        std::vector<std::unique_ptr<KVOSrvDenseMatrix>> matrices;
        std::vector<KVOSrvDenseMatrix const*> members;
        Dense s(c.rows, 0);
        for (int const columns : c.columns) {
            matrices.push_back(std::make_unique<KVOSrvDenseMatrix>(database.Matrix(c.rows, columns, c.rowChunk, c.columnChunk)));
            s = Beside(s, Randomize(*matrices.back()));
            members.push_back(matrices.back().get());
        }
        KVOSrvDenseMatrix b(database.Matrix(c.rows, c.p, 4, 3)), stored(database.Matrix(s.columns, c.p, 3, 3));
        Dense const product = Product(s, true, Randomize(b));
        KVOSrvDenseMatrixSet const set(members.data(), static_cast<int>(members.size()));
        for (int const symmetric : {0, 1}) {
            Dense const expected = symmetric != 0 ? Mirrored(product) : product;
            GuardedMatrix inMemory(s.columns, c.p, false, false);
            set.TransposeMultiply(&b, inMemory.matrix, symmetric);
            ExpectSame(inMemory.matrix, expected, 1e-13 * c.rows);
            set.TransposeMultiply(&b, &stored, symmetric);
            ExpectSame(stored, expected, 1e-13 * c.rows);
        }
    }
}

TEST(KVOSrvDenseMatrixSet, RefusesWhatDoesNotFit)
{
    TestDatabase const database;
    KVOSrvDenseMatrix a(database.Matrix(6, 2, 4, 4)), b(database.Matrix(6, 3, 4, 4)), other(database.Matrix(5, 2, 4, 4));
    KVOSrvDenseMatrix const *fitting[] = {&a, &b}, *mixed[] = {&a, &other}, *const none = nullptr;
    KVOSrvMatrix c = RandomMatrix(5, 3), small = RandomMatrix(4, 3), symmetricWidth = RandomMatrix(4, 2);
    KVOSrvDenseMatrixSet const set(fitting, 2), mixedSet(mixed, 2), empty(nullptr, 2), uncounted(fitting, 0);
    ExpectEachThrows<KVOSrvMtxInvalidGetRange>(
        {[&] { set.TransposeMultiply(&other, c, 0); }, [&] { mixedSet.TransposeMultiply(&a, symmetricWidth, 1); }});
    char const* const operation = "KVOSrvDenseMatrixSet::TransposeMultiply";
    ExpectRefused(operation, c,
                  {[&] { set.TransposeMultiply(none, c, 0); }, [&] { empty.TransposeMultiply(&b, c, 0); },
                   [&] { uncounted.TransposeMultiply(&b, c, 0); }, [&] { set.TransposeMultiply(&b, &a, 0); }});
    ExpectRefused(operation, small, [&] { set.TransposeMultiply(&b, small, 1); });

    KVOSrvDenseMatrix const* longer[] = {&other, &a};
    Dense const first = Randomize(other), second = Randomize(a), factor = Randomize(b);
    KVOSrvMatrix product = RandomMatrix(4, 3);
    KVOSrvDenseMatrixSet(longer, 2).TransposeMultiply(&b, product, 0); // rows that the first member lacks take no part
    ExpectSame(product, Product(Beside(first, Part(second, 0, 4, 0, 1)), true, Part(factor, 0, 4, 0, 2)), 1e-14);

    int const more[] = {100, 101};
    ASSERT_EQ(a.ExtendDim(1, 2, more), 0); // the rows that B lacks are found before the first pass
    ExpectRefused(operation, c, [&] { set.TransposeMultiply(&b, c, 0); });
}
