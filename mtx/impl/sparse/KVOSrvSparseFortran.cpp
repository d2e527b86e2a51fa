// Assembly of sparse matrices for Fortran callers: statuses instead of exceptions, handles instead of objects.

#include "FortranStatus.h"
#include "KVOFortran.h"
#include "KVOSrvSparsePlaces.h"
#include "SparseRows.h"

#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <memory>

using namespace KVOSrvSparseSupport;

namespace
{

template<class T>
T* ObjectOf(std::int64_t handle) noexcept
{
    return reinterpret_cast<T*>(handle);
}

template<class T>
std::int64_t HandleOf(std::unique_ptr<T> object) noexcept
{
    return reinterpret_cast<std::int64_t>(object.release());
}

// What use(matrix) leaves as status 0, or why it did not come to that.
template<class Use>
int WithMatrix(std::int64_t handle, Use const& use) noexcept
{
    if (handle == 0)
        return FortranStatus::Failed(FortranStatus::kNotThere, "the handle 0 is no matrix");
    return FortranStatus::Of([&] {
        use(*ObjectOf<KVOSrvSparseMatrix>(handle));
        return FortranStatus::kOk;
    });
}

// @throws KVOSrvMtxNoSymmetricTrue: the rows of half storage would pass for all there is
KVOSrvSparseRows FullRowsOf(KVOSrvSparseMatrix const& matrix)
{
    KVOSrvSparseRows const rows = matrix.Rows();
    if (rows.diagonal != nullptr)
        KVOSrvMtxNoSymmetricTrue("Rows").Throw(kSource, __LINE__);
    return rows;
}

} // namespace

extern "C" int KVOSRVSPARSEASSEMBLE(int const* rows, int const* columns, int const* count, int const* row, int const* column,
                                    double const* values, std::int64_t* handle)
{
    *handle = 0;
    return FortranStatus::Of([&] {
        auto matrix = std::make_unique<KVOSrvSparseMatrix>(*rows, *columns);
        for (int k = 0; k < *count; ++k)
            matrix->AddData(static_cast<unsigned>(row[k]), static_cast<unsigned>(column[k]), values[k]);
        matrix->EndAssembly();
        *handle = HandleOf(std::move(matrix));
        return FortranStatus::kOk;
    });
}

extern "C" int KVOSRVSPARSESIZES(std::int64_t handle, int* rows, int* columns, int* entries)
{
    return WithMatrix(handle, [&](KVOSrvSparseMatrix const& matrix) {
        KVOSrvSparseRows const stored = FullRowsOf(matrix);
        *rows = stored.rows;
        *columns = stored.columns;
        *entries = stored.entries;
    });
}

extern "C" int KVOSRVSPARSEROWS(std::int64_t handle, int* rowStart, int* columns)
{
    return WithMatrix(handle, [&](KVOSrvSparseMatrix const& matrix) {
        KVOSrvSparseRows const stored = FullRowsOf(matrix);
        std::transform(stored.rowStart, stored.rowStart + stored.rows + 1, rowStart,
                       [](unsigned start) { return static_cast<int>(start); });
        std::copy_n(stored.columnIndices, stored.entries, columns);
    });
}

extern "C" int KVOSRVSPARSEVALUES(std::int64_t handle, double* values)
{
    return WithMatrix(handle, [&](KVOSrvSparseMatrix const& matrix) {
        KVOSrvSparseRows const stored = FullRowsOf(matrix);
        std::copy_n(stored.values, stored.entries, values);
    });
}

extern "C" void KVOSRVSPARSERELEASE(std::int64_t handle)
{
    delete ObjectOf<KVOSrvSparseMatrix>(handle);
}

extern "C" int KVOSRVSPARSEPLACES(std::int64_t handle, int const* count, int const* row, int const* column, std::int64_t* places)
{
    *places = 0;
    return WithMatrix(handle, [&](KVOSrvSparseMatrix const& matrix) {
        *places = HandleOf(std::make_unique<KVOSrvSparsePlaces>(matrix, row, column, *count));
    });
}

extern "C" void KVOSRVSPARSEPLACESRELEASE(std::int64_t places)
{
    delete ObjectOf<KVOSrvSparsePlaces>(places);
}

extern "C" int KVOSRVSPARSECLEARVALUES(std::int64_t handle)
{
    return WithMatrix(handle, [](KVOSrvSparseMatrix& matrix) { matrix.ClearValues(); });
}

extern "C" int KVOSRVSPARSEADDVALUES(std::int64_t handle, std::int64_t places, double const* values)
{
    if (places == 0)
        return FortranStatus::Failed(FortranStatus::kNotThere, "the handle 0 is no list of places");
    return WithMatrix(handle, [&](KVOSrvSparseMatrix& matrix) { matrix.AddValues(*ObjectOf<KVOSrvSparsePlaces>(places), values); });
}
