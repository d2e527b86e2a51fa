#pragma once

#include "DenseBuffer.h"
#include "DenseWalk.h"
#include "KVOFortran.h"
#include "KVOSrvMatrixSupport.h"
#include "mem_Vector.h"
#include "tasks.h"

/// How products of database matrices call DGEMM, and several at once on the threads that the host lends.
namespace DenseSlabs
{

using DensePieces::Buffer;
using DensePieces::Timed;
using DensePieces::Window;

/// An operand of DGEMM with its leading dimension.
template<class Value>
struct Operand {
    Value* values;
    int rows;

    Operand At(std::int64_t row, std::int64_t column) const { return {values + row + column * rows, rows}; }
};
using Factor = Operand<double const>;
using Result = Operand<double>;

struct Shape {
    int m, n, k;
};

/// C := alpha op(A) B + beta C.
inline void Multiply(char const* transA, Shape const& shape, double alpha, Factor const& a, Factor const& b, double beta, Result const& c)
{
    using KVOSrvMatrixSupport::LeadingDimension;
    int const lda = LeadingDimension(a.rows), ldb = LeadingDimension(b.rows), ldc = LeadingDimension(c.rows);
    Timed([&] { BLAC_DGEMM(transA, "N", &shape.m, &shape.n, &shape.k, &alpha, a.values, &lda, b.values, &ldb, &beta, c.values, &ldc); });
}

/// Memory for the pieces, of `entries` entries at the most, that are multiplied at once: one for each thread that the host lends, if there
/// are so many of them. Only the calling thread reads.
inline mem_Vector<Buffer> BuffersAtOnce(std::int64_t entries, int pieces)
{
    mem_Vector<Buffer> memory;
    int const count = std::clamp(pieces, 1, std::min(blac::ThreadsForTasks(), kMostAtOnce));
    memory.reserve(static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k)
        memory.emplace_back(entries);
    return memory;
}

/// Calls read(piece, memory) for `count` pieces, as many at a time as there is memory for, and multiply(piece, memory) for these at once.
template<class Read, class Multiply>
void ReadAndMultiply(int count, mem_Vector<Buffer> const& memory, Read const& read, Multiply const& multiply)
{
    int const atOnce = static_cast<int>(memory.size());
    for (int first = 0; first < count; first += atOnce) {
        int const taken = std::min(atOnce, count - first);
        for (int k = 0; k < taken; ++k)
            read(first + k, memory[static_cast<std::size_t>(k)]);
        blac::InTasks(taken, [&](int k) { multiply(first + k, memory[static_cast<std::size_t>(k)]); });
    }
}

} // namespace DenseSlabs
