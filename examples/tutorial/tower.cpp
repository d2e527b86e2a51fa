// A tower of 1000 storeys, each a mass on a spring to the one below: assembled, stored, its modes found and stored, and read again.
// Mode j is known: lambda_j = 4 k / m sin((2 j - 1) pi / (4 n + 2))^2.
//
// usage: tower DATABASE

#include "KVOBasException.h"
#include "KVOMtxLinearAlgebra.h"
#include "KVOSimCollection.h"
#include "KVOSimContext.h"
#include "KVOSimDatabase.h"
#include "KVOSimDistribution.h"
#include "KVOSimTransaction.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMatrix.h"
#include "KVOSrvModes.h"
#include "KVOSrvSparseMatrix.h"
#include "KVOSrvUtilities.h"

#include <cmath>
#include <cstdio>
#include <numbers>

constexpr int kStoreys = 1000;
constexpr double kMass = 2e5;      // kg
constexpr double kStiffness = 4e8; // N/m

// 1. Assemble: values at one place are summed, as elements give them.
static void Assemble(KVOSrvSparseMatrix& stiffness, KVOSrvSparseMatrix& mass)
{
    stiffness.BeginAssembly();
    mass.BeginAssembly();
    for (unsigned i = 0; i < kStoreys; ++i) {
        mass.AddData(i, i, kMass);
        stiffness.AddData(i, i, kStiffness); // the spring below
        if (i == 0)
            continue; // stands on the ground
        stiffness.AddData(i - 1, i - 1, kStiffness);
        stiffness.AddData(i, i - 1, -kStiffness);
        stiffness.AddData(i - 1, i, -kStiffness);
    }
    stiffness.EndAssembly();
    mass.EndAssembly();
}

// 2. Store: what is made in a transaction is there with its commit, or not at all.
static void Store(char const* path, KVOSrvSparseMatrix const& stiffness, KVOSrvSparseMatrix const& mass, KVOSrvModes const& modes)
{
    KVOSimDatabase database;
    database.CreateFile(DRXUnicodeString(path), 0);
    KVOSimContext context(database.CreateContext());
    KVOSimTransaction transaction(context);
    KVOSimCSetID const unknowns = KVOSimCollection(context.CreateCollection(kStoreys)).BiggestCSetID();
    KVOSimCSetID const numbers = KVOSimCollection(context.CreateCollection(modes.Count())).BiggestCSetID();

    KVOSimDistributionID const k = KVOSrvUtilities::CreateSparseDistribution(unknowns, unknowns);
    stiffness.Export(unknowns, unknowns, k);
    KVOSimDistribution(k).SetTitle("stiffness", "N/m");
    KVOSimDistributionID const m = KVOSrvUtilities::CreateSparseDistribution(unknowns, unknowns);
    mass.Export(unknowns, unknowns, m);
    KVOSimDistribution(m).SetTitle("mass", "kg");
    KVOSimDistributionID const x = KVOSrvUtilities::Create2DDistribution(unknowns, numbers, kStoreys, 1); // a chunk a mode
    KVOSrvDenseMatrix(x).CopyValues(&modes.Modes());
    KVOSimDistribution(x).SetTitle("modes");
    transaction.Commit();
    database.Close();
}

// 4. Look: a mode is found by its title, and read alone.
static double TopOfFirstMode(char const* path)
{
    KVOSimDatabase database;
    database.OpenFile(DRXUnicodeString(path), true);
    KVOSrvDenseMatrix modes(KVOSimContext(database.ContextID()).Find("modes"));
    KVOSrvMatrix shape(kStoreys, 1, nullptr, false, false);
    modes.GetColumns(0, 0, shape);
    return std::fabs(shape.Values()[kStoreys - 1]);
}

static bool Run(char const* path)
{
    KVOSrvSparseMatrix stiffness(kStoreys, kStoreys), mass(kStoreys, kStoreys);
    Assemble(stiffness, mass);

    // 3. Modes: the lowest five, counted, so that none is missing.
    KVOSrvModesSettings settings;
    settings.count = 5;
    KVOSrvModes const modes(stiffness, mass, settings);
    double worst = 0.0;
    for (int j = 0; j < modes.Count(); ++j) {
        double const exact = 4.0 * kStiffness / kMass * std::pow(std::sin((2 * j + 1) * std::numbers::pi / (4 * kStoreys + 2)), 2);
        worst = std::fmax(worst, std::fabs(modes.Eigenvalues()[j] / exact - 1.0));
        std::printf("%d: %.6f Hz\n", j + 1, std::sqrt(modes.Eigenvalues()[j]) / (2.0 * std::numbers::pi));
    }
    Store(path, stiffness, mass, modes);

    // x^T M x = 1, and the first shape is a sine with its top at storey n.
    double const top = TopOfFirstMode(path), exact = std::sqrt(4.0 / (kMass * (2 * kStoreys + 1)));
    std::printf("the top moves by %.4e; largest difference of an eigenvalue from the exact one %.0e\n", top, worst);
    return worst < 1e-8 && std::fabs(top / exact - 1.0) < 1e-4;
}

int main(int argc, char** argv)
{
    if (argc != 2)
        return 2;
    int modules = 0;
    KVOMtxLinearAlgebra_initialize(modules);
    bool isRight = false;
    try {
        isRight = Run(argv[1]);
    } catch (KVOBasException const& exception) {
        std::fprintf(stderr, "%s\n", exception.UserReport().c_str());
    }
    KVOMtxLinearAlgebra_finalize(modules);
    return isRight ? 0 : 1;
}
