#include "Examine.h"

#include "Database.h"
#include "EntryTally.h"
#include "Errors.h"
#include "FullMatrix.h"
#include "MatrixName.h"
#include "MatrixReader.h"
#include "Progress.h"
#include "StructuralRank.h"
#include "TextPlaces.h"
#include "TwoNorm.h"

#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace
{

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

void AddPiece(EntryTally& tally, Piece const& piece, int row, int column)
{
    for (int j = 0; j < piece.columns; ++j)
        for (int i = 0; i < piece.rows; ++i)
            if (double const value = piece(i, j); value != 0.0)
                tally.Add(row + i, column + j, value);
            else
                tally.AddZero();
}

// @param row,column  where the piece begins; its mirror image begins at (column, row)
void Compare(Piece const& piece, Piece const& mirror, int row, int column, AsymmetrySearch& search)
{
    for (int j = 0; j < piece.columns; ++j)
        for (int i = 0; i < piece.rows; ++i)
            if (row + i >= column + j)
                search.Compare(row + i, column + j, piece(i, j), mirror(j, i));
}

MatrixDiagnosis ExamineDense(KVOSrvDenseMatrix const& matrix, std::string const& path)
{
    Progress progress("reading " + path);
    int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    EntryTally tally(rows, columns);
    Piece piece(matrix), mirror(matrix);
    AsymmetrySearch asymmetry;
    for (int row = 0; row < rows; row += Piece::kSize)
        for (int column = 0; column < columns; column += Piece::kSize) {
            progress.Set((row + static_cast<double>(column) / columns * Piece::kSize) / rows);
            piece.Read(matrix, row, column);
            AddPiece(tally, piece, row, column);
            if (rows != columns || column > row)
                continue;
            mirror.Read(matrix, column, row);
            Compare(piece, mirror, row, column, asymmetry);
        }
    double const scale = tally.LargestSize();
    MatrixDiagnosis facts = tally.Finish();
    facts.storage = "simulation database, dense matrix";
    facts.isDense = true;
    facts.repeated.emplace();
    if (facts.IsSquare())
        facts.asymmetry = asymmetry.Result(scale);
    return facts;
}

// These hold a value for each place, or were stored by the library.
bool NeverRepeats(MatrixFormat format)
{
    return format == MatrixFormat::kDense || format == MatrixFormat::kNumpy || format == MatrixFormat::kDatabase;
}

// Binary files in half storage may hold a pair again, which FullMatrix sums.
Found<RepeatedEntry> RepeatedPairs(KVOSrvSparseRows const& half)
{
    Found<RepeatedEntry> repeated;
    std::vector<int> metIn(static_cast<std::size_t>(half.columns), -1);
    ForEachEntry(half, [&](int row, int column, double value) {
        if (std::exchange(metIn[static_cast<std::size_t>(column)], row) == row)
            repeated.Add({{row, column, value}});
    });
    return repeated;
}

// The lines of all that was found, in one pass over the file.
void FindLinesOf(MatrixDiagnosis& facts, MatrixName const& name)
{
    std::vector<EntryPlace*> wanted;
    for (Found<EntryPlace>* const found : {&facts.nan, &facts.infinite, &facts.zeroDiagonal, &facts.negativeDiagonal})
        for (EntryPlace& place : found->first)
            wanted.push_back(&place);
    for (RepeatedEntry& one : facts.repeated->first)
        wanted.push_back(&one.place);
    EntryPlace pair[] = {{0, 0}, {0, 0}};
    if (facts.asymmetry && facts.asymmetry->largest > 0.0) {
        pair[0] = {facts.asymmetry->row, facts.asymmetry->column};
        pair[1] = {facts.asymmetry->column, facts.asymmetry->row};
        wanted.push_back(pair);
        wanted.push_back(pair + 1);
    }
    FindLines(name, wanted);
    if (facts.asymmetry) {
        facts.asymmetry->line = pair[0].line;
        facts.asymmetry->mirrorLine = pair[1].line;
    }
}

void LeaveOut(MatrixDiagnosis& facts, std::string const& what, std::int64_t bytes)
{
    facts.leftOut += (facts.leftOut.empty() ? "" : "; ") + what + " would take " + std::to_string(bytes) + " bytes (--memory)";
}

void ExamineStructure(MatrixDiagnosis& facts, KVOSrvSparseRows const& rows, ExamineLimits const& limits)
{
    facts.pieces = FindPieces(rows);
    facts.structuralRank = FindStructuralRank(rows);
    if (!facts.IsSquare())
        return;
    bool const isPatternSymmetric = facts.asymmetry->unmatched == 0;
    if (std::int64_t const bytes = BytesOfReordering(rows, isPatternSymmetric); bytes > limits.memory)
        LeaveOut(facts, "the reordering", bytes);
    else
        facts.reordered = EnvelopeIn(rows, ReverseCuthillMcKee(rows, isPatternSymmetric));
}

ExaminedMatrix ExamineSparse(MatrixName const& name, ExamineLimits const& limits)
{
    std::unique_ptr<KVOSrvSparseMatrix> read = ReadMatrix(name);
    Progress progress("examining " + name.path);
    std::optional<Found<RepeatedEntry>> repeated;
    if (NeverRepeats(name.format))
        repeated.emplace();
    if (read->Rows().diagonal != nullptr)
        repeated = RepeatedPairs(read->Rows());
    std::unique_ptr<KVOSrvSparseMatrix const> matrix;
    if (read->Rows().diagonal != nullptr)
        matrix = read->InFullStorage();
    else
        matrix = std::move(read);
    read.reset();

    KVOSrvSparseRows const rows = matrix->Rows();
    EntryTally tally(rows.rows, rows.columns);
    ForEachEntry(rows, [&](int row, int column, double value) { tally.Add(row, column, value); });
    double const largest = tally.LargestSize();
    MatrixDiagnosis facts = tally.Finish();
    facts.name = name.text;
    facts.storage = DescribeFormat(name.format);
    facts.repeated = std::move(repeated);
    if (facts.IsSquare())
        facts.asymmetry = FindAsymmetry(rows);
    if (HasLines(name)) {
        facts.repeated = FindRepeated(name, rows);
        FindLinesOf(facts, name);
    }
    ExamineStructure(facts, rows, limits);
    if (std::int64_t const bytes = BytesOfTwoNorm(rows.rows, rows.columns); facts.norms && bytes > limits.memory)
        LeaveOut(facts, "the 2-norm", bytes);
    else if (facts.norms)
        facts.norms->two = EstimateTwoNorm(*matrix, facts.entries > facts.zeros ? largest : 0.0, facts.IsExactlySymmetric());
    facts.definiteness = JudgeDefiniteness(facts, rows);
    if (limits.factors && facts.IsFinite() && facts.IsSymmetric())
        facts.definiteness = FactorForDefiniteness(facts, *matrix, limits.memory);
    return {std::move(facts), std::move(matrix)};
}

ExaminedMatrix ExamineByKind(MatrixName const& name, ExamineLimits const& limits)
{
    if (name.format != MatrixFormat::kDatabase)
        return ExamineSparse(name, limits);
    MatrixName found = name;
    {
        InputDatabase const database(name.path);
        KVOSimDistributionID const id = database.Find(name, MatrixKind::kAny);
        found.context = id.ContextID().Index();
        found.distribution = id.Index();
        try {
            if (KVOSrvUtilities::IsDenseMatrix(KVOSimDistribution(id)))
                return {ExamineDense(KVOSrvDenseMatrix(id), name.path), nullptr};
        } catch (KVOSrvMtxIllegalInput const&) {
            throw ToolError(ExitCode::kUnreadable, name.text + ": is no matrix of doubles; kvomtx db ls shows what it is");
        }
    }
    return ExamineSparse(found, limits);
}

} // namespace

ExaminedMatrix Examine(MatrixName const& name, ExamineLimits const& limits)
{
    ExaminedMatrix examined = ExamineByKind(name, limits);
    examined.diagnosis.name = name.text; // ExamineByKind() completes that of a database
    return examined;
}
