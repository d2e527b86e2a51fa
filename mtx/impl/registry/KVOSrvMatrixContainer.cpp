#include "KVOSrvMatrixContainer.h"

#include "ChunkLimit.h"
#include "FortranStatus.h"
#include "KVOBasUtlFilePath.h"
#include "KVOFortran.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimException.h"
#include "KVOSimTransaction.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvUtilities.h"
#include "ScratchFiles.h"
#include "aio_ostream.h"

#include <fcntl.h>
#include <memory>
#include <numeric>
#include <unistd.h>

namespace
{

KVOSimCSetID MakeMembers(KVOSimCollectionID const& id, int count, int const* numbers)
{
    KVOSimCollection collection(id);
    if (numbers != nullptr)
        return collection.CreateOrderedCSet(numbers, count);
    std::unique_ptr<int[], mem_Deleter> const positions(static_cast<int*>(mem_OperatorNewThrow(mem_ArrayBytes(count, sizeof(int)))));
    std::iota(positions.get(), positions.get() + count, 0);
    return collection.CreateOrderedCSet(positions.get(), count);
}

} // namespace

KVOSrvMatrixContainer::KVOSrvMatrixContainer() : m_process(getpid())
{
    SetScratch();
    MakeFile();
    try {
        m_contextID = CreateContext();
        KVOSimContext context(m_contextID);
        context.Open(context.Schema());
        KVOSimTransaction transaction(context);
        // Without members of their own: each matrix brings the numbers of its rows and columns.
        m_rowCollection = context.CreateCollection(0);
        m_colCollection = context.CreateCollection(0);
        transaction.Commit();
    } catch (...) {
        RemoveFile();
        throw;
    }
}

KVOSrvMatrixContainer::~KVOSrvMatrixContainer()
{
    DeleteMatrices();
    RemoveFile(); // the base closes it
}

void KVOSrvMatrixContainer::MakeFile()
{
    constexpr int kLastAttempt = 100;
    cow_String const directory = ScratchFiles::WorkingDirectory();
    ScratchFiles::RemoveLeftoversOnce(directory);
    for (int attempt = 0;; ++attempt) {
        KVOBasUtlFilePath const file(directory, ScratchFiles::NameForContainer(this, attempt));
        RemoveLeftScratch(AT_FDCWD, file.Path().c_str());
        if (attempt < kLastAttempt && file.Exists())
            continue;
        try {
            CreateFile(DRXUnicodeString(file.Path().c_str()), 0);
            m_fileName = file.Path();
            return;
        } catch (KVOSimException const&) {
            // Forked processes have their containers at one address: another one may have taken the name just now, and given it back.
            if (attempt >= kLastAttempt || (attempt > 0 && !file.Exists()))
                throw;
        }
    }
}

// The name goes while the file is still locked: so it cannot become that of somebody else's file before.
void KVOSrvMatrixContainer::RemoveFile() noexcept
{
    KVOBasUtlFilePath const file(m_fileName);
    if (m_process == getpid() && file.Exists())
        file.Remove();
}

void KVOSrvMatrixContainer::DeleteMatrices() noexcept
{
    DeleteBelow(m_matrices.Root());
}

// By recursion, as deep as the tree is high: an iterator needs memory, which may be what has run out when a container goes.
void KVOSrvMatrixContainer::DeleteBelow(Matrices::Handle const* subtree) noexcept
{
    if (subtree == nullptr)
        return;
    auto const& node = subtree->GetRef();
    DeleteBelow(node.Left());
    delete Find(node.Key());
    DeleteBelow(node.Right());
}

KVOSrvDenseMatrix& KVOSrvMatrixContainer::Create(int id, int numRows, int numCols, int blockRows, int blockCols)
{
    return CreateMatrix(id, numRows, numCols, nullptr, nullptr, blockRows, blockCols);
}

KVOSrvDenseMatrix& KVOSrvMatrixContainer::Create(int id, int numRows, int numCols, int const* rowIds, int const* colIds, int blockRows,
                                                 int blockCols)
{
    return CreateMatrix(id, numRows, numCols, rowIds, colIds, blockRows, blockCols);
}

