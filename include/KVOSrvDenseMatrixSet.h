#pragma once

#include "KVOExport.h"
#include "mem_Allocator.h"

class KVOSrvDenseMatrix;
class KVOSrvMatrix;

/// Database matrices of equal rows, side by side, as one operand S = [M1 M2 ... Mk] of the product S^T B. The matrices
/// are neither copied nor owned.
///
/// The rows and their blocks are those of the first member. Each product reads every member and B once, some block rows
/// at a time, which together with the same rows of B are all that is held in memory: about as much as one block column
/// of a member.
class KVO_EXPORT KVOSrvDenseMatrixSet : public mem_AllocationOperators
{
public:
    /// @param members  `count` matrices; they and the array belong to the caller and outlive the set, their sizes as
    ///                 they are now. Null, or a count below 1, gives a set that must not be multiplied
    KVOSrvDenseMatrixSet(KVOSrvDenseMatrix const** members, int count);
    KVOSrvDenseMatrixSet(KVOSrvDenseMatrixSet const&) = delete;
    KVOSrvDenseMatrixSet& operator=(KVOSrvDenseMatrixSet const&) = delete;
    virtual ~KVOSrvDenseMatrixSet();

    /// C := S^T B into a stored matrix of the rows that S has columns; its columns behind those of B stay. The product
    /// is formed in memory by the operation below, so C may be a member or B; under a limit (KVOSrvProductMemory) it is
    /// formed tile by tile, in a scratch matrix where C is one of them.
    /// @param symmetric  as below
    /// @throws KVOSrvMtxIllegalInput "TransposeMultiply" as below, or if C is null or has other sizes
    virtual void TransposeMultiply(KVOSrvDenseMatrix const* B, KVOSrvDenseMatrix* C, int symmetric) const;
    /// C := S^T B.
    /// @param C          full, of the sum of the members' columns x B's columns
    /// @param symmetric  not 0: the result is known to be symmetric; half of it is computed and mirrored
    /// @throws KVOSrvMtxIllegalInput "TransposeMultiply" if the set is empty, B is null, or C has other sizes,
    ///         KVOSrvMtxInvalidGetRange if B or a member has fewer rows than the first member; nothing is changed then
    /// @throws KVOSimException if the database fails; C holds the sum over some of the rows then
    virtual void TransposeMultiply(KVOSrvDenseMatrix const* B, KVOSrvMatrix& C, int symmetric) const;

private:
    bool FitsMembers() const;
    void RequireRows(KVOSrvDenseMatrix const& B) const;

    KVOSrvDenseMatrix const** m_members;
    int m_numMembers;
    int m_numRows = 0;
    int m_numColumns = 0;
    int m_numRowBlocks = 0;
    int m_maxColumnsInBlock = 0;
    int m_maxRowsInBlock = 0;
};
