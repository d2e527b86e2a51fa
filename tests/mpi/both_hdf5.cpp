// Two builds of HDF5 in one process: the libraries keep a database by the serial one, PETSc writes and reads by the parallel one meanwhile.

#include "KVOSrvMatrix.h"
#include "KVOSrvScratchDenseMatrix.h"

#include <cstdio>
#include <fstream>
#include <petscvec.h>
#include <petscviewer.h>
#include <string>
#include <unistd.h>

namespace
{

bool IsLoaded(char const* library)
{
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        if (line.find(library) != std::string::npos)
            return true;
    return false;
}

// By its name: the header for it wants that build's own headers.
PetscViewer Open(char const* path, PetscFileMode mode)
{
    PetscViewer viewer = nullptr;
    PetscViewerCreate(PETSC_COMM_WORLD, &viewer);
    PetscViewerSetType(viewer, PETSCVIEWERHDF5);
    PetscViewerFileSetMode(viewer, mode);
    PetscViewerFileSetName(viewer, path);
    return viewer;
}

// @return the sum of the values that come back from a file of PETSc's
double ThroughPetsc(char const* path)
{
    Vec written = nullptr, read = nullptr;
    PetscScalar sum = 0.0;
    VecCreateMPI(PETSC_COMM_WORLD, 3, PETSC_DETERMINE, &written);
    PetscObjectSetName(reinterpret_cast<PetscObject>(written), "x");
    VecSet(written, 2.0);
    PetscViewer viewer = Open(path, FILE_MODE_WRITE);
    VecView(written, viewer);
    PetscViewerDestroy(&viewer);
    VecDuplicate(written, &read);
    PetscObjectSetName(reinterpret_cast<PetscObject>(read), "x");
    viewer = Open(path, FILE_MODE_READ);
    VecLoad(read, viewer);
    PetscViewerDestroy(&viewer);
    VecSum(read, &sum);
    VecDestroy(&written);
    VecDestroy(&read);
    return sum;
}

} // namespace

int main(int argc, char** argv)
{
    PetscInitialize(&argc, &argv, nullptr, nullptr);
    int rank = 0, size = 0;
    MPI_Comm_rank(PETSC_COMM_WORLD, &rank);
    MPI_Comm_size(PETSC_COMM_WORLD, &size);
    bool isRight = IsLoaded("libhdf5_serial") && IsLoaded("libhdf5_openmpi");
    std::string const path = "/tmp/kvo-both-hdf5-" + std::to_string(getppid()) + ".h5"; // that of mpirun, one for both
    {
        KVOSrvScratchDenseMatrix matrix(300, 4, 100, 4);
        KVOSrvMatrix values(300, 4, nullptr, false, false), back(300, 4, nullptr, false, false);
        values = 1.0 + rank;
        matrix.SetRows(0, 299, values);
        isRight = isRight && ThroughPetsc(path.c_str()) == 6.0 * size;
        matrix.GetRows(0, 299, back);
        isRight = isRight && back.Values()[1199] == 1.0 + rank;
    }
    std::remove(path.c_str());
    if (!isRight)
        std::printf("rank %d: wrong\n", rank);
    PetscFinalize();
    return isRight ? 0 : 1;
}