KVOSrvDenseMatrix& KVOSrvMatrixContainer::CreateMatrix(int id, int numRows, int numCols, int const* rowIds, int const* colIds,
                                                       int blockRows, int blockCols)
{
    ChunkLimit const chunk("KVOSrvMatrixContainer", "Create", numRows, numCols, blockRows, blockCols);

    KVOSimContext context(m_contextID);
    KVOSimTransaction transaction(context);
    KVOSimCSetID const rows = MakeMembers(m_rowCollection, numRows, rowIds), columns = MakeMembers(m_colCollection, numCols, colIds);
    KVOSimDistributionID const distribution = KVOSrvUtilities::Create2DDistribution(rows, columns, chunk.rows, chunk.columns);
    transaction.Commit();

    auto matrix = std::make_unique<KVOSrvDenseMatrix>(distribution);
    // Deliberate: a taken id is not reported. Callers rely on a matrix that works in any case, and on the first one staying under its id.
    m_matrices.InsertUnlessMember(id, matrix.get());
    return *matrix.release();
}

// Deliberate: the id stays, so that Size() and IsMember() go by what was created and no later matrix takes over the id.
void KVOSrvMatrixContainer::Remove(int id)
{
    KVOSrvDenseMatrix* const matrix = Find(id);
    if (matrix == nullptr)
        return;
    m_removed.InsertUnlessMember(id, matrix);
    delete matrix;
}

namespace
{

// The matrix that a Fortran caller asks for, null when there is none.
KVOSrvDenseMatrix* Find(std::int64_t handle, int id)
{
    auto const* const container = reinterpret_cast<KVOSrvMatrixContainer const*>(handle);
    return container != nullptr ? container->Find(id) : nullptr;
}

// The same with a line for the user, not a crash in the solver.
KVOSrvDenseMatrix* Find(std::int64_t handle, int id, char const* entryPoint)
{
    KVOSrvDenseMatrix* const matrix = Find(handle, id);
    if (matrix == nullptr)
        ((aio_cerr << entryPoint << ": there is no " << (handle != 0 ? "" : "container with a ") << "matrix ").print_int(id) << ".")
            .put('\n')
            .flush();
    return matrix;
}

void ReadAll(KVOSrvDenseMatrix const& matrix, double* values)
{
    int const rows = matrix.NumberOfRows(), columns = matrix.NumberOfColumns();
    KVOSrvMatrix target(rows, columns, values, false, false);
    matrix.GetValues(0, rows - 1, 0, columns - 1, target);
}

} // namespace

extern "C" std::int64_t KVOSRVMATRIXCONTAINERCREATE(void)
{
    return reinterpret_cast<std::int64_t>(new KVOSrvMatrixContainer);
}

extern "C" int KVOSRVMATRIXCONTAINERTRYCREATE(std::int64_t* handle)
{
    *handle = 0;
    return FortranStatus::Of([&] {
        *handle = KVOSRVMATRIXCONTAINERCREATE();
        return FortranStatus::kOk;
    });
}

extern "C" int KVOSRVMATRIXCONTAINERNUMROWS(std::int64_t handle, int const* id)
{
    KVOSrvDenseMatrix const* const matrix = Find(handle, *id, "KVOSRVMATRIXCONTAINERNUMROWS");
    return matrix != nullptr ? matrix->NumberOfRows() : 0;
}

extern "C" int KVOSRVMATRIXCONTAINERNUMCOLUMNS(std::int64_t handle, int const* id)
{
    KVOSrvDenseMatrix const* const matrix = Find(handle, *id, "KVOSRVMATRIXCONTAINERNUMCOLUMNS");
    return matrix != nullptr ? matrix->NumberOfColumns() : 0;
}

extern "C" void KVOSRVMATRIXCONTAINERGETVALUES(std::int64_t handle, int const* id, double* values)
{
    KVOSrvDenseMatrix const* const matrix = Find(handle, *id, "KVOSRVMATRIXCONTAINERGETVALUES");
    if (matrix != nullptr)
        ReadAll(*matrix, values);
}

extern "C" int KVOSRVMATRIXCONTAINERTRYGETVALUES(std::int64_t handle, int const* id, double* values)
{
    KVOSrvDenseMatrix const* const matrix = Find(handle, *id);
    if (matrix == nullptr)
        return FortranStatus::Failed(FortranStatus::kNotThere, "there is no such container or matrix");
    return FortranStatus::Of([&] {
        ReadAll(*matrix, values);
        return FortranStatus::kOk;
    });
}

extern "C" void KVOSRVMATRIXCONTAINERDELETE(std::int64_t handle)
{
    delete reinterpret_cast<KVOSrvMatrixContainer*>(handle);
}
