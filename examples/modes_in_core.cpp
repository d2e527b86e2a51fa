// Natural frequencies of real finite-element models, in core: reads a stiffness matrix K and a mass matrix M, solves K x = f for a load
// on every unknown, takes the eigenpairs of K x = lambda M x and compares the lowest frequencies with reference values.
//
// usage: modes_in_core DATA_FOLDER

#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvMtxExceptions.h"
#include "ReadData.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>
#include <numeric>
#include <string>
#include <vector>

namespace
{

double LargestEntry(std::vector<double> const& x)
{
    return std::transform_reduce(
        x.begin(), x.end(), 0.0, [](double a, double b) { return std::max(a, b); }, [](double a) { return std::fabs(a); });
}

// Largest entry of f - K u for f = ones, relative to the largest entry of f, after factoring K and solving.
double SolveWithUnitLoad(KVOSrvMatrix const& stiffness)
{
    int const n = stiffness.NumberOfRows();
    KVOSrvMatrix factor(stiffness); // the factorization overwrites its matrix
    std::vector<int> pivots(n);
    factor.Factorize(pivots.data());

    std::vector<double> u(n, 1.0);
    std::vector<double> product(n);
    KVOSrvMatrix displacement(n, 1, u.data(), false, false); // wraps u, no copy
    KVOSrvMatrix residual(n, 1, product.data(), false, false);
    factor.ForwardBackwardPass(pivots.data(), displacement, false);
    residual.Multiply(stiffness, displacement);
    for (double& entry : product)
        entry = 1.0 - entry;
    std::printf("  static solution of K u = 1: largest |u| %.6e, residual %.1e\n", LargestEntry(u), LargestEntry(product));
    return LargestEntry(product);
}

// All lambda of K x = lambda M x, ascending.
std::vector<double> Eigenvalues(KVOSrvMatrix const& stiffness, KVOSrvMatrix const& mass)
{
    int const n = stiffness.NumberOfRows();
    std::vector<double> lambda(n);
    KVOSrvMatrix eigenvalues(n, 1, lambda.data(), false, false);
    KVOSrvMatrix modes(n, n, nullptr, false, false);
    try {
        stiffness.SolveEigenproblemSymmetric(mass, eigenvalues, modes);
    } catch (KVOSrvMtxSolveNotPositive const&) {
        // Some unknowns have no mass. Take M x = mu K x instead: lambda = 1 / mu, and massless unknowns give mu = 0.
        std::printf("  the mass is singular: solving M x = mu K x\n");
        mass.SolveEigenproblemSymmetric(stiffness, eigenvalues, modes);
        std::reverse(lambda.begin(), lambda.end());
        for (double& value : lambda)
            value = 1.0 / value;
    }
    return lambda;
}

bool Run(std::string const& folder, char const* name, char const* stiffnessFile, char const* massFile)
{
    KVOSrvMatrix const stiffness = ToDense(*ReadSymmetric(folder + "/" + stiffnessFile));
    KVOSrvMatrix const mass = ToDense(*ReadSymmetric(folder + "/" + massFile));
    std::vector<double> const reference = ReadFrequencies(folder + "/reference/" + name + ".txt");
    std::printf("%s: K from %s, M from %s, %d unknowns\n", name, stiffnessFile, massFile, stiffness.NumberOfRows());

    bool ok = SolveWithUnitLoad(stiffness) < 1e-6;
    std::vector<double> const lambda = Eigenvalues(stiffness, mass);
    std::printf("  mode      frequency      reference   relative difference\n");
    for (std::size_t i = 0; i < reference.size(); ++i) {
        double const frequency = std::sqrt(lambda[i]) / (2.0 * std::numbers::pi);
        double const difference = std::fabs(frequency / reference[i] - 1.0);
        ok = ok && difference < 1e-8; // false for NaN too
        std::printf("  %4zu %14.9f %14.9f   %.1e\n", i + 1, frequency, reference[i], difference);
    }
    std::printf("  %s\n\n", ok ? "agrees with the reference" : "DIFFERS FROM THE REFERENCE");
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: modes_in_core DATA_FOLDER\n");
        return 2;
    }
    int tally = 0;
    KVOMtxLinearAlgebra_initialize(tally);
    int status = 1;
    try {
        bool const small = Run(argv[1], "bcsst01", "bcsstk01.mtx", "bcsstm01.mtx");
        bool const rig = Run(argv[1], "bcsst02", "bcsstk02.mtx", "bcsstm02r.mtx");
        bool const oreCar = Run(argv[1], "orecar", "bcsstk11.mtx", "bcsstm12.mtx");
        status = small && rig && oreCar ? 0 : 1;
    } catch (KVOBasException const& exception) {
        std::fprintf(stderr, "%s\n", exception.DeveloperReport().c_str());
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
    }
    KVOMtxLinearAlgebra_finalize(tally);
    return status;
}
