// The Fortran-callable entry points: statuses instead of exceptions, handles instead of objects.

#include "KVOModesFortran.h"

#include "SymmetricRows.h"

#include "KVOBasException.h"
#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimDistribution.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvModes.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

namespace
{

constexpr int kOk = 0, kOutOfMemory = -1, kNotThere = -2, kNoRoom = -3;

// Of a fixed size, because it must be had when there is no memory left.
thread_local char s_text[1024] = "";

int Failed(int status, char const* text) noexcept
{
    std::snprintf(s_text, sizeof s_text, "%s", text);
    return status;
}

int Failed(KVOBasException const& exception) noexcept
{
    try {
        return Failed(exception.ErrorNumber(), exception.UserReport().c_str());
    } catch (std::exception const&) { // no memory for the text
        return Failed(exception.ErrorNumber(), "");
    }
}

// What `run` returns, or the status of what it throws: all that the standard library throws through the classes is exhausted memory.
template<class Run>
int Status(Run const& run) noexcept
{
    try {
        return run();
    } catch (KVOBasException const& exception) {
        return Failed(exception);
    } catch (std::exception const& exception) {
        return Failed(kOutOfMemory, exception.what());
    }
}

KVOSrvSparseMatrix* MatrixOf(std::int64_t handle) noexcept
{
    return reinterpret_cast<KVOSrvSparseMatrix*>(handle);
}

std::int64_t HandleOf(std::unique_ptr<KVOSrvSparseMatrix> matrix) noexcept
{
    return reinterpret_cast<std::int64_t>(matrix.release());
}

std::unique_ptr<KVOSrvSparseMatrix> InHalfStorage(std::unique_ptr<KVOSrvSparseMatrix> matrix)
{
    return matrix->Rows().diagonal != nullptr ? std::move(matrix) : SymmetricRows(matrix->Rows());
}

// Null when the database holds no sparse matrix of that number.
std::unique_ptr<KVOSrvSparseMatrix> ReadStored(std::string const& path, int number)
{
    KVOSimDatabase database;
    database.OpenFile(DRXUnicodeString(path.c_str()), true);
    if (database.ContextID().IsNull())
        return nullptr;
    for (KVOSimDistributionID const& id : KVOSimContext(database.ContextID()).QueryDistributions())
        if (id.Index() == number && KVOSrvUtilities::IsSparseMatrix(KVOSimDistribution(id)))
            return std::make_unique<KVOSrvSparseMatrix>(id);
    return nullptr;
}

KVOSrvModesSettings SettingsOf(double tolerance, std::int64_t memory)
{
    KVOSrvModesSettings settings;
    if (tolerance > 0.0)
        settings.tolerance = tolerance;
    settings.memory = memory;
    return settings;
}

struct Results {
    double* eigenvalues;
    double* residuals;
    double* modes;
};

void Copy(KVOSrvModes const& found, Results const& results)
{
    if (found.Count() == 0)
        return;
    found.Modes().GetAllValues(results.modes);
    std::copy_n(found.Eigenvalues(), found.Count(), results.eigenvalues);
    std::copy_n(found.Residuals(), found.Count(), results.residuals);
}

int RefuseHandles() noexcept
{
    return Failed(kNotThere, "the handle 0 is no matrix");
}

} // namespace

extern "C" int KVOSRVMODESMATRIX(int const* order, int const* rowStart, int const* columns, double const* values, std::int64_t* handle)
{
    *handle = 0;
    return Status([&] {
        unsigned const* const start = reinterpret_cast<unsigned const*>(rowStart);
        *handle = HandleOf(SymmetricRows({*order, *order, *order > 0 ? rowStart[*order] : 0, start, columns, values, nullptr}));
        return kOk;
    });
}

extern "C" int KVOSRVMODESREAD(char const* path, int const* length, int const* number, std::int64_t* handle)
{
    *handle = 0;
    return Status([&] {
        std::string name(path, static_cast<std::size_t>(std::max(0, *length)));
        name.erase(name.find_last_not_of(' ') + 1);
        auto matrix = *number < 0 ? KVOSrvSparseMatrix::ReadMatrixMarket(name.c_str()) : ReadStored(name, *number);
        if (matrix == nullptr)
            return Failed(kNotThere, (name + ": holds no sparse matrix " + std::to_string(*number)).c_str());
        *handle = HandleOf(InHalfStorage(std::move(matrix)));
        return kOk;
    });
}

extern "C" int KVOSRVMODESORDER(std::int64_t handle)
{
    return handle != 0 ? MatrixOf(handle)->NumberOfRows() : 0;
}

extern "C" void KVOSRVMODESRELEASE(std::int64_t handle)
{
    delete MatrixOf(handle);
}

extern "C" int KVOSRVMODESLOWEST(std::int64_t stiffness, std::int64_t mass, int const* count, double const* tolerance,
                                 std::int64_t const* memory, double* eigenvalues, double* residuals, double* modes)
{
    if (stiffness == 0 || mass == 0)
        return RefuseHandles();
    return Status([&] {
        KVOSrvModesSettings settings = SettingsOf(*tolerance, *memory);
        settings.count = *count;
        Copy(KVOSrvModes(*MatrixOf(stiffness), *MatrixOf(mass), settings), {eigenvalues, residuals, modes});
        return kOk;
    });
}

extern "C" int KVOSRVMODESRANGE(std::int64_t stiffness, std::int64_t mass, double const* from, double const* to, int const* room,
                                double const* tolerance, std::int64_t const* memory, int* found, double* eigenvalues, double* residuals,
                                double* modes)
{
    if (stiffness == 0 || mass == 0)
        return RefuseHandles();
    return Status([&] {
        KVOSrvModesSettings settings = SettingsOf(*tolerance, *memory);
        settings.from = *from;
        settings.to = *to;
        KVOSrvModes const all(*MatrixOf(stiffness), *MatrixOf(mass), settings);
        *found = all.Count();
        if (all.Count() > *room)
            return Failed(
                kNoRoom, (std::to_string(all.Count()) + " modes lie in the range, and there is room for " + std::to_string(*room)).c_str());
        Copy(all, {eigenvalues, residuals, modes});
        return kOk;
    });
}

extern "C" int KVOSRVMODESERROR(char* text, int const* length)
{
    std::size_t const whole = std::strlen(s_text), room = *length > 0 ? static_cast<std::size_t>(*length) : 0;
    std::size_t const copied = std::min(whole, room);
    std::memcpy(text, s_text, copied);
    std::fill(text + copied, text + room, ' ');
    return static_cast<int>(whole);
}
