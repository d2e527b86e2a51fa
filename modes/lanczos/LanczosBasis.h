#pragma once

#include "KVOSrvMatrix.h"
#include "KVOSrvScratchDenseMatrix.h"

#include <memory>

/// The columns of a growing basis V of order n, out of core.
class LanczosBasis
{
public:
    /// @param capacity  columns that it may hold
    LanczosBasis(int order, int capacity, int blockColumns);

    int Columns() const noexcept { return m_columns; }
    int Capacity() const { return m_values->NumberOfColumns(); }
    void Append(KVOSrvMatrix const& block);
    void Read(int first, KVOSrvMatrix& columns) const;
    /// coefficients += V^T block
    void Project(KVOSrvMatrix const& block, KVOSrvMatrix& coefficients) const;
    /// block -= V coefficients
    void Subtract(KVOSrvMatrix const& coefficients, KVOSrvMatrix& block) const;
    /// block = V combinations
    void Combine(KVOSrvMatrix const& combinations, KVOSrvMatrix& block) const;
    /// V := V combinations
    void Rotate(KVOSrvMatrix const& combinations);
    /// Room for more columns; what there is stays.
    void Reserve(int capacity);

private:
    std::unique_ptr<KVOSrvScratchDenseMatrix> Held() const;

    int m_blockColumns;
    int m_columns = 0;
    std::unique_ptr<KVOSrvScratchDenseMatrix> m_values;
};
