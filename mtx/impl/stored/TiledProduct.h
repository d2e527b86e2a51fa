#pragma once

#include "DenseGemm.h"
#include "StatedMemory.h"

/// Products of stored matrices within the memory that KVOSrvProductMemory allows.
namespace DenseTiles
{

using DensePieces::Buffer;
using DensePieces::Window;
using DenseSlabs::Factor;
using DenseSlabs::Result;
using DenseSlabs::Span;

/// op(A): some rows of one stored matrix or of several side by side.
struct Left {
    std::span<KVOSrvDenseMatrix const* const> members;
    Span rows;
    bool transposed = false;
    int const* permutation = nullptr; ///< of all rows, of a transposed one; as KVOSrvMatrix::PermuteRowsInPlace() takes it

    int Columns() const noexcept;
};

/// B: stored, or else in memory.
struct Right {
    KVOSrvDenseMatrix const* stored = nullptr;
    Factor values{nullptr, 0};
};

/// C: from a row of a stored matrix on, or else in memory.
struct Target {
    KVOSrvDenseMatrix* stored = nullptr;
    Result values{nullptr, 0};
    int firstRow = 0;
    bool isA = false; ///< it overwrites rows of A, row by row
};

/// Half of the result that is formed; it is mirrored by Mirror(), or by the caller.
enum class Half { None, Lower, Upper };
/// The half of a symmetric result of so many rows and columns that is mirrored.
inline Half HalfOf(int symmetric, int rows, int columns) noexcept
{
    return symmetric == 0 ? Half::None : rows < columns ? Half::Upper : Half::Lower;
}

/// C := alpha op(A) B + beta C for p columns, tile by tile within the limit in force.
/// @throws KVOSrvMtxIllegalInput `operation` when that is too small
void Multiply(char const* operation, Left const& A, Right const& B, int p, double alpha, double beta, Target const& C,
              Half half = Half::None);

/// Rows of A that go to as many rows of C from `target` on.
struct RowGroup {
    Span rows;
    int target;
};
/// C := A X for groups of rows.
void MultiplyGroups(char const* operation, KVOSrvDenseMatrix const& A, Factor const& X, int p, KVOSrvDenseMatrix& C,
                    std::span<RowGroup const> groups);

/// C := A^T B for stored matrices, A being several side by side, and a C that may overlap them: the product is then formed in a scratch
/// matrix. A half of it is mirrored.
void MultiplyStored(char const* operation, std::span<KVOSrvDenseMatrix const* const> A, int rows, KVOSrvDenseMatrix const& B,
                    KVOSrvDenseMatrix& C, int symmetric);

} // namespace DenseTiles
