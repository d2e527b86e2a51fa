#include "MatrixWriter.h"

#include "Database.h"
#include "Errors.h"
#include "FullMatrix.h"
#include "Interrupt.h"
#include "OutputFile.h"
#include "Progress.h"
#include "Source.h"
#include "SparseArrays.h"
#include "Symmetry.h"

#include "KVOFsmSystemDofDefinition.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cstdint>

namespace
{

void RequireWritable(MatrixName const& name, KVOFsmSystemDofDefinition const* dofs)
{
    switch (name.format) {
    case MatrixFormat::kRecords:
    case MatrixFormat::kChunksAsStored:
    case MatrixFormat::kTriplets2:
    case MatrixFormat::kHarwellBoeing:
    case MatrixFormat::kScipy:
    case MatrixFormat::kNumpy:
    case MatrixFormat::kMatlab:
        throw ToolError(ExitCode::kUsage,
                        name.text + ": " + DescribeFormat(name.format) + " can be read only; write mtx, sim, 3, 5, 6 or 7");
    case MatrixFormat::kNodes:
        if (dofs == nullptr)
            throw ToolError(ExitCode::kUsage,
                            name.text + ": " + DescribeFormat(name.format) +
                                " needs the node and the degree of freedom of each row; kvomtx convert takes a list of them by --nodes");
        break;
    default:
        break;
    }
}

// Text triplets have no other size than that of their largest indices.
bool ReachesItsCorner(KVOSrvSparseRows const& rows)
{
    bool lastColumn = rows.columns == 0;
    for (int k = 0; k < rows.entries && !lastColumn; ++k)
        lastColumn = rows.columnIndices[k] == rows.columns - 1;
    return lastColumn && (rows.rows == 0 || rows.rowStart[rows.rows] > rows.rowStart[rows.rows - 1]);
}

// The same with a 0 at the last place.
std::unique_ptr<KVOSrvSparseMatrix> WithCorner(KVOSrvSparseRows const& rows)
{
    SparseArrays arrays(rows.rows, rows.columns, std::int64_t{rows.entries} + 1, false);
    std::copy_n(rows.rowStart, rows.rows, arrays.rowStart.get());
    arrays.rowStart[rows.rows] = static_cast<unsigned>(rows.entries) + 1;
    *std::copy_n(rows.columnIndices, rows.entries, arrays.columnIndices.get()) = rows.columns - 1;
    *std::copy_n(rows.values, rows.entries, arrays.values.get()) = 0.0;
    return arrays.Matrix();
}

} // namespace

MatrixWriter::MatrixWriter(MatrixName const& name, KVOFsmSystemDofDefinition const* dofs, bool checksums)
    : m_name(name), m_dofs(dofs), m_checksums(checksums)
{
    RequireWritable(name, dofs);
    if (checksums && name.format != MatrixFormat::kDatabase)
        throw ToolError(ExitCode::kUsage, name.text + ": " + DescribeFormat(name.format) +
                                              " has no place for --checksums; write FILE.sim, or leave them out");
    if (name.format == MatrixFormat::kDatabase)
        m_database = std::make_unique<OutputDatabase>(name.path);
    else
        m_file = std::make_unique<OutputFile>(name.path);
}

MatrixWriter::~MatrixWriter() = default;

void MatrixWriter::Prepare(KVOSrvSparseMatrix const& matrix, MatrixName const* source)
{
    CheckInterrupt();
    if (m_name.format == MatrixFormat::kTriplets && (matrix.NumberOfRows() == 0) != (matrix.NumberOfColumns() == 0))
        throw ToolError(ExitCode::kCannot, m_name.text + ": " + DescribeFormat(m_name.format) + " cannot hold a matrix of " +
                                               std::to_string(matrix.NumberOfRows()) + " x " + std::to_string(matrix.NumberOfColumns()) +
                                               "; write it as mtx");
    Progress progress("writing " + m_name.path);
    if (m_name.format == MatrixFormat::kDatabase)
        Store(matrix, source);
    else if (m_name.format == MatrixFormat::kMatrixMarket)
        m_file->Write([&](char const* path) { matrix.ExportMatrixMarket(path); });
    else if (m_name.format == MatrixFormat::kChunks)
        ExportHalf(matrix);
    else
        ExportFull(FullMatrix(matrix));
    CheckInterrupt();
}

void MatrixWriter::Commit()
{
    if (m_database)
        m_database->Commit();
    else
        m_file->Commit();
}

void MatrixWriter::Export(KVOSrvSparseMatrix const& matrix) const
{
    try {
        m_file->Write([&](char const* path) {
            if (m_name.format == MatrixFormat::kTriplets)
                matrix.ExportTriplets(path);
            else
                matrix.Export(path, static_cast<int>(m_name.format), m_dofs);
        });
    } catch (KVOSrvMtxUnsupportedExpFmt const&) { // the format itself was checked
        throw ToolError(ExitCode::kCannot, m_name.path + ": the list of nodes has " + std::to_string(m_dofs->NumberOfDofs()) +
                                               " lines, the matrix " + std::to_string(matrix.NumberOfRows()) +
                                               " rows; give one line a row");
    }
}

// Of half storage some formats take the stored triangle only.
void MatrixWriter::ExportFull(FullMatrix const& matrix) const
{
    if (m_name.format == MatrixFormat::kTriplets && !ReachesItsCorner(matrix.Rows()))
        Export(*WithCorner(matrix.Rows()));
    else
        Export(matrix.Matrix());
}

void MatrixWriter::ExportHalf(KVOSrvSparseMatrix const& matrix) const
{
    if (matrix.Rows().diagonal != nullptr)
        return Export(matrix);
    RequireSymmetric(matrix.Rows(), m_name.text + ": " + DescribeFormat(m_name.format) + " holds symmetric matrices only; the input");
    Export(*SymmetricPart(matrix.Rows()));
}

void MatrixWriter::Store(KVOSrvSparseMatrix const& matrix, MatrixName const* source)
{
    FullMatrix const full(matrix);
    KVOSrvSparseRows const entries = full.Rows();
    KVOSimCSetID const rows = m_database->MakeSet(entries.rows);
    KVOSimDistributionID const id =
        EqualsItsTranspose(entries) ? m_database->StoreSparse(*SymmetricPart(entries), kMatrixType, rows, rows, m_checksums)
                                    : m_database->StoreSparse(matrix, kMatrixType, rows, m_database->MakeSet(entries.columns), m_checksums);
    if (source != nullptr)
        OutputDatabase::Describe(id, TitleFor(*source), "", "from " + DescribeSource(*source));
    else
        OutputDatabase::Describe(id, TitleFor(m_name), "", "");
    m_database->Finish();
}
