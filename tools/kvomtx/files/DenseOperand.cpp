#include "DenseOperand.h"

#include "Errors.h"
#include "MatrixName.h"
#include "MatrixReader.h"
#include "SparseStructure.h"

#include "KVOSimException.h"
#include "KVOSimPosition.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvScratchDenseMatrix.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <cstddef>

namespace
{

// A chunk of some megabytes, tall for the products that walk along the rows.
constexpr int kChunkRows = 4096;
constexpr int kChunkColumns = 256;

std::unique_ptr<KVOSrvDenseMatrix> FillScratch(SparseStructure const& matrix, std::string const& name)
{
    if (matrix.Rows() == 0 || matrix.Columns() == 0)
        throw ToolError(ExitCode::kCannot, name + ": has no rows or no columns; there is nothing to multiply");
    auto dense = std::make_unique<KVOSrvScratchDenseMatrix>(matrix.Rows(), matrix.Columns(), kChunkRows, kChunkColumns);
    // Block row by block row, so that one slab is all that is held.
    for (int block = 0; block < dense->NumberOfRowBlocks(); ++block) {
        int const first = dense->FirstRowInBlock(block), count = dense->NumberOfRowsInBlock(block);
        KVOSrvMatrix slab(count, matrix.Columns(), nullptr, false, false);
        slab = 0.0;
        for (int row = first; row < first + count; ++row)
            for (std::size_t k = matrix.Start(row); k < matrix.Start(row + 1); ++k)
                slab.Values()[(row - first) + std::ptrdiff_t{matrix.Column(k)} * count] += matrix.Value(k);
        dense->SetRows(first, first + count - 1, slab);
    }
    return dense;
}

} // namespace

DenseOperand::DenseOperand(std::string const& text, std::string const& format)
{
    MatrixName const name = ParseMatrixName(text, format, true);
    if (name.format != MatrixFormat::kDatabase) {
        m_matrix = FillScratch(SparseStructure(*ReadMatrix(name)), text);
        return;
    }
    m_database = std::make_unique<InputDatabase>(name.path);
    KVOSimDistributionID const id = m_database->Find(name, MatrixKind::kDense);
    try {
        if (KVOSrvUtilities::IsSparseMatrix(KVOSimDistribution(id)))
            m_matrix = FillScratch(SparseStructure(KVOSrvSparseMatrix(id)), text);
        else
            m_matrix = std::make_unique<KVOSrvDenseMatrix>(id);
    } catch (KVOSrvMtxIllegalInput const&) {
        throw ToolError(ExitCode::kUnreadable, text + ": is no matrix of doubles; kvomtx db ls shows what it is");
    }
}

std::unique_ptr<KVOSrvDenseMatrix> MakeProduct(OutputDatabase& database, int rows, int columns, bool checksums)
{
    KVOSimPosition position(database.Context());
    KVOSimCSetID const rowSet = database.MakeSet(rows), columnSet = database.MakeSet(columns);
    return std::make_unique<KVOSrvDenseMatrix>(KVOSrvUtilities::Create2DDistribution(
        position, kProductType, rowSet, columnSet, std::min(rows, kChunkRows), std::min(columns, kChunkColumns), checksums));
}
