#include "StoredRows.h"

#include "Database.h"
#include "MatrixName.h"

#include "KVOSimCSet.h"
#include "KVOSimDistribution.h"
#include "KVOSimTransfer.h"

#include <cstddef>

Triplets ReadRows(std::string const& path, int number, int firstRow, int endRow)
{
    Triplets triplets;
    if (firstRow == endRow)
        return triplets;
    InputDatabase const database(path);
    KVOSimDistribution const distribution(database.Find({path, path, MatrixFormat::kDatabase, -1, number}, MatrixKind::kSparse));
    KVOSimArray<KVOSimDrawer> drawers;
    distribution.QueryDrawers(drawers);
    KVOSimTransfer transfer(distribution);
    transfer.SetRead();
    transfer.SetSerialization(drawers[0].serialization);
    transfer.SetDimOrdinalRange(0, drawers[0].csets[0].CollectionID(), firstRow, endRow - 1);
    transfer.SetDim(1, drawers[0].csets[1]);

    auto const rows = static_cast<std::size_t>(endRow - firstRow);
    std::vector<int> starts(rows + 1);
    transfer.SetBuffer(2, starts.data(), starts.size() * sizeof(int));
    transfer.ExecRead();
    auto const entries = static_cast<std::size_t>(starts.back() - starts.front());
    std::vector<int> columns(entries);
    std::vector<double> values(entries), diagonal(rows);
    transfer.SetBuffer(0, values.data(), entries * sizeof(double));
    transfer.SetBuffer(1, columns.data(), entries * sizeof(int));
    transfer.SetBuffer(3, diagonal.data(), rows * sizeof(double));
    transfer.ExecRead();

    std::size_t const count = 2 * entries + rows;
    triplets.rows.reserve(count);
    triplets.columns.reserve(count);
    triplets.values.reserve(count);
    auto const add = [&](int row, int column, double value) {
        triplets.rows.push_back(row);
        triplets.columns.push_back(column);
        triplets.values.push_back(value);
    };
    for (std::size_t i = 0, k = 0; i < rows; ++i) {
        int const row = firstRow + static_cast<int>(i);
        add(row, row, diagonal[i]); // also where it is 0: the factorization wants its place
        for (auto const end = static_cast<std::size_t>(starts[i + 1] - starts.front()); k < end; ++k) {
            add(row, columns[k], values[k]);
            add(columns[k], row, values[k]);
        }
    }
    return triplets;
}
