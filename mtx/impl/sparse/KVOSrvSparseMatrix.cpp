// What a sparse matrix is made of and tells of itself.

#include "KVOSrvSparseMatrix.h"

#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrixContent.h"
#include "SparseSymmetry.h"

#include <algorithm>
#include <climits>
#include <utility>

using namespace KVOSrvSparseSupport;

namespace
{

constexpr char kConstructor[] = "KVOSrvSparseMatrix";

// @throws KVOSrvMtxRefusedInput unless a matrix can consist of these arrays
void RequireRows(KVOSrvSparseRows const& rows)
{
    RequireFitting(StartsAscend(rows.rowStart, rows.rows), kConstructor, "the row starts do not ascend from 0 to at most 2^31 - 1");
    auto const entries = static_cast<std::int64_t>(rows.rowStart[rows.rows]);
    RequireFitting(entries == 0 || (rows.columnIndices != nullptr && rows.values != nullptr), kConstructor, "an array is null");
    RequireFitting(
        std::all_of(rows.columnIndices, rows.columnIndices + entries, [&](int column) { return column >= 0 && column < rows.columns; }),
        kConstructor, "a column lies outside the matrix");
    RequireFitting(ColumnsAscend(rows), kConstructor, "the columns of a row do not ascend strictly");
    if (rows.diagonal == nullptr)
        return;
    RequireFitting(rows.rows == rows.columns, kConstructor, "a matrix of half storage is not square");
    RequireFitting(LieInOneTriangle(rows), kConstructor, "half storage has entries on the diagonal or on both sides of it");
}

} // namespace

KVOSrvSparseMatrix::KVOSrvSparseMatrix(int rows, int columns) : m_rowCount(rows), m_columnCount(columns)
{
    RequireFitting(rows >= 0 && columns >= 0, kConstructor, "a size is negative");
    m_content = std::make_unique<Content>();
}

KVOSrvSparseMatrix::KVOSrvSparseMatrix(int rows, int columns, unsigned* rowStart, int* columnIndices, double* values, double* diagonal)
    : KVOSrvSparseMatrix(rows, columns)
{
    RequireFitting(rowStart != nullptr, kConstructor, "an array is null");
    RequireRows({rows, columns, 0, rowStart, columnIndices, values, diagonal});
    // Nothing fails from here on: so far the arrays are the caller's.
    CompressedRows taken(rows, columns, Array<unsigned>(rowStart), Array<int>(columnIndices), Array<double>(values));
    if (diagonal != nullptr)
        Take(HalfRows{std::move(taken), Array<double>(diagonal)});
    else
        Take(std::move(taken));
}

KVOSrvSparseMatrix::KVOSrvSparseMatrix(CompressedRows&& rows, int nonzeroCount) : KVOSrvSparseMatrix(rows.rows, rows.columns)
{
    Take(std::move(rows));
    m_content->nonzeroCount = nonzeroCount;
}

KVOSrvSparseMatrix::KVOSrvSparseMatrix(HalfRows&& rows, int nonzeroCount) : KVOSrvSparseMatrix(rows.triangle.rows, rows.triangle.columns)
{
    Take(std::move(rows));
    m_content->nonzeroCount = nonzeroCount;
}

KVOSrvSparseMatrix::~KVOSrvSparseMatrix() = default;

void KVOSrvSparseMatrix::Take(CompressedRows&& rows, Symmetry symmetry) noexcept
{
    m_rowCount = rows.rows;
    m_columnCount = rows.columns;
    m_content->nonzeroCount = rows.Entries();
    m_content->rows = std::move(rows);
    m_symmetry = symmetry;
    m_pendingEntries.Truncate(0);
    m_content->spilled.reset();
}

void KVOSrvSparseMatrix::Take(HalfRows&& rows, int othersCounted) noexcept
{
    m_rowCount = rows.triangle.rows;
    m_columnCount = rows.triangle.columns;
    m_content->nonzeroCount = rows.triangle.Entries() + othersCounted;
    m_content->rows = std::move(rows);
    m_symmetry = Symmetry::kSymmetric;
    m_pendingEntries.Truncate(0);
    m_content->spilled.reset();
}

int KVOSrvSparseMatrix::NumberOfNonzeros() const noexcept
{
    return m_content->nonzeroCount;
}

KVOSimCSetID KVOSrvSparseMatrix::RowCSetID() const
{
    return m_content->rowCSet;
}

KVOSimCSetID KVOSrvSparseMatrix::ColumnCSetID() const
{
    return m_content->columnCSet;
}

bool KVOSrvSparseMatrix::IsHalfStored() const noexcept
{
    if (auto const* const none = std::get_if<NoRows>(&m_content->rows))
        return none->ofHalfStorage;
    return std::holds_alternative<HalfRows>(m_content->rows);
}

void KVOSrvSparseMatrix::RequireAssembled(char const* operation, int line) const
{
    if (!m_content->IsAssembled() && (m_pendingEntries.Size() > 0 || m_content->spilled != nullptr))
        KVOSrvMtxNotAssembled(operation).Throw(kSource, line);
}

void KVOSrvSparseMatrix::RequireFull(char const* operation, int line) const
{
    if (IsHalfStored())
        KVOSrvMtxNoSymmetricTrue(operation).Throw(kSource, line);
}

KVOSrvSparseRows KVOSrvSparseMatrix::View() const
{
    if (auto const* const half = std::get_if<HalfRows>(&m_content->rows))
        return half->View();
    return m_content->FullRows(m_rowCount, m_columnCount).View();
}

KVOSrvSparseRows KVOSrvSparseMatrix::Rows() const
{
    RequireAssembled("Rows");
    return View();
}

bool KVOSrvSparseMatrix::IsNull() const
{
    if (!m_content->IsAssembled())
        return true;
    KVOSrvSparseRows const rows = View();
    auto const isZero = [](double value) { return value == 0; }; // not so for a NaN
    return std::all_of(rows.values, rows.values + rows.entries, isZero) &&
           (rows.diagonal == nullptr || std::all_of(rows.diagonal, rows.diagonal + rows.rows, isZero));
}

bool KVOSrvSparseMatrix::IsSymmetric() const
{
    if (m_symmetry != Symmetry::kUnknown)
        return m_symmetry == Symmetry::kSymmetric;
    bool const symmetric = !m_content->IsAssembled() || EntriesAreSymmetric(View());
    // Deliberate: kept also where entries wait to be assembled. EndAssembly() keeps the verdict, whatever they are.
    m_symmetry = symmetric ? Symmetry::kSymmetric : Symmetry::kNot;
    return symmetric;
}

KVOSrvSparseMatrixEntry* KVOSrvSparseMatrix::GetEntries(int& count) const
{
    RequireAssembled("GetEntries");
    if (m_rowCount == 0) {
        count = 0;
        return nullptr;
    }
    KVOSrvSparseRows const rows = View();
    std::int64_t const length = CountInFull(rows);
    RequireFitting(length <= INT_MAX, "GetEntries", "there are more than 2^31 - 1 entries");
    auto list = AllocateList<KVOSrvSparseMatrixEntry>(length);
    ListInFull(rows, list.get());
    count = static_cast<int>(length);
    return list.release();
}
