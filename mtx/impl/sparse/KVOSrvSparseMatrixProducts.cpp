// Products of a sparse matrix in memory.

#include "KVOSrvSparseMatrix.h"

#include "KVOBasProcessor.h"
#include "KVOFortran.h"
#include "KVOSrvSparseMatrixContent.h"
#include "SparseProducts.h"
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
void MultiplyVectors(KVOSrvSparseRows const& rows, Span some, double const* x, double* y, Span span = {})
{
    std::int64_t const n = rows.rows;
    for (std::int64_t i = some.first; i < some.end; ++i) {
        double t[kVectors], s[kVectors] = {};
        for (int j = 0; j < kVectors; ++j)
            t[j] = x[i + j * n];
        for (unsigned k = rows.rowStart[i]; k < rows.rowStart[i + 1]; ++k) {
            double const a = rows.values[k];
            std::int64_t const c = rows.columnIndices[k];
            bool const reaches = kFor == For::kAll || span.Holds(c);
            for (int j = 0; j < kVectors; ++j) {
                if constexpr (kFor != For::kOtherSpan)
                    s[j] += a * x[c + j * n];
                if (reaches)
                    y[c + j * n] += a * t[j];
            }
        }
        if constexpr (kFor != For::kOtherSpan)
            for (int j = 0; j < kVectors; ++j)
                y[i + j * n] += rows.diagonal[i] * t[j] + s[j];
    }
}

// A half-stored matrix in tasks that each form some rows of y. What the rows of the others add there comes in its turn, so that every sum
// is formed as by one pass over all rows.
class HalfParts
{
public:
    HalfParts(KVOSrvSparseRows const& rows, int parts)
        : m_rows(rows), m_n(rows.rows), m_parts(parts),
          m_reach(parts > 1 ? static_cast<Span*>(mem_Malloc(mem_ArrayBytes(m_n / kStrip + 1, sizeof(Span)))) : nullptr)
    {
        if (m_reach == nullptr)
            return;
        blac::InTasks(m_parts, [&](int part) {
            for (Span strip = StripFrom(Rows(part).first); strip.first < Rows(part).end; strip = StripFrom(strip.end))
                m_reach[strip.first / kStrip] = Reach(strip);
        });
    }
    int Count() const noexcept { return m_reach != nullptr ? m_parts : 1; }

    template<int kVectors>
    void Multiply(int part, double const* x, double* y) const
    {
        Span const own = Rows(part);
        for (int j = 0; j < kVectors; ++j)
            std::fill(y + j * m_n + own.first, y + j * m_n + own.end, 0.0);
        if (Count() == 1)
            return MultiplyVectors<kVectors>(m_rows, own, x, y);
        for (Span strip = StripFrom(0); strip.first < m_n; strip = StripFrom(strip.end)) {
            Span const reach = m_reach[strip.first / kStrip];
            if (!own.Holds(strip.first)) {
                if (reach.first < own.end && reach.end > own.first)
                    MultiplyVectors<kVectors, For::kOtherSpan>(m_rows, strip, x, y, own);
            } else if (reach.first >= own.first && reach.end <= own.end) {
                MultiplyVectors<kVectors>(m_rows, strip, x, y);
            } else {
                MultiplyVectors<kVectors, For::kOwnSpan>(m_rows, strip, x, y, own);
            }
        }
    }

    // Vectors `first` and the next ones, as long as there are kVectors left; returns the first of the others.
    template<int kVectors>
    int MultiplyGroups(int part, int first, int nvec, double const* x, double* y) const
    {
        for (; first + kVectors <= nvec; first += kVectors)
            Multiply<kVectors>(part, x + first * m_n, y + first * m_n);
        return first;
    }

private:
    static constexpr std::int64_t kStrip = 64; // rows

    Span Rows(int part) const noexcept { return {Begin(part), Begin(part + 1)}; }
    std::int64_t Begin(int part) const noexcept
    {
        if (Count() == 1 || part == m_parts)
            return part == 0 ? 0 : m_n;
        return blac::FirstRowOf(m_rows.rowStart, m_n, m_parts, part) / kStrip * kStrip;
    }
    Span StripFrom(std::int64_t first) const noexcept { return {first, std::min(first + kStrip, m_n)}; }
    Span Reach(Span strip) const noexcept
    {
        int first = INT_MAX, last = -1;
        for (unsigned k = m_rows.rowStart[strip.first]; k < m_rows.rowStart[strip.end]; ++k) {
            first = std::min(first, m_rows.columnIndices[k]);
            last = std::max(last, m_rows.columnIndices[k]);
        }
        return {first, std::int64_t{last} + 1};
    }

    KVOSrvSparseRows m_rows;
    std::int64_t m_n;
    int m_parts;
    Array<Span> m_reach; // of each strip: the columns of its entries, the diagonal apart
};

// The matrix is its own transpose.
void MultiplyHalf(KVOSrvSparseRows const& rows, double const* x, int nvec, double* y)
{
    bool const large = std::int64_t{rows.entries} * nvec >= 2 * blac::kLeastMultiplications;
    HalfParts const parts(rows, large ? blac::ThreadsForTasks() : 1);
    // In groups as the kernels of full storage take them; every entry touches a row of x and one of y.
    int const group =
        nvec < 8
            ? 1
            : blac::SparseGroupSize(blac::RowsOf(rows.values, AsInt(rows.rowStart), rows.columnIndices, &rows.rows, &rows.rows, nullptr),
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

} // namespace

void KVOSrvSparseMatrix::Multiply(double const* x, int nvec, double* y, bool transpose) const
{
    RequireAssembled("Multiply");
    if (nvec <= 0)
        return;
    KVOSrvSparseRows const rows = View();
    if (rows.diagonal != nullptr)
        MultiplyHalf(rows, x, nvec, y);
    else if (transpose)
        blac::MultiplyTransposedAscending(
            blac::RowsOf(rows.values, AsInt(rows.rowStart), rows.columnIndices, &rows.rows, &rows.columns, nullptr), x, y, nvec);
    else
        BLAC_SPARSE_UMV(rows.values, x, AsInt(rows.rowStart), rows.columnIndices, y, &rows.rows, &rows.columns, &nvec);
}

void KVOSrvSparseSupport::MultiplyIndexed(KVOSrvSparseRows const& rows, double const* x, int nvec, double* y, bool transpose, int nIndex,
                                          unsigned const* index)
{
    if (!transpose)
        KVOSrvMtxNoTranspose().Throw(kSource, 1107);
    if (nvec > 0)
        blac::MultiplyTransposedAscending(
            blac::RowsOf(rows.values, AsInt(rows.rowStart), rows.columnIndices, &nIndex, &rows.columns, AsInt(index)), x, y, nvec);
}

void KVOSrvSparseMatrix::Scale(double s)
{
    RequireAssembled("Scale");
    auto const scale = [s](double& value) { value *= s; };
    if (auto* const half = std::get_if<HalfRows>(&m_content->rows)) {
        std::for_each_n(half->triangle.values.get(), half->triangle.Entries(), scale);
        std::for_each_n(half->diagonal.get(), m_rowCount, scale);
    } else if (auto* const full = std::get_if<CompressedRows>(&m_content->rows)) {
        std::for_each_n(full->values.get(), full->Entries(), scale);
    }
}
