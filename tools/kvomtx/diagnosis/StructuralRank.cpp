#include "StructuralRank.h"

#include "FullMatrix.h"

#include <btf.h>

#include <cstddef>
#include <vector>

StructuralRank FindStructuralRank(KVOSrvSparseRows const& matrix, bool hasAllDiagonal, bool isLimited)
{
    constexpr double kMostPasses = 50.0;
    if (hasAllDiagonal)
        return {matrix.rows, true};
    std::vector<int> start(static_cast<std::size_t>(matrix.rows) + 1), indices;
    indices.reserve(static_cast<std::size_t>(matrix.entries));
    for (int row = 0; row < matrix.rows; ++row) {
        for (unsigned k = matrix.rowStart[row]; k < matrix.rowStart[row + 1]; ++k)
            if (matrix.values[k] != 0.0)
                indices.push_back(matrix.columnIndices[k]);
        start[static_cast<std::size_t>(row) + 1] = static_cast<int>(indices.size());
    }
    // Rows in the place of BTF's columns: the transposed matrix has the same rank.
    std::vector<int> match(static_cast<std::size_t>(matrix.columns)), workspace(5 * static_cast<std::size_t>(matrix.rows));
    double work = 0.0;
    int const rank = btf_maxtrans(matrix.columns, matrix.rows, start.data(), indices.data(), isLimited ? kMostPasses : 0.0, &work,
                                  match.data(), workspace.data());
    return {rank, work >= 0.0};
}

std::int64_t BytesOfStructuralRank(KVOSrvSparseRows const& matrix, bool hasAllDiagonal)
{
    return hasAllDiagonal ? 0 : std::int64_t{4} * (std::int64_t{matrix.entries} + 6 * std::int64_t{matrix.rows} + matrix.columns);
}
