#pragma once

#include "KVOSrvMatrix.h"
#include "KVOSrvMatrixSupport.h"
#include "KVOSrvMtxExceptions.h"

/// What operations of database matrices require of their operands, and where they say that they refuse them.
namespace DenseChecks
{

constexpr char const* kSource = "mtx/impl/KVOSrvDenseMatrix";

/// Lines of the reports about ranges: fixed, since support staff search logs for them.
constexpr int kGetRangeLine = 544, kSetRangeLine = 568, kFailedWriteLine = 589;

constexpr KVOSrvMatrixSupport::RefusalCheck RequireFitting(kSource, "KVOSrvDenseMatrix");

// Reasons.
constexpr char const* kFactor = "X is not full with as many rows as the matrix has columns";
constexpr char const* kTransposedFactor = "X is not full with as many rows as the matrix";
constexpr char const* kTransposedResult =
    "the result is not full with as many rows as the matrix has columns, and a column for each vector";
constexpr char const* kOverlap = "the result overlaps an operand";
constexpr char const* kNull = "an operand is null";

/// A range of a stored matrix that an operation will read or write: products refuse it as the transfer would, but before anything is
/// changed.
inline void RequireReadable(bool inside)
{
    if (!inside)
        KVOSrvMtxInvalidGetRange().Throw(kSource, kGetRangeLine);
}
inline void RequireWritable(bool inside)
{
    if (!inside)
        KVOSrvMtxInvalidSetRange().Throw(kSource, kSetRangeLine);
}

/// Whether the array of a matrix holds all of its elements, as full storage does; a diagonal's does not, whoever owns it.
inline bool IsFull(KVOSrvMatrix const& matrix)
{
    return !matrix.IsDiagonal() || matrix.NumberOfColumns() <= 1;
}

inline bool IsFull(KVOSrvMatrix const& matrix, int rows, int columns)
{
    return matrix.NumberOfRows() == rows && matrix.NumberOfColumns() == columns && IsFull(matrix);
}

} // namespace DenseChecks
