// Participation factors, effective masses, and the directions that are mostly asked for.

#include "KVOSrvModesParticipation.h"

#include "KVOSrvDenseMatrix.h"
#include "KVOSrvMtxExceptions.h"
#include "KVOSrvSparseMatrix.h"

#include <numeric>

namespace
{

constexpr char kSource[] = "modes/KVOSrvModesParticipation";

void Require(bool isRight, char const* operation, char const* reason, int line = __builtin_LINE())
{
    if (!isRight)
        KVOSrvMtxRefusedInput("KVOSrvModesParticipation", operation, reason).Throw(kSource, line);
}

// What is wrong with the operands; null: nothing.
char const* Complaint(KVOSrvDenseMatrix const& modes, KVOSrvSparseMatrix const& mass, KVOSrvMatrix const& directions)
{
    int const order = mass.NumberOfRows();
    if (mass.NumberOfColumns() != order)
        return "the mass is not square";
    if (!modes.IsNull() && modes.NumberOfRows() != order)
        return "the modes have not as many rows as the mass";
    if (directions.NumberOfRows() != order || directions.IsDiagonal())
        return "the directions are not in full or have not as many rows as the mass";
    return nullptr;
}

} // namespace

KVOSrvModesParticipation::KVOSrvModesParticipation(KVOSrvDenseMatrix const& modes, KVOSrvSparseMatrix const& mass,
                                                   KVOSrvMatrix const& directions)
    : m_factors(modes.NumberOfColumns(), directions.NumberOfColumns(), nullptr, false, false),
      m_totals(directions.NumberOfColumns(), 1, nullptr, false, false)
{
    char const* const complaint = Complaint(modes, mass, directions);
    Require(complaint == nullptr, "KVOSrvModesParticipation", complaint);
    int const order = directions.NumberOfRows(), count = directions.NumberOfColumns();
    KVOSrvMatrix inertia(order, count, nullptr, false, false); // M r
    mass.Multiply(directions.Values(), count, inertia.Values(), false);
    for (int d = 0; d < count; ++d) {
        double const* const r = directions.Values() + std::ptrdiff_t{d} * order;
        m_totals.Values()[d] = std::inner_product(r, r + order, inertia.Values() + std::ptrdiff_t{d} * order, 0.0);
    }
    if (NumberOfModes() > 0 && count > 0)
        modes.TransposeMultiply(inertia, m_factors, 0);
}

double KVOSrvModesParticipation::EffectiveMass(int mode, int direction) const noexcept
{
    double const factor = m_factors.Values()[mode + std::ptrdiff_t{direction} * NumberOfModes()];
    return factor * factor;
}

double KVOSrvModesParticipation::HeldMass(int direction) const noexcept
{
    double held = 0.0;
    for (int mode = 0; mode < NumberOfModes(); ++mode)
        held += EffectiveMass(mode, direction);
    return held;
}

double KVOSrvModesParticipation::Share(int direction) const noexcept
{
    double const total = TotalMass(direction);
    return total > 0.0 ? HeldMass(direction) / total : 0.0;
}

std::unique_ptr<KVOSrvMatrix> KVOSrvModesParticipation::UnitDirections(int order, int perNode)
{
    Require(order >= 0 && perNode >= 1 && order % perNode == 0, "UnitDirections", "the order is no multiple of the unknowns of a node");
    auto directions = std::make_unique<KVOSrvMatrix>(order, perNode, nullptr, false, false);
    *directions = 0.0;
    for (int i = 0; i < order; ++i)
        directions->Values()[i + std::ptrdiff_t{i % perNode} * order] = 1.0;
    return directions;
}

std::unique_ptr<KVOSrvMatrix> KVOSrvModesParticipation::RigidMotions(int order, double const* places, int const* dofs, double const* about)
{
    Require(order >= 0, "RigidMotions", "the order is negative");
    auto motions = std::make_unique<KVOSrvMatrix>(order, 6, nullptr, false, false);
    *motions = 0.0;
    for (int i = 0; i < order; ++i) {
        Require(dofs[i] >= 1 && dofs[i] <= 6, "RigidMotions", "an unknown is neither a displacement (1 to 3) nor a rotation (4 to 6)");
        double* const row = motions->Values() + i;
        int const dof = dofs[i] - 1;
        row[std::ptrdiff_t{dof} * order] = 1.0;
        if (dof >= 3)
            continue;
        // Displacement `dof` of a rotation by 1 about axis a is component `dof` of e_a x (place - point): of the other axes a, the one
        // behind `dof`, cyclically, brings the coordinate behind that, and that one brings minus the coordinate of the first.
        double const* const place = places + std::ptrdiff_t{3} * i;
        int const next = (dof + 1) % 3, last = (dof + 2) % 3;
        row[std::ptrdiff_t{3 + next} * order] = place[last] - (about != nullptr ? about[last] : 0.0);
        row[std::ptrdiff_t{3 + last} * order] = -(place[next] - (about != nullptr ? about[next] : 0.0));
    }
    return motions;
}
