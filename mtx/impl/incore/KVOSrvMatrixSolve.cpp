// Factors, linear systems and the eigenproblem of KVOSrvMatrix.

#include "Arrays.h"
#include "KVOSrvMatrix.h"

#include "KVOFortran.h"
#include "KVOSrvMatrixSupport.h"
#include "LapackWorkspace.h"

using Arrays::AllocateArray;
using Arrays::Array;
using KVOSrvMatrixSupport::LeadingDimension;

namespace
{

constexpr char const* kSource = "mtx/impl/KVOSrvMatrixSolve";
constexpr KVOSrvMatrixSupport::InputCheck RequireLegal{kSource};

void CopyAsFull(KVOSrvMatrix const& source, KVOSrvMatrix& target)
{
    if (source.IsDiagonal()) {
        target = 0.0;
        target.SetDiagonal(source);
    } else {
        source.GetRows(0, source.NumberOfRows() - 1, target);
    }
}

} // namespace

void KVOSrvMatrix::Factorize(int* pivots)
{
    if (m_diagonal) {
        InvertDiagonal();
        return;
    }
    int const lda = LeadingDimension(m_rows);
    int info = 0;
    if (m_symmetric) {
        RequireLegal(m_columns >= m_rows, "Factorize");
        int const lwork = LapackWorkspace::Size(std::int64_t{m_rows} * m_rows);
        Array<double> const work = AllocateArray<double>(lwork);
        BLAC_DSYTRF("L", &m_rows, m_values, &lda, pivots, work.get(), &lwork, &info);
    } else {
        BLAC_DGETRF(&m_rows, &m_columns, m_values, &lda, pivots, &info);
    }
    RequireLegal(info >= 0, "Factorize"); // deliberate: a zero pivot, info > 0, is not reported
}

void KVOSrvMatrix::InvertDiagonal()
{
    for (int i = 0; i < m_rows; ++i) {
        if (m_values[i] == 0.0)
            KVOSrvMtxDivByZero().Throw(kSource, __LINE__);
        m_values[i] = 1.0 / m_values[i];
    }
}

void KVOSrvMatrix::ForwardBackwardPass(int const* pivots, KVOSrvMatrix& rhs, bool transposed) const
{
    // The leading square is solved with; of fewer columns than rows there is none.
    RequireLegal(m_columns >= m_rows && !rhs.IsAllocatedAsDiagonal(), "ForwardBackwardPass");
    int const nrhs = rhs.m_columns;
    if (m_diagonal) {
        for (int j = 0; j < nrhs; ++j)
            for (int i = 0; i < m_rows; ++i)
                rhs.m_values[i + std::int64_t{j} * m_rows] *= m_values[i];
        return;
    }
    // Deliberate: the leading dimension of the right-hand sides is this matrix's number of rows.
    int const lda = LeadingDimension(m_rows), ldb = lda;
    int info = 0;
    if (m_symmetric)
        BLAC_DSYTRS("L", &m_rows, &nrhs, m_values, &lda, pivots, rhs.m_values, &ldb, &info);
    else
        BLAC_DGETRS(transposed ? "T" : "N", &m_rows, &nrhs, m_values, &lda, pivots, rhs.m_values, &ldb, &info);
    RequireLegal(info >= 0, "ForwardBackwardPass");
}

void KVOSrvMatrix::SolveEigenproblemSymmetric(KVOSrvMatrix const& B, KVOSrvMatrix& eigenvalues, KVOSrvMatrix& eigenvectors) const
{
    char const* const operation = "SolveEigenproblemSymmetric";
    int const n = m_rows;
    RequireLegal(n >= 1 && IsSquare() && HasShapeOf(B) && HasShapeOf(eigenvectors) && eigenvalues.m_rows == n, operation);
    RequireLegal(eigenvalues.StoredEntries() >= n && eigenvectors.StoredEntries() == std::int64_t{n} * n, operation);
    RequireLegal(&eigenvalues != &eigenvectors, operation);
    RequireLegal(IsSymmetricNumerically() && B.IsSymmetricNumerically(), operation);

    // All allocations and the copy of B first: nothing is written if they fail, and the results may go to A or B.
    KVOSrvMatrix factorOfB(n, n, nullptr, false, false);
    int const lwork = LapackWorkspace::SizeForSymmetricEigenproblem(n);
    Array<double> const work = AllocateArray<double>(lwork);
    CopyAsFull(B, factorOfB);
    if (&eigenvectors != this)
        CopyAsFull(*this, eigenvectors);

    int const axEqualsLambdaBx = 1;
    int info = 0;
    BLAC_DSYGV(&axEqualsLambdaBx, "V", "L", &n, eigenvectors.m_values, &n, factorOfB.m_values, &n, eigenvalues.m_values, work.get(), &lwork,
               &info);
    if (info < 0)
        KVOSrvMtxSolveIllegalArg(-info).Throw(kSource, __LINE__);
    if (info > n)
        KVOSrvMtxSolveNotPositive().Throw(kSource, __LINE__);
    if (info > 0)
        KVOSrvMtxSolveNotConverge().Throw(kSource, __LINE__);
}
