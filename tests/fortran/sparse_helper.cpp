#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimPosition.h"
#include "KVOSimTransaction.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <cstdint>
#include <cstdio>

/// What the host does in C++ for its Fortran solver: stores a matrix as the first one of a new database, and in a Matrix Market file.
extern "C" void store_matrix(std::int64_t matrix, char const* database, char const* market);

void store_matrix(std::int64_t matrix, char const* database, char const* market)
{
    KVOSrvSparseMatrix const& sparse = *reinterpret_cast<KVOSrvSparseMatrix const*>(matrix);
    sparse.ExportMatrixMarket(market);
    std::remove(database);
    KVOSimDatabase file;
    file.CreateFile(DRXUnicodeString(database), 0);
    KVOSimContext context(file.CreateContext());
    KVOSimTransaction transaction(context);
    KVOSimCSetID const unknowns = KVOSimCollection(context.CreateCollection(sparse.NumberOfRows())).BiggestCSetID();
    sparse.Export(unknowns, unknowns, KVOSrvUtilities::CreateSparseDistribution(unknowns, unknowns));
    transaction.Commit();
    file.Close();
}
