// Sums and multiples of KVOSrvBlaMatrix.

#include "DenseKernels.h"
#include "KVOSrvBlaMatrix.h"
#include "KVOSrvBlaMatrixSupport.h"

#include <algorithm>

using KVOSrvBlaMatrixSupport::RequirePrecondition;

// The rows of a column that a structured matrix is computed on, those of the stored triangle; of a general one all.
KVOSrvBlaMatrix::Rows KVOSrvBlaMatrix::StoredRows(int column) const noexcept
{
    if (!IsStructured())
        return {0, m_dim1};
    return m_lowerStored ? Rows{column, m_dim1} : Rows{0, std::min(column + 1, m_dim1)};
}

void KVOSrvBlaMatrix::Multiply(double alpha)
{
    if (alpha == 1.0)
        return;
    for (int j = 0; j < m_dim2; ++j) {
        double* const column = Element(0, j);
        Rows const rows = StoredRows(j);
        for (int i = rows.first; i < rows.end; ++i)
            column[i] *= alpha;
    }
    if (IsStructured())
        CompleteOtherTriangle();
}

void KVOSrvBlaMatrix::Add(double alpha, KVOSrvBlaMatrix const& rhs)
{
    RequirePrecondition((m_dim1 == rhs.m_dim1) && (m_dim2 == rhs.m_dim2), "(m_dim1 == rhs.m_dim1) && (m_dim2 == rhs.m_dim2)", 375);

    if (alpha == 0.0)
        return;
    for (int j = 0; j < m_dim2; ++j) {
        Rows const rows = StoredRows(j);
        DenseKernels::AddMultiple(alpha, rhs.Element(rows.first, j), rows.end - rows.first, Element(rows.first, j), 1);
    }
    if (IsStructured())
        CompleteOtherTriangle();
}

void KVOSrvBlaMatrix::CompleteOtherTriangle()
{
    using namespace DenseKernels;
    MirrorTriangle(std::min(m_dim1, m_dim2), m_lowerStored ? Triangle::Lower : Triangle::Upper, IsSkewSymmetric() ? Sign::Flip : Sign::Keep,
                   m_values, m_offset);
}
