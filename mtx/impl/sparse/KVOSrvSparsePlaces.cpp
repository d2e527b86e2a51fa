// The second assembly of a pattern: places are found once, values are summed there again and again.

#include "KVOSrvSparsePlaces.h"

#include "KVOSrvSparseMatrixContent.h"
#include "tasks.h"

#include <algorithm>
#include <string>

using namespace KVOSrvSparseSupport;

namespace
{

constexpr char kConstructor[] = "KVOSrvSparsePlaces";
constexpr KVOSrvMatrixSupport::RefusalCheck RequireFittingPlaces("mtx/impl/KVOSrvSparsePlaces", kConstructor);

constexpr std::int64_t kLeastOfPiece = 32768; // below, tasks gain little

// Where in an ascending list of `count` numbers `number` stands; where it would, unless it does. A search without branches took 1.3 times
// as long on a Zen 4: a step that is guessed wrong has fetched lines of the row.
inline unsigned PlaceInAscending(int const* list, unsigned count, int number) noexcept
{
    return static_cast<unsigned>(std::lower_bound(list, list + count, number) - list);
}

// Full storage that was half storage once may have its columns in any order.
inline unsigned PlaceInAnyOrder(int const* list, unsigned count, int number) noexcept
{
    return static_cast<unsigned>(std::find(list, list + count, number) - list);
}

// Where the values of (row, column) are, or `rows.entries`. @param guess  a place that is looked at first
template<auto placeIn>
inline unsigned PlaceOf(KVOSrvSparseRows const& rows, std::uint64_t row, std::uint64_t column, unsigned guess) noexcept
{
    auto const nowhere = static_cast<unsigned>(rows.entries);
    if (row >= static_cast<std::uint64_t>(rows.rows) || column >= static_cast<std::uint64_t>(rows.columns))
        return nowhere;
    unsigned const begin = rows.rowStart[row], end = rows.rowStart[row + 1];
    if (guess >= begin && guess < end && rows.columnIndices[guess] == static_cast<int>(column))
        return guess;
    unsigned const place = begin + placeIn(rows.columnIndices + begin, end - begin, static_cast<int>(column));
    return place < end && rows.columnIndices[place] == static_cast<int>(column) ? place : nowhere;
}

template<class Index>
[[noreturn]] void RefuseEntry(std::int64_t k, Index row, Index column)
{
    std::string const reason = "the matrix stores nothing at row " + std::to_string(row) + ", column " + std::to_string(column) +
                               ", where entry " + std::to_string(k) + " belongs";
    RequireFittingPlaces(false, kConstructor, reason.c_str());
    __builtin_unreachable();
}

template<auto placeIn, class Index>
void FindPiece(KVOSrvSparseRows const& rows, Index const* rowOf, Index const* columnOf, std::int64_t first, std::int64_t end,
               unsigned* places)
{
    unsigned guess = 0;
    for (std::int64_t k = first; k < end; ++k) {
        // A negative number becomes one that is too large.
        places[k] = PlaceOf<placeIn>(rows, static_cast<std::uint64_t>(rowOf[k]), static_cast<std::uint64_t>(columnOf[k]), guess);
        if (places[k] == static_cast<unsigned>(rows.entries))
            RefuseEntry(k, rowOf[k], columnOf[k]);
        guess = places[k] + 1; // the unknowns of a node follow one another in most element matrices
    }
}

template<auto placeIn, class Index>
void FindAll(KVOSrvSparseRows const& rows, Index const* rowOf, Index const* columnOf, std::int64_t count, unsigned* places)
{
    int const pieces = blac::PiecesFor(count, kLeastOfPiece);
    blac::InTasks(pieces, [&](int piece) {
        FindPiece<placeIn>(rows, rowOf, columnOf, blac::PieceBegin(count, pieces, piece), blac::PieceBegin(count, pieces, piece + 1),
                           places);
    });
}

} // namespace

KVOSrvSparsePlaces::KVOSrvSparsePlaces(KVOSrvSparseMatrix const& matrix, unsigned const* rows, unsigned const* columns, std::int64_t count)
    : m_count(count)
{
    Find(matrix, rows, columns);
}

KVOSrvSparsePlaces::KVOSrvSparsePlaces(KVOSrvSparseMatrix const& matrix, int const* rows, int const* columns, std::int64_t count)
    : m_count(count)
{
    Find(matrix, rows, columns);
}

KVOSrvSparsePlaces::~KVOSrvSparsePlaces() = default;

template<class Index>
void KVOSrvSparsePlaces::Find(KVOSrvSparseMatrix const& matrix, Index const* rows, Index const* columns)
{
    matrix.RequireAssembled(kConstructor);
    matrix.RequireFull(kConstructor);
    RequireFittingPlaces(m_count >= 0, kConstructor, "the number of entries is negative");
    CompressedRows const& stored = matrix.m_content->FullRows(matrix.m_rowCount, matrix.m_columnCount);
    m_pattern = stored.pattern;
    m_places = AllocateArray<unsigned>(m_count);
    if (ColumnsAscend(stored.View()))
        FindAll<PlaceInAscending>(stored.View(), rows, columns, m_count, m_places.get());
    else
        FindAll<PlaceInAnyOrder>(stored.View(), rows, columns, m_count, m_places.get());
}

bool KVOSrvSparsePlaces::IsFor(KVOSrvSparseMatrix const& matrix) const noexcept
{
    return matrix.m_content->Pattern() == m_pattern;
}

void KVOSrvSparseMatrix::ClearValues()
{
    RequireAssembled("ClearValues");
    RequireFull("ClearValues");
    CompressedRows& rows = m_content->FullRows(m_rowCount, m_columnCount);
    std::fill_n(rows.values.get(), rows.Entries(), -0.0);
    m_symmetry = Symmetry::kUnknown;
}

void KVOSrvSparseMatrix::AddValues(KVOSrvSparsePlaces const& places, double const* values)
{
    RequireAssembled("AddValues");
    RequireFull("AddValues");
    RequireFitting(places.IsFor(*this), "AddValues", "the places are those of another pattern");
    double* const sums = m_content->FullRows(m_rowCount, m_columnCount).values.get();
    unsigned const* const place = places.m_places.get();
    for (std::int64_t k = 0; k < places.m_count; ++k)
        sums[place[k]] += values[k];
    m_symmetry = Symmetry::kUnknown;
}
