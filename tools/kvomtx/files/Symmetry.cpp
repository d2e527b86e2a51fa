#include "SymmetricStorage.h"

#include "Errors.h"
#include "SparseStructure.h"

#include "KVOSimCollection.h"
#include "KVOSimPosition.h"
#include "KVOSimTransfer.h"
#include "KVOSrvSimFileHandle.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <cmath>
#include <cstdio>
#include <vector>

namespace
{

std::string Number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string Place(int row, int column)
{
    char text[32];
    std::snprintf(text, sizeof text, "(%d, %d)", row + 1, column + 1);
    return text;
}

// Of equal values exactly that one, also where their sum is beyond the range of doubles.
double Mean(double a, double b)
{
    return a == b ? a : 0.5 * a + 0.5 * b;
}

/// The arrays of a symmetric drawer.
struct Half {
    explicit Half(SparseStructure const& matrix) : diagonal(static_cast<std::size_t>(matrix.Rows()))
    {
        rowStart.push_back(0);
        // The mean of the triangles: a computed matrix may differ from its transpose by rounding.
        std::vector<std::size_t> next;
        for (int row = 0; row < matrix.Rows(); ++row)
            next.push_back(matrix.Start(row));
        for (int row = 0; row < matrix.Rows(); ++row) {
            for (std::size_t k = matrix.Start(row); k < matrix.Start(row + 1); ++k) {
                int const column = matrix.Column(k);
                if (column == row)
                    diagonal[static_cast<std::size_t>(row)] = matrix.Value(k);
                if (column <= row)
                    continue;
                // Rows ascend, so the mirror stands in front of the lower part of row `column` that is left.
                std::size_t& mirror = next[static_cast<std::size_t>(column)];
                while (mirror < matrix.Start(column + 1) && matrix.Column(mirror) < row)
                    ++mirror;
                bool const both = mirror < matrix.Start(column + 1) && matrix.Column(mirror) == row;
                columnIndices.push_back(column);
                values.push_back(both ? Mean(matrix.Value(k), matrix.Value(mirror)) : matrix.Value(k));
            }
            rowStart.push_back(static_cast<unsigned>(values.size()));
        }
    }

    std::vector<unsigned> rowStart;
    std::vector<int> columnIndices;
    std::vector<double> values;
    std::vector<double> diagonal;
};

template<class T>
void SetBuffer(KVOSimTransfer& transfer, int slot, std::vector<T> const& items)
{
    transfer.SetBuffer(slot, static_cast<void const*>(items.data()), items.size() * sizeof(T));
}

} // namespace

void RequireSymmetric(SparseStructure const& matrix, std::string const& name)
{
    if (matrix.Rows() != matrix.Columns())
        throw ToolError(ExitCode::kCannot, name + " is no square matrix (" + std::to_string(matrix.Rows()) + " x " +
                                               std::to_string(matrix.Columns()) + "); give a symmetric one");
    matrix.ForEach([&](int row, int column, double value) {
        if (!std::isfinite(value))
            throw ToolError(ExitCode::kCannot, name + " holds " + Number(value) + " at " + Place(row, column) +
                                                   "; the program that wrote the matrix has failed there");
    });
    Asymmetry const worst = FindAsymmetry(matrix);
    if (worst.largest > kSymmetryTolerance)
        throw ToolError(ExitCode::kCannot, name + " is not symmetric: the entry " + Place(worst.row, worst.column) + " is " +
                                               Number(worst.value) + ", the entry " + Place(worst.column, worst.row) + " is " +
                                               Number(worst.mirror) + "; a symmetric matrix is needed here");
}

KVOSimDistributionID StoreHalf(SparseStructure const& matrix, KVOSimPosition& position, int type, KVOSimCSetID const& rows,
                               KVOSimCSetID const& columns, bool checksums)
{
    Half const half(matrix);
    KVOSimDistributionID const id = KVOSrvUtilities::CreateSparseDistribution(position, type, rows, columns);
    KVOSimTransfer transfer{KVOSimDistribution(id)};
    KVOSimSerializationType symmetric;
    symmetric.SetSparseSym();
    transfer.SetMakeNewDrawer();
    transfer.SetWrite();
    transfer.SetBufferPadding(0);
    transfer.SetSparseNNonzero(static_cast<std::int64_t>(half.values.size()));
    transfer.SetDim(0, rows);
    transfer.SetDim(1, columns);
    transfer.SetSerialization(symmetric);
    if (checksums)
        transfer.SetValueChecksums();
    transfer.CheckView();
    SetBuffer(transfer, 0, half.values);
    SetBuffer(transfer, 1, half.columnIndices);
    SetBuffer(transfer, 2, half.rowStart);
    SetBuffer(transfer, 3, half.diagonal);
    transfer.ExecWrite();
    transfer.RelinquishBuffers();
    return id;
}

std::unique_ptr<KVOSrvSparseMatrix> MakeHalfStored(SparseStructure const& matrix)
{
    KVOSrvSimFileHandle scratch;
    scratch.Associate(cow_String((std::string(KVOSrvUtilities::GetTempDirectory().c_str()) + "/half.sim").c_str()));
    KVOSimContext context(scratch.ContextID());
    KVOSimPosition position(context);
    KVOSimCSetID const set = KVOSimCollection(context.CreateCollection(matrix.Rows())).BiggestCSetID();
    return std::make_unique<KVOSrvSparseMatrix>(StoreHalf(matrix, position, -1, set, set, false));
}
