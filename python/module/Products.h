#pragma once

#include "Dense.h"

#include <pybind11/numpy.h>

#include <cstdint>

/// Pieces of products of a stored matrix A with arrays in Fortran order, rows firstRow to lastRow of A in each; shapes fit. `memory` is the
/// limit that the library is given, 0 for none.

/// Y = A(rows, :) X
void MultiplyRows(Dense& A, pybind11::array_t<double> const& X, pybind11::array_t<double>& Y, int firstRow, int lastRow,
                  std::int64_t memory);
/// Y = A(rows, :)^T X + beta Y. @param X  as many rows as there are
void MultiplyRowsTransposed(Dense& A, pybind11::array_t<double> const& X, pybind11::array_t<double>& Y, int firstRow, int lastRow,
                            double beta, std::int64_t memory);
/// Y = A X, or A^T X, or that added to Y: all arrays, by the DGEMM that the library is given.
void Multiply(pybind11::array_t<double> const& A, pybind11::array_t<double> const& X, pybind11::array_t<double>& Y, bool transpose,
              bool accumulate);
