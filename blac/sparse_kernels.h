#pragma once

#include <cstddef>

namespace blac
{

/// The rows of a sparse matrix that a product uses, in their order.
struct SparseRows {
    double const* a;      ///< stored values
    unsigned const* ia;   ///< row starts; the caller's 32-bit integers, read as unsigned as the matrix class stores them
    unsigned const* ie;   ///< row ends: ia + 1 where rows are whole
    int const* ja;        ///< column indices
    std::ptrdiff_t count; ///< rows used
    int const* index;     ///< their `count` numbers, or null for 0, 1, 2 ...
    std::ptrdiff_t columns;
    std::ptrdiff_t ld; ///< leading dimension of the vectors with a place for each row: `count`, or more where these are some of the rows
};

/// One pass over the rows for some vectors; `x` and `y` point to the first of them.
using SparsePass = void (*)(SparseRows const& rows, double const* x, double* y);

/// The passes for groups of 8, 4, 2 and 1 vectors, as one kind of processor runs them fastest. All round after each product and after each
/// sum and take the entries in storage order, so that every pass of every kind gives the bits of the plain loop.
struct SparseKernels {
    SparsePass times[4];                      ///< y = A x; leading dimensions: x `columns`, y `ld`
    SparsePass transposedTimes[4];            ///< y += A^T x; leading dimensions: x `ld`, y `columns`
    SparsePass transposedTimesInterleaved[4]; ///< the same, with the values of a row of y one behind the other
};

extern SparseKernels const sparseKernelsBaseline; ///< SSE2
extern SparseKernels const sparseKernelsAvx2;
extern SparseKernels const sparseKernelsAvx512; ///< AVX-512 F, DQ and VL

/// The kernels of the level in force.
SparseKernels const& SparseKernelsInForce();

/// How many vectors go through the rows together: 8, or fewer (4, 2, 1) where the places that eight vectors are touched at would be
/// spread over more than `reachablePages` pages of memory. Changes the speed only.
/// @param reachablePages  KVOBasChoices::groupPages, or its half for a product that touches rows of x and of y for each entry
int SparseGroupSize(SparseRows const& rows, int reachablePages);

/// Whether A^T x for groups of vectors is faster when y is interleaved meanwhile: an entry then touches one place of y instead of one for
/// each vector. It pays where these are spread over more than the second-level cache, and there are entries enough to make up for
/// Deinterleave(). Changes the speed only.
bool InterleavingPays(SparseRows const& rows, std::size_t l2Bytes);

} // namespace blac
