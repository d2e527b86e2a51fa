#include "KVOSrvSparseMatrix.h"

#include "KVOBasProcessor.h"
#include "KVOFortran.h"
#include "SparseRows.h"
#include "sparse_parts.h"
#include "sparse_products.h"
#include "tasks.h"

#include <algorithm>
#include <climits>

using namespace KVOSrvSparseSupport;

namespace
{

// The offsets as the Fortran-callable kernels take them; they do not exceed INT_MAX.
int const* AsInt(unsigned const* numbers)
{
    return reinterpret_cast<int const*>(numbers);
}

void SetToZero(double* y, int rows, int nvec)
{
    std::fill_n(y, std::int64_t{rows} * nvec, 0.0);
}

struct HalfRows {
    std::int64_t n;
    unsigned const* rowStart;
    int const* columns;
    double const* values;
    double const* diagonal;
};

struct Span {
    std::int64_t first, end;
    bool Holds(std::int64_t number) const noexcept { return number >= first && number < end; }
};

// Which rows of y a pass over some rows is for.
enum class For {
    kAll,      // whatever they reach
    kOwnSpan,  // some, these rows among them
    kOtherSpan // some that these rows are not among
};

// y += A x for some vectors, entry (i, c, a) in s(i) += a x(c) and y(c) += a x(i). The order of the additions is part of the result: each
// row's sum s is formed apart and added to y(i) together with the diagonal's product.
template<int kVectors, For kFor = For::kAll>
void MultiplyVectors(HalfRows const& rows, Span some, double const* x, double* y, Span span = {})
{
    for (std::int64_t i = some.first; i < some.end; ++i) {
        double t[kVectors], s[kVectors] = {};
        for (int j = 0; j < kVectors; ++j)
            t[j] = x[i + j * rows.n];
        for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k) {
            double const a = rows.values[k];
            std::int64_t const c = rows.columns[k];
            bool const reaches = kFor == For::kAll || span.Holds(c);
            for (int j = 0; j < kVectors; ++j) {
                if constexpr (kFor != For::kOtherSpan)
                    s[j] += a * x[c + j * rows.n];
                if (reaches)
                    y[c + j * rows.n] += a * t[j];
            }
        }
        if constexpr (kFor != For::kOtherSpan)
            for (int j = 0; j < kVectors; ++j)
                y[i + j * rows.n] += rows.diagonal[i] * t[j] + s[j];
    }
}

// A half-stored matrix in tasks that each form some rows of y. What the rows of the others add there comes in its turn, so that every sum
// is formed as by one pass over all rows.
class HalfParts
{
public:
    HalfParts(HalfRows const& rows, int parts)
        : m_rows(rows), m_parts(parts),
          m_reach(parts > 1 ? static_cast<Span*>(mem_Malloc(mem_ArrayBytes(rows.n / kBlock + 1, sizeof(Span)))) : nullptr)
    {
        if (m_reach == nullptr)
            return;
        blac::InTasks(m_parts, [&](int part) {
            for (Span block = BlockFrom(Rows(part).first); block.first < Rows(part).end; block = BlockFrom(block.end))
                m_reach[block.first / kBlock] = Reach(block);
        });
    }
    int Count() const noexcept { return m_reach != nullptr ? m_parts : 1; }

    template<int kVectors>
    void Multiply(int part, double const* x, double* y) const
    {
        Span const own = Rows(part);
        for (int j = 0; j < kVectors; ++j)
            std::fill(y + j * m_rows.n + own.first, y + j * m_rows.n + own.end, 0.0);
        if (Count() == 1)
            return MultiplyVectors<kVectors>(m_rows, own, x, y);
        for (Span block = BlockFrom(0); block.first < m_rows.n; block = BlockFrom(block.end)) {
            Span const reach = m_reach[block.first / kBlock];
            if (!own.Holds(block.first)) {
                if (reach.first < own.end && reach.end > own.first)
                    MultiplyVectors<kVectors, For::kOtherSpan>(m_rows, block, x, y, own);
            } else if (reach.first >= own.first && reach.end <= own.end) {
                MultiplyVectors<kVectors>(m_rows, block, x, y);
            } else {
                MultiplyVectors<kVectors, For::kOwnSpan>(m_rows, block, x, y, own);
            }
        }
    }

