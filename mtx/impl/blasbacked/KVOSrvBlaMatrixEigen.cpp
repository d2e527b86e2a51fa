// The generalized eigenproblem of KVOSrvBlaMatrix.

#include "Arrays.h"
#include "KVOFortran.h"
#include "KVOSrvBlaMatrix.h"
#include "KVOSrvBlaMatrixSupport.h"
#include "KVOSrvMatrixSupport.h"
#include "LapackWorkspace.h"

using KVOSrvBlaMatrixSupport::RequirePrecondition;

void KVOSrvBlaMatrix::SolveEigenproblemSymmetric(KVOSrvBlaMatrix const& B, double* Lambda, KVOSrvBlaMatrix& X)
{
    RequirePrecondition(IsSymmetric(), "IsSymmetric()", 340);
    RequirePrecondition(B.IsSymmetric(), "B.IsSymmetric()", 341);
    RequirePrecondition(m_dim1 == m_dim2, "m_dim1 == m_dim2", 342);
    RequirePrecondition((m_dim1 == B.NumberOfRows()) && (m_dim2 == B.NumberOfColumns()),
                        "(m_dim1 == B.NumberOfRows()) && (m_dim2 == B.NumberOfColumns())", 343);
    RequirePrecondition((m_dim1 == X.NumberOfRows()) && (m_dim2 == X.NumberOfColumns()),
                        "(m_dim1 == X.NumberOfRows()) && (m_dim2 == X.NumberOfColumns())", 344);
    RequirePrecondition(Lambda != nullptr, "Lambda", 345);

    // All allocations and the copy of B first: nothing is written if they fail, and the results may go to an operand.
    int const n = m_dim1;
    KVOSrvBlaMatrix factorOfB(n, n, nullptr, KVOSrvMtxGeneral);
    int const lwork = LapackWorkspace::SizeForSymmetricEigenproblem(n);
    Arrays::Array<double> const work = Arrays::AllocateArray<double>(lwork);
    B.GetValues(0, n - 1, 0, n - 1, factorOfB);
    GetValues(0, n - 1, 0, n - 1, X);

    int const axEqualsLambdaBx = 1;
    int info = 0;
    BLAC_DSYGV(&axEqualsLambdaBx, "V", "L", &n, X.m_values, &X.m_offset, factorOfB.m_values, &n, Lambda, work.get(), &lwork, &info);
    RequirePrecondition(info == 0, "info==0", 368);
}
