#include "KVOFortran.h"
#include "KVOSrvBlaMatrix.h"
#include "KVOSrvBlaMatrixSupport.h"
#include "KVOSrvMatrixSupport.h"
#include "LapackWorkspace.h"

using KVOSrvBlaMatrixSupport::Require;

void KVOSrvBlaMatrix::SolveEigenproblemSymmetric(KVOSrvBlaMatrix const& B, double* Lambda, KVOSrvBlaMatrix& X)
{
    Require(IsSymmetric(), "IsSymmetric()", 340);
    Require(B.IsSymmetric(), "B.IsSymmetric()", 341);
    Require(m_dim1 == m_dim2, "m_dim1 == m_dim2", 342);
    Require((m_dim1 == B.NumberOfRows()) && (m_dim2 == B.NumberOfColumns()),
            "(m_dim1 == B.NumberOfRows()) && (m_dim2 == B.NumberOfColumns())", 343);
    Require((m_dim1 == X.NumberOfRows()) && (m_dim2 == X.NumberOfColumns()),
            "(m_dim1 == X.NumberOfRows()) && (m_dim2 == X.NumberOfColumns())", 344);
    Require(Lambda != nullptr, "Lambda", 345);

    // All allocations and the copy of B first: nothing is written if they fail, and the results may go to an operand.
    int const n = m_dim1;
    KVOSrvBlaMatrix factorOfB(n, n, nullptr, KVOSrvMtxGeneral);
    int const lwork = LapackWorkspace::SizeForSymmetricEigenproblem(n);
    KVOSrvMatrixSupport::ValueArray const work = KVOSrvMatrixSupport::AllocateValues(lwork);
    B.GetValues(0, n - 1, 0, n - 1, factorOfB);
    GetValues(0, n - 1, 0, n - 1, X);

    int const axEqualsLambdaBx = 1;
    int info = 0;
    BLAC_DSYGV(&axEqualsLambdaBx, "V", "L", &n, X.m_values, &X.m_offset, factorOfB.m_values, &n, Lambda, work.get(), &lwork, &info);
    Require(info == 0, "info==0", 368);
}