    // Vectors `first` and the next ones, as long as there are kVectors left; returns the first of the others.
    template<int kVectors>
    int MultiplyGroups(int part, int first, int nvec, double const* x, double* y) const
    {
        for (; first + kVectors <= nvec; first += kVectors)
            Multiply<kVectors>(part, x + first * m_rows.n, y + first * m_rows.n);
        return first;
    }

private:
    static constexpr std::int64_t kBlock = 64; // rows

    Span Rows(int part) const noexcept { return {Begin(part), Begin(part + 1)}; }
    std::int64_t Begin(int part) const noexcept
    {
        if (Count() == 1 || part == m_parts)
            return part == 0 ? 0 : m_rows.n;
        return blac::FirstRowOf(m_rows.rowStart, m_rows.n, m_parts, part) / kBlock * kBlock;
    }
    Span BlockFrom(std::int64_t first) const noexcept { return {first, std::min(first + kBlock, m_rows.n)}; }
    Span Reach(Span block) const noexcept
    {
        int first = INT_MAX, last = -1;
        for (unsigned k = m_rows.rowStart[block.first]; k < m_rows.rowStart[block.end]; ++k) {
            first = std::min(first, m_rows.columns[k]);
            last = std::max(last, m_rows.columns[k]);
        }
        return {first, std::int64_t{last} + 1};
    }

    HalfRows m_rows;
    int m_parts;
    Array<Span> m_reach; // of each block: the columns of its entries, the diagonal apart
};

} // namespace

void KVOSrvSparseMatrix::Multiply(double const* x, int nvec, double* y, bool transpose) const
{
    RequireAssembled("Multiply");
    if (nvec <= 0)
        return;
    if (m_rowStart == nullptr)
        SetToZero(y, transpose ? m_columnCount : m_rowCount, nvec);
    else if (IsHalfStored())
        MultiplyHalf(x, nvec, y);
    else if (transpose)
        blac::MultiplyTransposedAscending(
            blac::RowsOf(m_values.get(), AsInt(m_rowStart.get()), m_columnIndices.get(), &m_rowCount, &m_columnCount, nullptr), x, y, nvec);
    else
        BLAC_SPARSE_UMV(m_values.get(), x, AsInt(m_rowStart.get()), m_columnIndices.get(), y, &m_rowCount, &m_columnCount, &nvec);
}

// The matrix is its own transpose.
void KVOSrvSparseMatrix::MultiplyHalf(double const* x, int nvec, double* y) const
{
    HalfRows const rows{m_rowCount, m_rowStart.get(), m_columnIndices.get(), m_values.get(), m_diagonal.get()};
    bool const large = std::int64_t{StoredEntries()} * nvec >= 2 * blac::kLeastMultiplications;
    HalfParts const parts(rows, large ? blac::ThreadsForTasks() : 1);
    // In groups as the kernels of full storage take them; every entry touches a row of x and one of y.
    int const group =
        nvec < 8 ? 1
                 : blac::SparseGroupSize(blac::RowsOf(rows.values, AsInt(rows.rowStart), rows.columns, &m_rowCount, &m_rowCount, nullptr),
                                         KVOBasProcessor::This().choices.groupPages / 2);
    blac::InTasks(parts.Count(), [&](int part) {
        int first = 0;
        if (group == 8)
            first = parts.MultiplyGroups<8>(part, first, nvec, x, y);
        else if (group == 4)
            first = parts.MultiplyGroups<4>(part, first, nvec, x, y);
        else if (group == 2)
            first = parts.MultiplyGroups<2>(part, first, nvec, x, y);
        parts.MultiplyGroups<1>(part, first, nvec, x, y);
    });
}

void KVOSrvSparseMatrix::MultiplyIndexed(double const* x, int nvec, double* y, bool transpose, int nIndex, unsigned const* index) const
{
    if (!transpose)
        KVOSrvMtxNoTranspose().Throw(kSource, 1107);
    if (nvec <= 0)
        return;
    if (m_rowStart == nullptr)
        SetToZero(y, m_columnCount, nvec);
    else
        // Deliberate: half storage is not taken into account; the rows are multiplied as they are stored.
        blac::MultiplyTransposedAscending(
            blac::RowsOf(m_values.get(), AsInt(m_rowStart.get()), m_columnIndices.get(), &nIndex, &m_columnCount, AsInt(index)), x, y,
            nvec);
}

void KVOSrvSparseMatrix::Scale(double s)
{
    RequireAssembled("Scale");
    std::for_each_n(m_values.get(), StoredEntries(), [s](double& value) { value *= s; });
    if (HoldsDiagonal())
        std::for_each_n(m_diagonal.get(), m_rowCount, [s](double& value) { value *= s; });
}
