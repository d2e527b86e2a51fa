// Products of stored matrices with arrays, in pieces between which Python may be interrupted.

#include "Products.h"

#include "Arrays.h"

#include "KVOSrvMatrix.h"
#include "KVOSrvProductMemory.h"

#include <memory>
#include <optional>

namespace py = pybind11;

namespace
{

struct Shape {
    int rows, columns;
};

Shape ShapeOf(py::array const& array)
{
    if (array.ndim() != 2)
        throw py::value_error("an array of two dimensions is needed here");
    return {static_cast<int>(array.shape(0)), static_cast<int>(array.shape(1))};
}

double* ValuesOf(py::array_t<double> const& array, bool toWrite)
{
    return static_cast<double*>(BytesOf(array, array.nbytes(), toWrite));
}

// A range that the library takes part of is checked here, once: it is the caller's own.
void Require(bool fits)
{
    if (!fits)
        throw py::value_error("the shapes of a product do not fit");
}

std::optional<KVOSrvProductMemory> Limit(std::int64_t memory)
{
    return memory > 0 ? std::optional<KVOSrvProductMemory>(std::in_place, memory) : std::nullopt;
}

// All of it as it is, so that blocks are cut as in a product that the library walks itself.
KVOSrvDenseMatrix& RowsOf(KVOSrvDenseMatrix& matrix, int firstRow, int lastRow, std::unique_ptr<KVOSrvDenseMatrix>& view)
{
    Require(firstRow >= 0 && firstRow <= lastRow && lastRow < matrix.NumberOfRows());
    if (firstRow == 0 && lastRow == matrix.NumberOfRows() - 1)
        return matrix;
    view = matrix.View(firstRow, lastRow, 0, matrix.NumberOfColumns() - 1);
    return *view;
}

} // namespace

void MultiplyRows(Dense& A, py::array_t<double> const& X, py::array_t<double>& Y, int firstRow, int lastRow, std::int64_t memory)
{
    Shape const x = ShapeOf(X), y = ShapeOf(Y);
    KVOSrvMatrix const operand(x.rows, x.columns, ValuesOf(X, false), false, false);
    KVOSrvMatrix result(y.rows, y.columns, ValuesOf(Y, true), false, false);
    Alone({&A.In()}, [&] {
        auto const limit = Limit(memory);
        std::unique_ptr<KVOSrvDenseMatrix> view;
        RowsOf(A.Matrix(), firstRow, lastRow, view).Multiply(operand, result);
    });
}

void MultiplyRowsTransposed(Dense& A, py::array_t<double> const& X, py::array_t<double>& Y, int firstRow, int lastRow, double beta,
                            std::int64_t memory)
{
    Shape const x = ShapeOf(X), y = ShapeOf(Y);
    KVOSrvMatrix const operand(x.rows, x.columns, ValuesOf(X, false), false, false);
    KVOSrvMatrix result(y.rows, y.columns, ValuesOf(Y, true), false, false);
    Alone({&A.In()}, [&] {
        auto const limit = Limit(memory);
        std::unique_ptr<KVOSrvDenseMatrix> view;
        RowsOf(A.Matrix(), firstRow, lastRow, view).TransposeMultiply(nullptr, operand, result, 1.0, beta);
    });
}

void Multiply(py::array_t<double> const& A, py::array_t<double> const& X, py::array_t<double>& Y, bool transpose, bool accumulate)
{
    Shape const a = ShapeOf(A), x = ShapeOf(X), y = ShapeOf(Y);
    Require(x.rows == (transpose ? a.rows : a.columns) && y.rows == (transpose ? a.columns : a.rows) && x.columns == y.columns);
    KVOSrvMatrix const left(a.rows, a.columns, ValuesOf(A, false), false, false);
    KVOSrvMatrix const right(x.rows, x.columns, ValuesOf(X, false), false, false);
    KVOSrvMatrix result(y.rows, y.columns, ValuesOf(Y, true), false, false);
    py::gil_scoped_release const released;
    if (transpose)
        left.TransposeMultiply(right, result, 0, accumulate);
    else
        left.Multiply(right, result, 0, accumulate);
}
