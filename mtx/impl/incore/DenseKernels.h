#pragma once

#include "KVOBasProcessor.h"

#include <cstdint>

/// Loops over column-major arrays with a leading dimension. Element (i, j) of `a` stands at a[i + j * lda].
namespace DenseKernels
{

enum class Triangle { Lower, Upper };
enum class Sign { Keep, Flip };

/// Calls run(source, target, count) once per column, or once in all where both arrays are contiguous.
template<class Run>
void ForEachRun(int rows, int columns, double const* source, std::int64_t lds, double* target, std::int64_t ldt, Run const& run)
{
    if (rows == lds && rows == ldt) {
        run(source, target, std::int64_t{rows} * columns);
        return;
    }
    for (int j = 0; j < columns; ++j)
        run(source + j * lds, target + j * ldt, std::int64_t{rows});
}

/// target := source. The arrays may be the same.
void Copy(int rows, int columns, double const* source, std::int64_t lds, double* target, std::int64_t ldt);

/// Whether transposed arrays of so many entries are stored past the cache on `processor`, where their lines allow.
bool PassesCache(KVOBasProcessor const& processor, std::int64_t entries);

/// b := a^T for `a` of rows x columns. The arrays may not overlap.
void Transpose(int rows, int columns, double const* a, std::int64_t lda, double* b, std::int64_t ldb,
               KVOBasProcessor const& processor = KVOBasProcessor::This());

/// a := a^T for `a` of order n.
void TransposeInPlace(int n, double* a, std::int64_t lda);

/// Copies the strict triangle `from` of `a`, of order n, onto the other one, with the sign bits flipped if asked for.
void MirrorTriangle(int n, Triangle from, Sign sign, double* a, std::int64_t lda,
                    KVOBasProcessor const& processor = KVOBasProcessor::This());

/// target[i * stride] := target[i * stride] + f * source[i] for `count` elements; for f = 1 and -1 exactly the sum and the difference.
void AddMultiple(double f, double const* source, std::int64_t count, double* target, std::int64_t stride);

/// Whether every element below the diagonal equals its mirror image; a NaN equals nothing.
bool IsSymmetric(int n, double const* a, std::int64_t lda);

/// Whether a = b^T for `a` of rows x columns; a NaN equals nothing. For arrays that the last-level cache holds.
bool EqualsTransposed(int rows, int columns, double const* a, std::int64_t lda, double const* b, std::int64_t ldb);

} // namespace DenseKernels
