// A host under a real MPI finds modes in every process, between calls of MPI. The library brings stand-ins for MPI's functions: were one of
// them in force here, there would be one process only, or none of MPI's objects would be known.

#include "KVOSrvModes.h"
#include "KVOSrvSparseMatrix.h"

#include <cmath>
#include <cstdio>
#include <mpi.h>
#include <numbers>

namespace
{

// Of a chain of so many masses between springs that is clamped at both ends.
double LowestOfChain(unsigned count)
{
    int const n = static_cast<int>(count);
    KVOSrvSparseMatrix stiffness(n, n), mass(n, n);
    for (unsigned i = 0; i < count; ++i) {
        stiffness.AddData(i, i, 2.0);
        mass.AddData(i, i, 1.0);
        if (i > 0) {
            stiffness.AddData(i, i - 1, -1.0);
            stiffness.AddData(i - 1, i, -1.0);
        }
    }
    stiffness.EndAssembly();
    mass.EndAssembly();
    return KVOSrvModes(stiffness, mass, {}).Eigenvalues()[0];
}

double Expected(unsigned count)
{
    return 4.0 * std::pow(std::sin(0.5 * std::numbers::pi / (count + 1.0)), 2);
}

} // namespace

int main(int argc, char** argv)
{
    MPI_Init(&argc, &argv);
    int rank = 0, size = 0;
    MPI_Comm_rank(MPI_COMM_WORLD, &rank);
    MPI_Comm_size(MPI_COMM_WORLD, &size);
    auto const count = [](int process) { return 200u + 50u * static_cast<unsigned>(process); };
    double const own = LowestOfChain(count(rank));
    double sum = 0.0, expected = 0.0;
    MPI_Allreduce(&own, &sum, 1, MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
    for (int process = 0; process < size; ++process)
        expected += Expected(count(process));
    bool const isRight = size == 2 && std::fabs(sum - expected) < 1e-9 * expected;
    if (!isRight)
        std::printf("process %d of %d: %.17g, not %.17g\n", rank, size, sum, expected);
    MPI_Finalize();
    return isRight ? 0 : 1;
}
