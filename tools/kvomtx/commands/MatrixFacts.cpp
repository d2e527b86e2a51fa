#include "MatrixFacts.h"

#include "Database.h"
#include "Errors.h"
#include "FullMatrix.h"
#include "MatrixName.h"
#include "MatrixReader.h"
#include "Progress.h"
#include "Symmetry.h"

#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace
{

/// Gathers the facts, entry by entry.
class Tally
{
public:
    Tally(int rows, int columns) : m_rows(static_cast<std::size_t>(rows)), m_columns(static_cast<std::size_t>(columns))
    {
        m_facts.rows = rows;
        m_facts.columns = columns;
    }

    void Add(int row, int column, double value)
    {
        ++m_facts.entries;
        m_facts.lowerBandwidth = std::max<std::int64_t>(m_facts.lowerBandwidth, row - column);
        m_facts.upperBandwidth = std::max<std::int64_t>(m_facts.upperBandwidth, column - row);
        char& seen = m_rows[static_cast<std::size_t>(row)];
        seen = std::max<char>(seen, value == 0.0 ? kZeros : kValues);
        m_columns[static_cast<std::size_t>(column)] = kValues;
        m_facts.zeros += value == 0.0;
        AddValue(value);
    }
    /// A 0 of a dense matrix.
    void AddZero()
    {
        ++m_facts.zeros;
        AddValue(0.0);
    }

    /// Of the finite values so far; 1 when all of them are 0.
    double LargestSize() const
    {
        double const size = std::max(std::fabs(m_facts.smallest), std::fabs(m_facts.largest));
        return std::isfinite(size) && size > 0.0 ? size : 1.0;
    }

    /// @param asymmetry  of a square matrix: Asymmetry::largest
    MatrixFacts Finish(std::string const& storage, double asymmetry)
    {
        m_facts.storage = storage;
        m_facts.trivialRows = static_cast<int>(std::ranges::count(m_rows, char{kNothing}));
        m_facts.zeroRows = static_cast<int>(std::ranges::count(m_rows, char{kZeros}));
        m_facts.trivialColumns = static_cast<int>(std::ranges::count(m_columns, char{kNothing}));
        m_facts.symmetry = m_facts.rows != m_facts.columns ? "not square"
                           : asymmetry == 0.0              ? "symmetric"
                           : asymmetry <= 1e-12            ? "symmetric up to rounding"
                                                           : "not symmetric";
        return m_facts;
    }

private:
    enum : char { kNothing, kZeros, kValues };

    void AddValue(double value)
    {
        m_facts.notFinite += !std::isfinite(value);
        if (!std::isfinite(value))
            return;
        m_facts.smallest = std::min(m_facts.smallest, value);
        m_facts.largest = std::max(m_facts.largest, value);
        if (value != 0.0)
            m_facts.smallestSize = std::min(m_facts.smallestSize, std::fabs(value));
    }

    MatrixFacts m_facts;
    std::vector<char> m_rows;
    std::vector<char> m_columns;
};

/// A square piece of a dense matrix, cut off at the matrix's end.
struct Piece {
    static constexpr int kSize = 1024; // 8 MiB; two are held

    explicit Piece(KVOSrvDenseMatrix const& matrix)
        : values(std::min(kSize, matrix.NumberOfRows()), std::min(kSize, matrix.NumberOfColumns()), nullptr, false, false)
    {
    }
    void Read(KVOSrvDenseMatrix const& matrix, int row, int column)
    {
        rows = std::min(kSize, matrix.NumberOfRows() - row);
        columns = std::min(kSize, matrix.NumberOfColumns() - column);
        matrix.GetValues(row, row + rows - 1, column, column + columns - 1, values);
    }
    double operator()(int i, int j) const { return values.Values()[i + std::ptrdiff_t{j} * rows]; }

    KVOSrvMatrix values;
    int rows = 0;
    int columns = 0;
};

void AddPiece(Tally& tally, Piece const& piece, int row, int column)
{
    for (int j = 0; j < piece.columns; ++j)
        for (int i = 0; i < piece.rows; ++i)
            if (double const value = piece(i, j); value != 0.0)
                tally.Add(row + i, column + j, value);
            else
                tally.AddZero();
}

double LargestDifference(Piece const& piece, Piece const& mirror)
{
    double largest = 0.0;
    for (int j = 0; j < piece.columns; ++j)
        for (int i = 0; i < piece.rows; ++i)
            if (double const a = piece(i, j), b = mirror(j, i); a != b)
                largest = std::max(largest, std::isfinite(a - b) ? std::fabs(a - b) : std::numeric_limits<double>::infinity());
    return largest;
}

MatrixFacts ExamineDense(KVOSrvDenseMatrix const& matrix, std::string const& path)
{
    Progress progress("reading " + path);
    int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    Tally tally(rows, columns);
    Piece piece(matrix), mirror(matrix);
    double asymmetry = 0.0;
    for (int row = 0; row < rows; row += Piece::kSize)
        for (int column = 0; column < columns; column += Piece::kSize) {
            progress.Set((row + static_cast<double>(column) / columns * Piece::kSize) / rows);
            piece.Read(matrix, row, column);
            AddPiece(tally, piece, row, column);
            if (rows != columns || column > row)
                continue;
            mirror.Read(matrix, column, row);
            asymmetry = std::max(asymmetry, LargestDifference(piece, mirror));
        }
    return tally.Finish("simulation database, dense matrix", asymmetry / tally.LargestSize());
}

MatrixFacts ExamineSparse(MatrixName const& name)
{
    FullMatrix const matrix(ReadMatrix(name));
    KVOSrvSparseRows const rows = matrix.Rows();
    Tally tally(rows.rows, rows.columns);
    ForEachEntry(rows, [&](int row, int column, double value) { tally.Add(row, column, value); });
    return tally.Finish(DescribeFormat(name.format), rows.rows == rows.columns ? FindAsymmetry(rows).largest : 0.0);
}

} // namespace

MatrixFacts Examine(MatrixName const& name)
{
    if (name.format != MatrixFormat::kDatabase)
        return ExamineSparse(name);
    MatrixName found = name;
    {
        InputDatabase const database(name.path);
        KVOSimDistributionID const id = database.Find(name, MatrixKind::kAny);
        found.context = id.ContextID().Index();
        found.distribution = id.Index();
        try {
            if (KVOSrvUtilities::IsDenseMatrix(KVOSimDistribution(id)))
                return ExamineDense(KVOSrvDenseMatrix(id), name.path);
        } catch (KVOSrvMtxIllegalInput const&) {
            throw ToolError(ExitCode::kUnreadable, name.text + ": is no matrix of doubles; kvomtx db ls shows what it is");
        }
    }
    return ExamineSparse(found);
}
