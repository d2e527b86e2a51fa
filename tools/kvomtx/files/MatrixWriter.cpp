#include "MatrixWriter.h"

#include "Database.h"
#include "Errors.h"
#include "Interrupt.h"
#include "OutputFile.h"
#include "Progress.h"
#include "SparseStructure.h"
#include "SymmetricStorage.h"

#include "KVOFsmSystemDofDefinition.h"
#include "KVOSimPosition.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>

namespace
{

void RequireWritable(MatrixName const& name, KVOFsmSystemDofDefinition const* dofs)
{
    switch (name.format) {
    case MatrixFormat::kRecords:
    case MatrixFormat::kChunksAsStored:
    case MatrixFormat::kTriplets2:
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

// The same matrix in full storage: of half storage some formats take the stored triangle only.
// @param cornered  with an entry in the last row and one in the last column: a 0 where there are none
std::unique_ptr<KVOSrvSparseMatrix> MakeFull(KVOSrvSparseMatrix const& matrix, bool cornered)
{
    auto full = std::make_unique<KVOSrvSparseMatrix>(matrix.NumberOfRows(), matrix.NumberOfColumns());
    int count = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const entries(matrix.GetEntries(count));
    unsigned rows = 0, columns = 0; // up to the last one with an entry
    full->BeginAssembly();
    for (std::size_t k = 0; k < static_cast<std::size_t>(count); ++k) {
        full->AddData(entries[k].row, entries[k].column, entries[k].value);
        rows = std::max(rows, entries[k].row + 1);
        columns = std::max(columns, entries[k].column + 1);
    }
    auto const allRows = static_cast<unsigned>(matrix.NumberOfRows()), allColumns = static_cast<unsigned>(matrix.NumberOfColumns());
    if (cornered && (rows < allRows || columns < allColumns))
        full->AddData(allRows - 1, allColumns - 1, 0.0);
    full->EndAssembly();
    return full;
}

bool EqualsItsTranspose(SparseStructure const& matrix)
{
    return matrix.Rows() == matrix.Columns() && FindAsymmetry(matrix).largest == 0.0;
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

void MatrixWriter::Prepare(KVOSrvSparseMatrix const& matrix)
{
    CheckInterrupt();
    if (m_name.format == MatrixFormat::kTriplets && (matrix.NumberOfRows() == 0) != (matrix.NumberOfColumns() == 0))
        throw ToolError(ExitCode::kCannot, m_name.text + ": " + DescribeFormat(m_name.format) + " cannot hold a matrix of " +
                                               std::to_string(matrix.NumberOfRows()) + " x " + std::to_string(matrix.NumberOfColumns()) +
                                               "; write it as mtx");
    Progress progress("writing " + m_name.path);
    if (m_name.format == MatrixFormat::kDatabase)
        Store(matrix);
    else if (m_name.format == MatrixFormat::kMatrixMarket)
        m_file->Write([&](char const* path) { matrix.ExportMatrixMarket(path); });
    else if (m_name.format == MatrixFormat::kChunks)
        ExportHalf(matrix);
    else
        Export(*MakeFull(matrix, m_name.format == MatrixFormat::kTriplets));
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
        m_file->Write([&](char const* path) { matrix.Export(path, static_cast<int>(m_name.format), m_dofs); });
    } catch (KVOSrvMtxUnsupportedExpFmt const&) { // the format itself was checked
        throw ToolError(ExitCode::kCannot, m_name.path + ": the list of nodes has " + std::to_string(m_dofs->NumberOfDofs()) +
                                               " lines, the matrix " + std::to_string(matrix.NumberOfRows()) +
                                               " rows; give one line a row");
    }
}

void MatrixWriter::ExportHalf(KVOSrvSparseMatrix const& matrix) const
{
    try {
        Export(matrix);
    } catch (KVOSrvMtxNoUnsymmetric const&) { // in full storage
        SparseStructure const structure(matrix);
        RequireSymmetric(structure, m_name.text + ": " + DescribeFormat(m_name.format) + " holds symmetric matrices only; the input");
        Export(*MakeHalfStored(structure));
    }
}

void MatrixWriter::Store(KVOSrvSparseMatrix const& matrix)
{
    SparseStructure const structure(matrix);
    KVOSimCSetID const rows = m_database->MakeSet(structure.Rows());
    if (EqualsItsTranspose(structure)) {
        KVOSimPosition position(m_database->Context());
        StoreHalf(structure, position, kMatrixType, rows, rows, m_checksums);
    } else {
        m_database->StoreSparse(matrix, kMatrixType, rows, m_database->MakeSet(structure.Columns()), m_checksums);
    }
    m_database->Finish();
}
