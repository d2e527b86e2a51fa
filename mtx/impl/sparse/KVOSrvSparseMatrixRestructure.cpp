// The members that move a sparse matrix's entries or change its storage.

#include "KVOSrvSparseMatrix.h"

#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrixContent.h"
#include "SparseRestructuring.h"
#include "SparseSymmetry.h"

#include <algorithm>
#include <climits>
#include <utility>

using namespace KVOSrvSparseSupport;

KVOSrvSparseMatrix* KVOSrvSparseMatrix::Transpose() const
{
    RequireAssembled("Transpose");
    return m_content->WithRows(m_rowCount, m_columnCount,
                               [&](auto const& rows) { return new KVOSrvSparseMatrix(TransposeOf(rows), m_content->Nonzeros()); });
}

KVOSrvSparseMatrix* KVOSrvSparseMatrix::Permute(int const* perm) const
{
    RequireAssembled("Permute");
    RequireFitting(m_rowCount == m_columnCount, "Permute", "the matrix is not square");
    return m_content->WithRows(m_rowCount, m_columnCount,
                               [&](auto const& rows) { return new KVOSrvSparseMatrix(PermutationOf(rows, perm), m_content->Nonzeros()); });
}

void KVOSrvSparseMatrix::PermuteInPlace(int const* perm)
{
    RequireAssembled("PermuteInPlace");
    RequireFitting(m_rowCount == m_columnCount, "PermuteInPlace", "the matrix is not square");
    m_content->WithRows(m_rowCount, m_columnCount, [&](auto& rows) { rows = PermutationOf(rows, perm); });
    if (std::holds_alternative<CompressedRows>(m_content->rows))
        m_symmetry = Symmetry::kUnknown;
}

void KVOSrvSparseMatrix::PermuteRows(int const* perm)
{
    RequireAssembled("PermuteRows");
    RequireFull("PermuteRows");
    CompressedRows& rows = m_content->FullRows(m_rowCount, m_columnCount);
    rows = RowPermutationOf(rows, perm);
    if (std::holds_alternative<CompressedRows>(m_content->rows))
        m_symmetry = Symmetry::kUnknown;
}

unsigned* KVOSrvSparseMatrix::FindNontrivialRows(int& count) const
{
    RequireAssembled("FindNontrivialRows");
    return RowsWithEntries(View(), count).release();
}

unsigned* KVOSrvSparseMatrix::FindNontrivialColumns(int& count) const
{
    RequireAssembled("FindNontrivialColumns");
    return ColumnsWithEntries(View(), count).release();
}

unsigned* KVOSrvSparseMatrix::EliminateTrivialColumns(int& count)
{
    RequireAssembled("EliminateTrivialColumns");
    RequireFull("EliminateTrivialColumns");
    CompressedRows& rows = m_content->FullRows(m_rowCount, m_columnCount);
    int kept = 0;
    auto list = ColumnsWithEntries(rows.View(), kept);
    KeepColumns(rows, list.get(), kept);
    m_columnCount = kept;
    count = kept; // the verdict of IsSymmetric() stays, as in SetColumnsToZero()
    return list.release();
}

void KVOSrvSparseMatrix::SetColumnsToZero(int const* columns, int n)
{
    RequireAssembled("SetColumnsToZero");
    // Deliberate: the small c of the name; it stands in reports that are searched for.
    RequireFull("SetcolumnsToZero");
    RequireFitting(n >= 0, "SetColumnsToZero", "the number of columns is negative");
    RequireFitting(std::all_of(columns, columns + n, [&](int column) { return column >= 0 && column < m_columnCount; }), "SetColumnsToZero",
                   "a column lies outside the matrix");
    ZeroColumns(m_content->FullRows(m_rowCount, m_columnCount), columns, n);
    // Deliberate: the verdict of IsSymmetric() stays, the structure being the same; only entries that come or move end it.
}

KVOSrvSparseMatrix* KVOSrvSparseMatrix::Symmetrized() const
{
    RequireAssembled("Symmetrized");
    if (auto const* const half = std::get_if<HalfRows>(&m_content->rows))
        return new KVOSrvSparseMatrix(CopyOf(*half), NumberOfNonzeros());
    CompressedRows const& rows = m_content->FullRows(m_rowCount, m_columnCount);
    RequireFitting(m_rowCount == m_columnCount && EntriesAreSymmetric(rows.View()), "Symmetrized", "the matrix is not symmetric");
    HalfRows half = UpperHalf(rows);
    int const entries = half.triangle.Entries();
    return new KVOSrvSparseMatrix(std::move(half), entries);
}

KVOSrvSparseMatrix* KVOSrvSparseMatrix::Full() const
{
    RequireAssembled("Full");
    RequireFitting(CountInFull(View()) <= INT_MAX, "Full", "more than 2^31 - 1 entries would be stored");
    auto const* const half = std::get_if<HalfRows>(&m_content->rows);
    CompressedRows full = half != nullptr ? InFull(*half) : CopyOf(m_content->FullRows(m_rowCount, m_columnCount));
    int const entries = full.Entries();
    return new KVOSrvSparseMatrix(std::move(full), entries);
}
