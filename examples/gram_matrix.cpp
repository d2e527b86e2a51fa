// The Gram matrix of many snapshots, out of core: a solver writes its displacements into a database as it goes, some time steps at a time;
// later another run opens the file again, forms G = X^T X and learns from its eigenvalues how many shapes the motion is made of (proper
// orthogonal decomposition, or POD). Neither run ever holds the matrix X of the snapshots.
//
// usage: gram_matrix WORK_FOLDER

#include "KVOBasException.h"
#include "KVOMtxLinearAlgebra.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimTransaction.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvUtilities.h"
#include "MemoryWatch.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <numbers>
#include <numeric>
#include <string>
#include <system_error>
#include <vector>

namespace
{

constexpr int kUnknowns = 20'000;
constexpr int kSnapshots = 400;
constexpr int kBlock = 50; // snapshots written at a time
constexpr int kShapes = 6; // what the motion is made of

// The displacements at time step j: the free vibration of a string, some harmonics that swing at their own frequencies. Stands for what a
// solver computes.
void Snapshot(int j, double* x)
{
    std::fill(x, x + kUnknowns, 0.0);
    for (int k = 1; k <= kShapes; ++k) {
        double const amplitude = std::cos(0.05 * k * j) / (k * k);
        for (int i = 0; i < kUnknowns; ++i)
            x[i] += amplitude * std::sin(k * std::numbers::pi * (i + 1) / (kUnknowns + 1));
    }
}

// First run: returns the number under which the matrix is found again.
int WriteSnapshots(std::string const& path)
{
    KVOSimDatabase database;
    database.CreateFile(DRXUnicodeString(path.c_str()), 0);
    KVOSimContext context(database.CreateContext());
    context.Open();

    // What is created from here on disappears with the transaction unless it is committed: a run that fails leaves an empty database.
    KVOSimTransaction transaction(context);
    KVOSimCSetID const unknowns = KVOSimCollection(context.CreateCollection(kUnknowns)).BiggestCSetID();
    KVOSimCSetID const steps = KVOSimCollection(context.CreateCollection(kSnapshots)).BiggestCSetID();
    // Chunks as wide as what is written at a time, so that each is written once; their 2000 rows bound what the product reads at a time.
    KVOSimDistributionID const id = KVOSrvUtilities::Create2DDistribution(unknowns, steps, 2000, kBlock);

    KVOSrvDenseMatrix snapshots(id);
    KVOSrvMatrix block(kUnknowns, kBlock, nullptr, false, false);
    for (int first = 0; first < kSnapshots; first += kBlock) {
        for (int j = 0; j < kBlock; ++j)
            Snapshot(first + j, block.Values() + j * kUnknowns);
        snapshots.SetColumns(first, first + kBlock - 1, block);
    }
    transaction.Commit(); // when it returns, matrix and values are on the disk
    database.Close();     // tells of a failure, which the destructor could not
    return id.Index();
}

// Second run: G = X^T X by passes over the block rows of X.
void FormGram(std::string const& path, int index, KVOSrvMatrix& gram)
{
    KVOSimDatabase database;
    database.OpenFile(DRXUnicodeString(path.c_str()), true);
    KVOSrvDenseMatrix snapshots(KVOSimDistributionID(database.ContextID(), index));
    snapshots.SetAccess(KVOSrvAccessRows);
    snapshots.TransposeMultiply(&snapshots, gram, 1); // 1: the result is symmetric, half of it is computed
}

// Largest difference between sampled entries of G and their sums by definition, from snapshots computed anew, relative to the largest
// entry of G.
double LargestDifference(KVOSrvMatrix const& gram)
{
    std::vector<double> x(kUnknowns), y(kUnknowns);
    double difference = 0.0, largest = 0.0;
    for (int entry = 0; entry < 100; ++entry) {
        int const j = entry * 37 % kSnapshots, k = entry * 91 % kSnapshots;
        Snapshot(j, x.data());
        Snapshot(k, y.data());
        double sum = 0.0;
        for (int i = 0; i < kUnknowns; ++i)
            sum += x[i] * y[i];
        difference = std::max(difference, std::fabs(gram.Values()[k * kSnapshots + j] - sum));
        largest = std::max(largest, std::fabs(sum));
    }
    return difference / largest;
}

// Eigenvalues of G, ascending: the squared sizes of the orthogonal shapes that make up the snapshots.
std::vector<double> Energies(KVOSrvMatrix const& gram)
{
    std::vector<double> energies(kSnapshots);
    KVOSrvMatrix eigenvalues(kSnapshots, 1, energies.data(), false, false); // wraps energies, no copy
    KVOSrvMatrix identity(kSnapshots, kSnapshots, nullptr, true, false), shapes(kSnapshots, kSnapshots, nullptr, false, false);
    identity = 0.0;
    std::vector<double> const ones(kSnapshots, 1.0);
    identity.SetDiagonal(ones.data());
    gram.SolveEigenproblemSymmetric(identity, eigenvalues, shapes);
    return energies;
}

bool Run(std::string const& path)
{
    MemoryWatch const memory;
    int const index = WriteSnapshots(path);
    KVOSrvMatrix gram(kSnapshots, kSnapshots, nullptr, true, false);
    FormGram(path, index, gram);
    double const held = memory.Growth(), size = sizeof(double) * kUnknowns * kSnapshots / 1048576.0;
    std::printf("%d snapshots of %d unknowns, %.0f MiB, stored as matrix %d; the process took %.0f MiB at most\n", kSnapshots, kUnknowns,
                size, index, held);

    double const difference = LargestDifference(gram);
    std::printf("G = X^T X: sampled entries differ from their sums by %.1e of the largest\n", difference);

    std::vector<double> const energies = Energies(gram);
    double const total = std::reduce(energies.begin(), energies.end());
    std::printf("shape   share of the energy\n");
    for (int k = 1; k <= kShapes + 1; ++k)
        std::printf("%5d   %.3e\n", k, energies[kSnapshots - k] / total);

    // The motion is made of kShapes shapes: what is behind them is rounding.
    bool const rank = energies[kSnapshots - kShapes] > 1e-6 * total && std::fabs(energies[kSnapshots - kShapes - 1]) < 1e-12 * total;
    bool const ok = rank && difference < 1e-12 && held < size;
    std::printf("%s\n", ok ? "as expected" : "NOT AS EXPECTED");
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: gram_matrix WORK_FOLDER\n");
        return 2;
    }
    std::string const path = std::string(argv[1]) + "/snapshots.sim";
    int tally = 0, status = 1;
    KVOMtxLinearAlgebra_initialize(tally);
    try {
        status = Run(path) ? 0 : 1;
    } catch (KVOBasException const& exception) {
        std::fprintf(stderr, "%s\n", exception.DeveloperReport().c_str());
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
    }
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
    KVOMtxLinearAlgebra_finalize(tally);
    return status;
}
