// What a host does in C++ for its Fortran solver: starts and ends the library, makes matrices in a container, fills them and multiplies
// them. Fortran knows the container by its handle and the matrices by numbers, see gram_container.f90; it makes, reads and deletes
// containers itself. Exceptions must not reach Fortran, which could not catch them: each function answers whether it succeeded.

#include "KVOBasException.h"
#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMatrixContainer.h"
#include "KVOSrvTimer.h"

#include <cstdint>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>

extern "C" {
bool host_start();
void host_end();
bool host_create(std::int64_t container, int id, int rows, int columns, int blockRows, int blockColumns);
bool host_set_columns(std::int64_t container, int id, int first, int count, double* values);
bool host_gram(std::int64_t container, int id, int gramId);
}

namespace
{

int g_modules = 0; // that the library has running for this program

template<class Work>
bool Succeeds(Work const& work)
{
    try {
        work();
        return true;
    } catch (KVOBasException const& exception) {
        std::fprintf(stderr, "%s\n", exception.DeveloperReport().c_str());
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
    }
    return false;
}

// The handle is the container's address.
KVOSrvMatrixContainer& ContainerOf(std::int64_t handle)
{
    return *reinterpret_cast<KVOSrvMatrixContainer*>(handle);
}

KVOSrvDenseMatrix& MatrixOf(std::int64_t handle, int id)
{
    KVOSrvDenseMatrix* const matrix = ContainerOf(handle).Find(id); // Get() is for numbers that are there for sure
    if (matrix == nullptr)
        throw std::runtime_error("the container has no matrix " + std::to_string(id));
    return *matrix;
}

} // namespace

bool host_start()
{
    KVOMtxLinearAlgebra_initialize(g_modules);
    return Succeeds([] { omi_Singleton<KVOSrvTimer>::Instance().CreateTimer(); }); // what KVOSRVGETWALLTIME reads
}

void host_end()
{
    KVOMtxLinearAlgebra_finalize(g_modules);
}

bool host_create(std::int64_t container, int id, int rows, int columns, int blockRows, int blockColumns)
{
    return Succeeds([&] {
        if (ContainerOf(container).IsMember(id)) // Create() would make a second matrix, which nobody owns
            throw std::runtime_error("the container has a matrix " + std::to_string(id) + " already");
        ContainerOf(container).Create(id, rows, columns, blockRows, blockColumns);
    });
}

// Writes columns first to first + count - 1, 1-based as Fortran counts, from an array of rows x count.
bool host_set_columns(std::int64_t container, int id, int first, int count, double* values)
{
    return Succeeds([&] {
        KVOSrvDenseMatrix& matrix = MatrixOf(container, id);
        KVOSrvMatrix const block(matrix.NumberOfRows(), count, values, false, false); // wraps the Fortran array, no copy
        matrix.SetColumns(first - 1, first + count - 2, block);
    });
}

// Makes matrix `gramId` of the container, X^T X of matrix `id`.
bool host_gram(std::int64_t container, int id, int gramId)
{
    KVOSrvDenseMatrix const* x = nullptr;
    return Succeeds([&] { x = &MatrixOf(container, id); }) &&
           host_create(container, gramId, x->NumberOfColumns(), x->NumberOfColumns(), 1024, 1024) &&
           Succeeds([&] { x->TransposeMultiply(x, &MatrixOf(container, gramId), 1); }); // 1: the result is symmetric
}
