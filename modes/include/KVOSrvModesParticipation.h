#pragma once

#include "KVOExport.h"
#include "KVOSrvMatrix.h"

#include <memory>

class KVOSrvDenseMatrix;
class KVOSrvSparseMatrix;

/// How modes take part in motions of the whole model along given directions: what a base that moves so calls forth of
/// each.
///
/// For a mode x, scaled to x^T M x = 1, and a direction r the participation factor is x^T M r, and its square the
/// effective mass. The effective masses of all modes add up to the total mass r^T M r; what some of them hold of it
/// tells whether they suffice. Unknowns that are fixed, and left out of M, have no part in any of it.
class KVO_EXPORT KVOSrvModesParticipation
{
public:
    /// Reads the modes once, block by block; keeps nothing of the arguments.
    /// @param modes       order x count, a mode a column, as KVOSrvModes::Modes(); the null matrix: no modes
    /// @param mass        M, square, assembled
    /// @param directions  order x any number, in full, a direction r a column
    /// @throws KVOSrvMtxRefusedInput "KVOSrvModesParticipation" when they are not of one order or the directions are a
    /// diagonal
    /// @throws KVOSimException when the database fails
    KVOSrvModesParticipation(KVOSrvDenseMatrix const& modes, KVOSrvSparseMatrix const& mass,
                             KVOSrvMatrix const& directions);

    /// Number of modes.
    int NumberOfModes() const noexcept { return m_factors.NumberOfRows(); }
    /// Number of directions.
    int NumberOfDirections() const noexcept { return m_factors.NumberOfColumns(); }
    /// x^T M r, modes x directions.
    KVOSrvMatrix const& Factors() const noexcept { return m_factors; }
    /// (x^T M r)^2. @param mode,direction  from 0, not checked
    double EffectiveMass(int mode, int direction) const noexcept;
    /// r^T M r; of a rotation a moment of inertia. @param direction  from 0, not checked
    double TotalMass(int direction) const noexcept { return m_totals.Values()[direction]; }
    /// Sum of the effective masses of all modes. @param direction  from 0, not checked
    double HeldMass(int direction) const noexcept;
    /// HeldMass() over TotalMass(): 0 to 1, but for rounding; 0 where there is no mass. @param direction  from 0, not
    /// checked
    double Share(int direction) const noexcept;

    /// The directions of unknowns that are numbered node by node: order x perNode, 1 where row modulo perNode is the
    /// column, else 0.
    /// @throws KVOSrvMtxRefusedInput "UnitDirections" unless perNode is 1 or more and divides the order,
    /// mem_OutOfMemory
    static std::unique_ptr<KVOSrvMatrix> UnitDirections(int order, int perNode);

    /// The motions of a rigid body: order x 6, the translations along x, y and z, then the small rotations about axes
    /// in these directions.
    /// @param places  3 x order: x, y and z of each unknown's node
    /// @param dofs    what each unknown is: 1, 2, 3 the displacement along x, y, z; 4, 5, 6 the rotation about x, y, z
    /// @param about   the point that the axes go through, 3 coordinates; null: the origin
    /// @throws KVOSrvMtxRefusedInput "RigidMotions" when an unknown is none of these or the order is negative,
    /// mem_OutOfMemory
    static std::unique_ptr<KVOSrvMatrix> RigidMotions(int order, double const* places, int const* dofs,
                                                      double const* about = nullptr);

private:
    KVOSrvMatrix m_factors;
    KVOSrvMatrix m_totals; // a column
};
