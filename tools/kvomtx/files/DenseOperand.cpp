#include "DenseOperand.h"

#include "Errors.h"
#include "FullMatrix.h"
#include "MatrixName.h"
#include "MatrixReader.h"

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

std::unique_ptr<KVOSrvDenseMatrix> FillScratch(FullMatrix const& full, std::string const& name)
{
    KVOSrvSparseRows const matrix = full.Rows();
    if (matrix.rows == 0 || matrix.columns == 0)
        throw ToolError(ExitCode::kCannot, name + ": has no rows or no columns; there is nothing to multiply");
    auto dense = std::make_unique<KVOSrvScratchDenseMatrix>(matrix.rows, matrix.columns, kChunkRows, kChunkColumns);
    // Block row by block row, so that one slab is all that is held.
    for (int block = 0; block < dense->NumberOfRowBlocks(); ++block) {
        int const first = dense->FirstRowInBlock(block), count = dense->NumberOfRowsInBlock(block);
        KVOSrvMatrix slab(count, matrix.columns, nullptr, false, false);
        slab = 0.0;
        for (int row = first; row < first + count; ++row)
            for (unsigned k = matrix.rowStart[row]; k < matrix.rowStart[row + 1]; ++k)
                slab.Values()[(row - first) + std::ptrdiff_t{matrix.columnIndices[k]} * count] += matrix.values[k];
        dense->SetRows(first, first + count - 1, slab);
    }
    return dense;
}

} // namespace

DenseOperand::DenseOperand(std::string const& text, std::string const& format)
{
    MatrixName const name = ParseMatrixName(text, format, true);
    if (name.format != MatrixFormat::kDatabase) {
        m_matrix = FillScratch(FullMatrix(ReadMatrix(name)), text);
        return;
    }
    m_database = std::make_unique<InputDatabase>(name.path);
    KVOSimDistributionID const id = m_database->Find(name, MatrixKind::kDense);
    try {
        if (KVOSrvUtilities::IsSparseMatrix(KVOSimDistribution(id)))
            m_matrix = FillScratch(FullMatrix(std::make_unique<KVOSrvSparseMatrix>(id)), text);
        else
            m_matrix = std::make_unique<KVOSrvDenseMatrix>(id);
    } catch (KVOSrvMtxIllegalInput const&) {
        throw ToolError(ExitCode::kUnreadable, text + ": is no matrix of doubles; kvomtx db ls shows what it is");
    }
}

std::unique_ptr<KVOSrvDenseMatrix> MakeProduct(OutputDatabase& database, int rows, int columns, std::string const& description,
                                               bool checksums)
{
    KVOSimPosition position(database.Context());
    KVOSimCSetID const rowSet = database.MakeSet(rows), columnSet = database.MakeSet(columns);
    KVOSimDistributionID const id = KVOSrvUtilities::Create2DDistribution(
        position, kProductType, rowSet, columnSet, std::min(rows, kChunkRows), std::min(columns, kChunkColumns), checksums);
    OutputDatabase::Describe(id, DescribeType(kProductType), "", description);
    return std::make_unique<KVOSrvDenseMatrix>(id);
}
