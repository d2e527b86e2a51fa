#include "ShiftedPair.h"

#include <cmath>

namespace
{

// By coordinates: how many entries a row has need not be known before, nor where they come from.
void Assemble(RowShare const& share, int rank, Triplets triplets, HeldMat& matrix)
{
    Check(MatCreate(PETSC_COMM_WORLD, matrix.New()));
    Check(MatSetSizes(matrix, share.Rows(rank), share.Rows(rank), share.order, share.order));
    Check(MatSetType(matrix, MATAIJ));
    Check(MatSetPreallocationCOO(matrix, static_cast<PetscCount>(triplets.values.size()), triplets.rows.data(), triplets.columns.data()));
    Check(MatSetValuesCOO(matrix, triplets.values.data(), INSERT_VALUES));
    Check(MatSetOption(matrix, MAT_SYMMETRIC, PETSC_TRUE));
    Check(MatSetOption(matrix, MAT_SYMMETRY_ETERNAL, PETSC_TRUE));
}

// As MUMPS numbers them.
char const* OrderingOf(PetscInt number)
{
    constexpr char const* kNames[] = {"AMD", "a given order", "AMF", "SCOTCH", "PORD", "METIS", "QAMD"};
    return number >= 0 && number < static_cast<PetscInt>(std::size(kNames)) ? kNames[number] : "MUMPS";
}

} // namespace

ShiftedPair::ShiftedPair(RowShare const& share, int rank, Triplets stiffness, Triplets mass)
{
    Assemble(share, rank, std::move(stiffness), m_stiffness);
    Assemble(share, rank, std::move(mass), m_mass);
    Check(EPSCreate(PETSC_COMM_WORLD, m_lowest.New()));
    Check(EPSSetOperators(m_lowest, m_stiffness, m_mass));
    Check(EPSSetProblemType(m_lowest, EPS_GHEP));
    ST st = nullptr;
    Check(EPSGetST(m_lowest, &st));
    Check(STSetTransform(st, PETSC_TRUE)); // new shifts form K - sigma M anew; a search sets it no earlier than it begins
    Check(STSetFromOptions(st));
}

PC ShiftedPair::Preconditioner() const
{
    ST st = nullptr;
    KSP ksp = nullptr;
    PC pc = nullptr;
    Check(EPSGetST(m_lowest, &st));
    Check(STGetKSP(st, &ksp));
    Check(KSPGetPC(ksp, &pc));
    return pc;
}

std::optional<ShiftedPair::Inertia> ShiftedPair::Factor(double sigma)
{
    ST st = nullptr;
    Check(EPSGetST(m_lowest, &st));
    Check(STSetShift(st, sigma));
    Mat inverse = nullptr; // asked for, K - sigma M is formed: SLEPc itself waits for the first solve
    KSP ksp = nullptr;
    Check(STSetUp(st));
    Check(STGetOperator(st, &inverse));
    Check(STRestoreOperator(st, &inverse));
    Check(STGetKSP(st, &ksp));
    Check(KSPSetUp(ksp));
    m_sigma = sigma;
    PetscBool factors = PETSC_FALSE;
    PC const pc = Preconditioner();
    Check(PetscObjectTypeCompare(reinterpret_cast<PetscObject>(pc), PCCHOLESKY, &factors));
    if (factors == PETSC_FALSE)
        return std::nullopt;
    Mat factor = nullptr;
    PetscInt negative = 0, zero = 0;
    Check(PCFactorGetMatrix(pc, &factor));
    Check(MatGetInertia(factor, &negative, &zero, nullptr));

    return Inertia{negative, zero};
}

void ShiftedPair::Solve(Vec b, Vec x)
{
    ST st = nullptr;
    Check(EPSGetST(m_lowest, &st));
    Check(STMatSolve(st, b, x));
}

void ShiftedPair::OfInterval(EPS eps) const
{
    Check(EPSSetOperators(eps, m_stiffness, m_mass));
    Check(EPSSetProblemType(eps, EPS_GHEP));
    Check(EPSSetWhichEigenpairs(eps, EPS_ALL));
    Check(EPSKrylovSchurSetDetectZeros(eps, PETSC_TRUE));
}

KVOSrvFactorAccount ShiftedPair::Account(std::string& solverName, std::string& ordering) const
{
    KVOSrvFactorAccount account;
    auto const [orderingSeconds, orderings] = PetscSession::Spent("MatCholFctrSym");
    auto const [factorSeconds, factorizations] = PetscSession::Spent("MatCholFctrNum");
    auto const [solveSeconds, solves] = PetscSession::Spent("STMatSolve");
    account.orderings = orderings;
    account.factorizations = factorizations;
    account.solvedColumns = solves;
    account.orderingSeconds = orderingSeconds;
    account.factorSeconds = factorSeconds;
    account.solveSeconds = solveSeconds;

    Mat shifted = nullptr, factor = nullptr;
    PC const pc = Preconditioner();
    Check(PCGetOperators(pc, &shifted, nullptr));
    PetscInt rows = 0;
    MatInfo info{};
    Check(MatGetSize(shifted, &rows, nullptr));
    Check(MatGetInfo(shifted, MAT_GLOBAL_SUM, &info));
    account.unknowns = rows;
    account.entries = (static_cast<std::int64_t>(info.nz_used) + rows) / 2;

    MatSolverType solver = nullptr;
    PetscBool factors = PETSC_FALSE;
    Check(PetscObjectTypeCompare(reinterpret_cast<PetscObject>(pc), PCCHOLESKY, &factors));
    if (factors == PETSC_TRUE)
        Check(PCFactorGetMatSolverType(pc, &solver));
    if (solver == nullptr || std::string(solver) != MATSOLVERMUMPS) {
        ordering = "that solver";
        solverName = "the solver of the options";
        return account;
    }
    solverName = "MUMPS";
    Check(PCFactorGetMatrix(pc, &factor));
    PetscInt entries = 0, megabytes = 0, onDisk = 0, number = 0;
    Check(MatMumpsGetInfog(factor, 29, &entries));
    Check(MatMumpsGetInfog(factor, 22, &megabytes));
    Check(MatMumpsGetInfog(factor, 7, &number));
    Check(MatMumpsGetIcntl(factor, 22, &onDisk));
    Check(MatMumpsGetRinfog(factor, 3, &account.flops));
    account.factorEntries = entries < 0 ? -std::int64_t{1000000} * entries : entries; // negative: millions
    account.memory = std::int64_t{1000000} * megabytes;
    account.onDisk = onDisk != 0;
    ordering = OrderingOf(number);
    return account;
}
