// How many modes does an earthquake need? A tower of 60 storeys, each a mass m on a spring k to the one below: the modes of the library
// KVOMtxModes, what each of them carries of the mass when the ground moves, and how many carry 90 percent of it. Frequencies and effective
// masses are known here: mode j is a sine over the storeys,
//   lambda_j = 4 k / m sin(a_j / 2)^2 with a_j = (2 j - 1) pi / (2 n + 1), effective mass m / ((2 n + 1) tan(a_j / 2)^2).
//
// usage: effective_masses

#include "KVOMtxLinearAlgebra.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvModes.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvModesParticipation.h"
#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numbers>

namespace
{

constexpr int kStoreys = 60;
constexpr double kMass = 2e5;      // kg
constexpr double kStiffness = 4e8; // N/m

// Compressed rows in full storage; what is added at one place is summed.
void Assemble(KVOSrvSparseMatrix& stiffness, KVOSrvSparseMatrix& mass)
{
    for (KVOSrvSparseMatrix* const matrix : {&stiffness, &mass})
        matrix->BeginAssembly();
    for (unsigned i = 0; i < kStoreys; ++i) {
        mass.AddData(i, i, kMass);
        stiffness.AddData(i, i, kStiffness); // the spring to the storey below, or to the ground
        if (i == 0)
            continue;
        stiffness.AddData(i - 1, i - 1, kStiffness);
        stiffness.AddData(i, i - 1, -kStiffness);
        stiffness.AddData(i - 1, i, -kStiffness);
    }
    for (KVOSrvSparseMatrix* const matrix : {&stiffness, &mass})
        matrix->EndAssembly();
}

bool Run()
{
    KVOSrvSparseMatrix stiffness(kStoreys, kStoreys), mass(kStoreys, kStoreys);
    Assemble(stiffness, mass);
    KVOSrvModesSettings settings;
    settings.count = 8;
    KVOSrvModes const modes(stiffness, mass, settings);

    // The ground moves all storeys alike: one unknown a node, one direction, (1, 1, ..., 1).
    auto const ground = KVOSrvModesParticipation::UnitDirections(kStoreys, 1);
    KVOSrvModesParticipation const participation(modes.Modes(), mass, *ground);

    double worst = 0.0, held = 0.0;
    int needed = 0;
    std::printf("mode   frequency Hz   effective mass t   of the total\n");
    for (int j = 0; j < modes.Count(); ++j) {
        double const half = (2 * j + 1) * std::numbers::pi / (2 * (2 * kStoreys + 1));
        double const lambda = 4.0 * kStiffness / kMass * std::pow(std::sin(half), 2);
        double const effective = kMass / ((2 * kStoreys + 1) * std::pow(std::tan(half), 2));
        worst = std::max(
            {worst, std::fabs(modes.Eigenvalues()[j] / lambda - 1.0), std::fabs(participation.EffectiveMass(j, 0) / effective - 1.0)});
        held += participation.EffectiveMass(j, 0) / participation.TotalMass(0);
        if (needed == 0 && held >= 0.9)
            needed = j + 1;
        std::printf("%4d %14.6f %18.3f %13.2f%%\n", j + 1, std::sqrt(modes.Eigenvalues()[j]) / (2.0 * std::numbers::pi),
                    participation.EffectiveMass(j, 0) / 1000.0, 100.0 * held);
    }
    std::printf("90 percent of %.0f t need %d modes; the eigenvalues were%s counted: none is missing\n",
                participation.TotalMass(0) / 1000.0, needed, modes.Account().certified ? "" : " not");
    bool const isRight = worst < 1e-8 && needed > 0 && modes.Account().certified;
    std::printf("largest relative difference from the exact values %.1e: %s\n", worst, isRight ? "agrees" : "DIFFERS");
    return isRight;
}

} // namespace

int main()
{
    int tally = 0;
    KVOMtxLinearAlgebra_initialize(tally);
    int status = 1;
    try {
        status = Run() ? 0 : 1;
    } catch (KVOSrvModesFailure const& failure) { // its kind tells whether memory, a disk or the model is at fault
        std::fprintf(stderr, "no modes: %s\n", failure.UserReport().c_str());
    } catch (KVOBasException const& exception) {
        std::fprintf(stderr, "%s\n", exception.DeveloperReport().c_str());
    }
    KVOMtxLinearAlgebra_finalize(tally);
    return status;
}
