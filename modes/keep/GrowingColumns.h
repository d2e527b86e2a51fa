#pragma once

#include "KVOSimIdentifiers.h"
#include "KVOSrvMatrix.h"

#include <memory>

class KVOSimContext;
class KVOSrvDenseMatrix;

/// A stored matrix to which columns are added.
class GrowingColumns
{
public:
    /// Makes one of a few columns. @param type  kept with the distribution
    GrowingColumns(KVOSimContext& context, int type, int rows);
    explicit GrowingColumns(KVOSimDistributionID const& distribution);
    GrowingColumns(GrowingColumns&&) noexcept;
    GrowingColumns& operator=(GrowingColumns&&) noexcept;
    ~GrowingColumns();

    int Rows() const noexcept;
    int Columns() const noexcept;
    /// Writes columns from `first` on; there is room for them then.
    void Write(int first, KVOSrvMatrix const& columns);
    void Read(int first, KVOSrvMatrix& columns) const;

private:
    std::unique_ptr<KVOSrvDenseMatrix> m_matrix;
};
