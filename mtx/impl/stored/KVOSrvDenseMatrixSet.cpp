#include "KVOSrvDenseMatrixSet.h"

#include "DenseBuffer.h"
#include "DenseChecks.h"
#include "DenseWalk.h"
#include "TiledProduct.h"

#include <climits>

using namespace DenseChecks;
using namespace DensePieces;
using namespace DenseSlabs;

namespace
{

constexpr KVOSrvMatrixSupport::RefusalCheck RequireOfSet("mtx/impl/KVOSrvDenseMatrixSet", "KVOSrvDenseMatrixSet");

constexpr char const* kMembers = "there are no members, or one was extended after the set was made";
constexpr char const* kResult = "the result is not full with a row for each column of the members, and as many columns as B";

} // namespace

KVOSrvDenseMatrixSet::KVOSrvDenseMatrixSet(KVOSrvDenseMatrix const** members, int count) : m_members(members), m_numMembers(count)
{
    if (members == nullptr || count < 1)
        return;
    KVOSrvDenseMatrix const& first = *members[0];
    m_numRows = first.NumberOfRows();
    m_numRowBlocks = first.NumberOfRowBlocks();
    m_maxRowsInBlock = first.MaxNumberOfRowsInBlock();
    std::int64_t columns = 0;
    for (int k = 0; k < count; ++k) {
        columns += members[k]->NumberOfColumns();
        m_maxColumnsInBlock = std::max(m_maxColumnsInBlock, members[k]->MaxNumberOfColumnsInBlock());
    }
    RequireOfSet(columns <= INT_MAX, "KVOSrvDenseMatrixSet", "the members have more than 2^31 - 1 columns together");
    m_numColumns = static_cast<int>(columns);
}

KVOSrvDenseMatrixSet::~KVOSrvDenseMatrixSet() = default;

bool KVOSrvDenseMatrixSet::FitsMembers() const
{
    if (m_members == nullptr || m_numMembers < 1 || m_members[0]->NumberOfRows() != m_numRows)
        return false;
    std::int64_t columns = 0;
    for (int k = 0; k < m_numMembers; ++k)
        columns += m_members[k]->NumberOfColumns();
    return columns == m_numColumns;
}

// Rows that the first member lacks take no part.
void KVOSrvDenseMatrixSet::RequireRows(KVOSrvDenseMatrix const& B) const
{
    RequireReadable(B.NumberOfRows() >= m_numRows);
    for (int k = 0; k < m_numMembers; ++k)
        RequireReadable(m_members[k]->NumberOfRows() >= m_numRows);
}

void KVOSrvDenseMatrixSet::TransposeMultiply(KVOSrvDenseMatrix const* B, KVOSrvDenseMatrix* C, int symmetric) const
{
    RequireOfSet(FitsMembers(), "TransposeMultiply", kMembers);
    RequireOfSet(B != nullptr && C != nullptr, "TransposeMultiply", kNull);
    int const n = B->NumberOfColumns();
    RequireRows(*B);
    RequireOfSet(C->NumberOfRows() == m_numColumns, "TransposeMultiply", kResult);
    RequireWritable(C->NumberOfColumns() >= n);
    if (n == 0 || m_numColumns == 0)
        return;
    if (KVOSrvProductMemory::IsSet())
        return DenseTiles::MultiplyStored("TransposeMultiply", {m_members, static_cast<std::size_t>(m_numMembers)}, m_numRows, *B, *C,
                                          symmetric);
    KVOSrvMatrix product(m_numColumns, n, nullptr, false, false);
    TransposeMultiply(B, product, symmetric);
    C->SetColumns(0, n - 1, product);
}

void KVOSrvDenseMatrixSet::TransposeMultiply(KVOSrvDenseMatrix const* B, KVOSrvMatrix& C, int symmetric) const
{
    RequireOfSet(FitsMembers(), "TransposeMultiply", kMembers);
    RequireOfSet(B != nullptr, "TransposeMultiply", kNull);
    int const n = B->NumberOfColumns();
    RequireRows(*B);
    RequireOfSet(IsFull(C, m_numColumns, n), "TransposeMultiply", kResult);
    if (n == 0 || m_numColumns == 0)
        return;
    if (KVOSrvProductMemory::IsSet()) {
        DenseTiles::Multiply("TransposeMultiply", {{m_members, static_cast<std::size_t>(m_numMembers)}, {0, m_numRows - 1}, true}, {B}, n,
                             1.0, 0.0, {nullptr, {C.Values(), C.NumberOfRows()}}, DenseTiles::HalfOf(symmetric, m_numColumns, n));
        if (symmetric != 0)
            C.SetSymmetricResults();
        return;
    }
    // 64 bits, because the products may exceed 32; the result does not depend on what comes out.
    std::int64_t const divisor = std::int64_t{m_maxRowsInBlock} * m_numColumns;
    std::int64_t const blocksPerPass = divisor == 0 ? 1 : std::int64_t{m_maxColumnsInBlock} * m_numRows / divisor;
    Walk const passes(m_members[0]->StoredRowBlocks(), blocksPerPass);
    Buffer const panel(std::int64_t{passes.MaxCount()} * m_numColumns), other(std::int64_t{passes.MaxCount()} * n);
    int accumulate = 0;
    passes.ForEach(
        [&](Span rows) {
            for (int k = 0; k < m_numMembers; ++k)
                m_members[k]->AnnounceRead(rows.first, rows.last, 0, m_members[k]->NumberOfColumns() - 1);
            B->AnnounceRead(rows.first, rows.last, 0, n - 1);
        },
        [&](Span rows) {
            std::int64_t column = 0;
            // Packed panels of equal rows: each member's columns follow those of the one before.
            for (int k = 0; k < m_numMembers; ++k) {
                int const columns = m_members[k]->NumberOfColumns();
                panel.Read(*m_members[k], {rows.first, rows.last, 0, columns - 1}, column * rows.Count());
                column += columns;
            }
            other.Read(*B, {rows.first, rows.last, 0, n - 1});
            KVOSrvMatrix const b = other.As(rows.Count(), n);
            Timed([&] { panel.As(rows.Count(), m_numColumns).TransposeMultiply(b, C, symmetric, accumulate); });
            accumulate = 1;
        });
    if (symmetric != 0)
        C.SetSymmetricResults();
}
