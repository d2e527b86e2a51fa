// A reduced basis of a finite-element model: stiffness K and mass M of an ore car, sparse, 1473 unknowns, are projected onto 30 vectors V.
// The small pair V^T K V, V^T M V answers for the lowest frequencies of the model. The basis comes from block inverse iterations
// V := K^-1 M V, which draw any start towards the lowest modes; the frequencies are printed beside references as it does so.
//
// usage: reduced_basis DATA_FOLDER

#include "KVOBasException.h"
#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvSparseMatrix.h"
#include "ReadData.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace
{

constexpr int kSize = 30; // of the basis: three times the number of modes wanted, so that these converge fast
constexpr int kSteps = 10;

// The factors of K in core. Dense, since the library leaves sparse factorizations to others: 17 MB here, and up to a few thousand unknowns
// a matter of seconds.
class Stiffness
{
public:
    explicit Stiffness(KVOSrvSparseMatrix const& matrix) : m_factor(ToDense(matrix)), m_pivots(matrix.NumberOfRows())
    {
        m_factor.Factorize(m_pivots.data());
    }

    // x := K^-1 x
    void Solve(KVOSrvMatrix& x) const { m_factor.ForwardBackwardPass(m_pivots.data(), x, false); }

private:
    KVOSrvMatrix m_factor;
    std::vector<int> m_pivots;
};

// y = A x, sparse times dense.
void Multiply(KVOSrvSparseMatrix const& A, KVOSrvMatrix const& x, KVOSrvMatrix& y)
{
    A.Multiply(x.Values(), x.NumberOfColumns(), y.Values(), false);
}

// V^T A V. It is symmetric in exact arithmetic only, and the eigensolver insists: so one triangle is copied onto the other.
KVOSrvMatrix Project(KVOSrvSparseMatrix const& A, KVOSrvMatrix const& V)
{
    KVOSrvMatrix AV(V.NumberOfRows(), kSize, nullptr, false, false), reduced(kSize, kSize, nullptr, true, false);
    Multiply(A, V, AV);
    V.TransposeMultiply(AV, reduced, 1, 0);
    reduced.SetSymmetricResults();
    return reduced;
}

// One inverse iteration, and V turned into the modes of the pair that it reduces; their lambda are returned, ascending. Afterwards
// V^T M V = 1, which also keeps the vectors apart: left alone, all of them would become the first mode.
std::vector<double> Iterate(Stiffness const& factor, KVOSrvSparseMatrix const& K, KVOSrvSparseMatrix const& M, KVOSrvMatrix& V)
{
    KVOSrvMatrix iterated(V.NumberOfRows(), kSize, nullptr, false, false);
    Multiply(M, V, iterated);
    factor.Solve(iterated);

    std::vector<double> lambda(kSize);
    KVOSrvMatrix eigenvalues(kSize, 1, lambda.data(), false, false); // wraps lambda, no copy
    KVOSrvMatrix modes(kSize, kSize, nullptr, false, false);
    Project(K, iterated).SolveEigenproblemSymmetric(Project(M, iterated), eigenvalues, modes);
    V.Multiply(iterated, modes);
    return lambda;
}

// Largest |K x - lambda M x| / |K x| of the first `count` modes: how well they solve the full problem, whatever the reduced one says.
double LargestResidual(KVOSrvSparseMatrix const& K, KVOSrvSparseMatrix const& M, KVOSrvMatrix const& V, std::vector<double> const& lambda,
                       std::size_t count)
{
    std::size_t const n = V.NumberOfRows();
    KVOSrvMatrix KV(V.NumberOfRows(), kSize, nullptr, false, false), MV(V.NumberOfRows(), kSize, nullptr, false, false);
    Multiply(K, V, KV);
    Multiply(M, V, MV);
    double largest = 0.0;
    for (std::size_t mode = 0; mode < count; ++mode) {
        double residual = 0.0, scale = 0.0;
        for (std::size_t i = mode * n; i < (mode + 1) * n; ++i) {
            residual += std::pow(KV.Values()[i] - lambda[mode] * MV.Values()[i], 2);
            scale += std::pow(KV.Values()[i], 2);
        }
        largest = std::max(largest, std::sqrt(residual / scale));
    }
    return largest;
}

bool Run(std::string const& folder)
{
    std::unique_ptr<KVOSrvSparseMatrix> const K = ReadSymmetric(folder + "/bcsstk11.mtx"), M = ReadSymmetric(folder + "/bcsstm12.mtx");
    std::vector<double> const reference = ReadFrequencies(folder + "/reference/orecar.txt");
    Stiffness const factor(*K);

    // Any start does that has a part of every mode; one that is different in each run would be hard to debug.
    KVOSrvMatrix V(K->NumberOfRows(), kSize, nullptr, false, false);
    std::mt19937 random(1);
    std::generate_n(V.Values(), V.AddressableEntries(), [&] { return static_cast<double>(random()) / 4294967296.0 - 0.5; });

    std::printf("%d unknowns, %d entries; frequencies of the model reduced to %d vectors, by iterations\n", K->NumberOfRows(),
                K->NumberOfNonzeros(), kSize);
    std::printf("iteration    frequency 1   frequency %zu   largest relative difference from the %zu references\n", reference.size(),
                reference.size());
    double difference = 0.0;
    bool above = true;
    std::vector<double> lambda;
    for (int step = 1; step <= kSteps; ++step) {
        lambda = Iterate(factor, *K, *M, V);
        difference = 0.0;
        for (std::size_t i = 0; i < reference.size(); ++i) {
            double const relative = std::sqrt(lambda[i]) / (2.0 * std::numbers::pi) / reference[i] - 1.0;
            above = above && relative > -1e-9; // a reduced model is never softer than the full one; 1e-9 for rounding
            difference = std::max(difference, std::fabs(relative));
        }
        std::printf("%9d %14.9f %14.9f   %.1e\n", step, std::sqrt(lambda.front()) / (2.0 * std::numbers::pi),
                    std::sqrt(lambda[reference.size() - 1]) / (2.0 * std::numbers::pi), difference);
    }
    std::printf("reference %14.9f %14.9f\n", reference.front(), reference.back());

    double const residual = LargestResidual(*K, *M, V, lambda, reference.size());
    bool const ok = above && difference < 1e-8 && residual < 1e-5;
    std::printf("largest residual of the modes %.1e; %s\n", residual, ok ? "agrees with the references" : "DIFFERS FROM THE REFERENCES");
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: reduced_basis DATA_FOLDER\n");
        return 2;
    }
    int tally = 0, status = 1;
    KVOMtxLinearAlgebra_initialize(tally);
    try {
        status = Run(argv[1]) ? 0 : 1;
    } catch (KVOBasException const& exception) {
        std::fprintf(stderr, "%s\n", exception.DeveloperReport().c_str());
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
    }
    KVOMtxLinearAlgebra_finalize(tally);
    return status;
}
