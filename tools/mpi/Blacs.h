#pragma once

/// The entry points of BLACS and ScaLAPACK that are called; they come without headers.
extern "C" {
void Cblacs_get(int context, int what, int* value);
void Cblacs_gridinit(int* context, char const* order, int rows, int columns);
void Cblacs_gridinfo(int context, int* rows, int* columns, int* row, int* column);
void Cblacs_gridexit(int context);
void descinit_(int* descriptor, int const* m, int const* n, int const* mb, int const* nb, int const* firstRow, int const* firstColumn,
               int const* context, int const* lld, int* info);
void pdgemm_(char const* transA, char const* transB, int const* m, int const* n, int const* k, double const* alpha, double const* a,
             int const* ia, int const* ja, int const* descA, double const* b, int const* ib, int const* jb, int const* descB,
             double const* beta, double* c, int const* ic, int const* jc, int const* descC);
}
