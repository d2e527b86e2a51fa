#include "sparse_products.h"

#include "KVOBasProcessor.h"
#include "KVOFortran.h"
#include "interleaved.h"
#include "sparse_parts.h"
#include "tasks.h"

#include <algorithm>
#include <bit>

namespace
{

using blac::SparsePass;
using blac::SparseRows;

// The vectors in groups of eight (or smaller ones, see SparseGroupSize), then each vector that is left.
class Groups
{
public:
    Groups(SparseRows const& rows, int nvec, SparsePass const (&passes)[4])
        : m_passes(passes), m_vectors(nvec), m_inGroups(nvec - nvec % 8),
          m_group(m_inGroups > 0 ? blac::SparseGroupSize(rows, KVOBasProcessor::This().choices.groupPages) : 1)
    {
    }
    int Count() const noexcept { return m_inGroups / m_group + m_vectors - m_inGroups; }

    // multiply(first vector, vectors, pass)
    template<class Multiply>
    void Do(int number, Multiply const& multiply) const
    {
        int const inGroups = m_inGroups / m_group;
        if (number < inGroups)
            multiply(std::ptrdiff_t{number} * m_group, m_group, m_passes[3 - std::countr_zero(static_cast<unsigned>(m_group))]);
        else
            multiply(std::ptrdiff_t{m_inGroups} + (number - inGroups), 1, m_passes[3]);
    }
    template<class Multiply>
    void ForEach(Multiply const& multiply) const
    {
        for (int number = 0; number < Count(); ++number)
            Do(number, multiply);
    }

private:
    SparsePass const (&m_passes)[4];
    int m_vectors, m_inGroups, m_group;
};

std::int64_t Multiplications(SparseRows const& rows, int nvec)
{
    if (rows.count == 0)
        return 0;
    // Of rows that are picked one does not know without a look at each.
    std::int64_t const entries = rows.index != nullptr ? std::int64_t{rows.count} * 8 : rows.ie[rows.count - 1] - rows.ia[0];
    return entries * nvec;
}

void Multiply(SparseRows const& rows, double const* x, double* y, int nvec)
{
    Groups const groups(rows, nvec, blac::SparseKernelsInForce().times);
    int const parts = blac::PiecesFor(Multiplications(rows, nvec), blac::kLeastMultiplications);
    blac::InTasks(parts, [&](int part) {
        std::ptrdiff_t const first = parts > 1 ? blac::FirstRowOf(rows.ia, rows.count, parts, part) : 0;
        std::ptrdiff_t const end = parts > 1 ? blac::FirstRowOf(rows.ia, rows.count, parts, part + 1) : rows.count;
        SparseRows const some = blac::PartOf(rows, first, end);
        groups.ForEach([&](std::ptrdiff_t j, int, SparsePass pass) { pass(some, x + j * rows.columns, y + j * rows.ld + first); });
    });
}

// Some vectors a task; every task takes all rows.
void MultiplyTransposed(SparseRows const& rows, double const* x, double* y, int nvec)
{
    blac::SparseKernels const& kernels = blac::SparseKernelsInForce();
    bool const interleaved = nvec >= 8 && blac::InterleavingPays(rows, KVOBasProcessor::This().l2Bytes);
    Groups const groups(rows, nvec, interleaved ? kernels.transposedTimesInterleaved : kernels.transposedTimes);
    int const parts = std::min(groups.Count(), blac::PiecesFor(Multiplications(rows, nvec), blac::kLeastMultiplications));
    blac::InTasks(parts, [&](int part) {
        for (auto number = blac::PieceBegin(groups.Count(), parts, part); number < blac::PieceBegin(groups.Count(), parts, part + 1);
             ++number)
            groups.Do(static_cast<int>(number), [&](std::ptrdiff_t j, int vectors, SparsePass pass) {
                double* const target = y + j * rows.columns;
                std::fill_n(target, vectors * rows.columns, 0.0);
                pass(rows, x + j * rows.ld, target);
                if (interleaved && vectors > 1)
                    blac::Deinterleave(target, rows.columns, vectors);
            });
    });
}

} // namespace

blac::SparseRows blac::RowsOf(double const* a, int const* ia, int const* ja, int const* count, int const* columns, int const* index)
{
    auto const* const starts = reinterpret_cast<unsigned const*>(ia);
    return {a, starts, starts + 1, ja, *count, index, *columns, *count};
}

void blac::MultiplyTransposedAscending(SparseRows const& rows, double const* x, double* y, int nvec)
{
    Groups const groups(rows, nvec, SparseKernelsInForce().transposedTimes);
    int const threads = ThreadsForTasks();
    // Vectors are cut where that keeps all threads busy, since it costs nothing, else columns: looking through the rows for these takes as
    // long as two vectors gain.
    constexpr int kLeastVectors = 4;
    bool const byVectors =
        groups.Count() % threads == 0 || nvec < kLeastVectors || PiecesFor(Multiplications(rows, nvec), kLeastMultiplications) == 1;
    if (!byVectors) {
        SparseColumnParts const parts(rows, threads);
        if (parts.Count() > 0)
            return InTasks(parts.Count(), [&](int part) {
                std::ptrdiff_t const columns = parts.End(part) - parts.Begin(part);
                for (int j = 0; j < nvec; ++j)
                    std::fill_n(y + j * rows.columns + parts.Begin(part), columns, 0.0);
                parts.ForEach(part, [&](SparseRows const& some, std::ptrdiff_t first) {
                    groups.ForEach(
                        [&](std::ptrdiff_t j, int, SparsePass pass) { pass(some, x + j * rows.ld + first, y + j * rows.columns); });
                });
            });
    }
    MultiplyTransposed(rows, x, y, nvec);
}

extern "C" void BLAC_SPARSE_UMV(double const* a, double const* x, int const* ia, int const* ja, double* y, int const* n, int const* m,
                                int const* nvec)
{
    Multiply(blac::RowsOf(a, ia, ja, n, m, nullptr), x, y, *nvec);
}

extern "C" void BLAC_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y, int const* n, int const* m,
                                 int const* nvec)
{
    MultiplyTransposed(blac::RowsOf(a, ia, ja, n, m, nullptr), x, y, *nvec);
}

extern "C" void BLAC_SPARSE_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y, int const* nIndex,
                                        int const* m, int const* nvec, int const* index)
{
    MultiplyTransposed(blac::RowsOf(a, ia, ja, nIndex, m, index), x, y, *nvec);
}
