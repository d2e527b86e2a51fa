#pragma once

#include "KVOExport.h"
#include "KVOSimContext.h"

/// A place where distributions are made: a context.
class KVO_EXPORT KVOSimPosition
{
public:
    /// @param context  where the distributions will lie
    explicit KVOSimPosition(KVOSimContext const& context) : m_context(context) {}

    /// The context.
    KVOSimContext& Context() noexcept { return m_context; }

    /// KVOSimContext::CreateDistribution() over all of the grid.
    KVOSimDistributionID CreateDistribution(KVOSimGrid const& grid, KVOSimRangeType const& rangeType);
    /// @param typeIndex  a number of the caller's, 0 or greater, kept with the distribution
    KVOSimDistributionID CreateTypedDistribution(int typeIndex, KVOSimGrid const& grid, //
                                                 KVOSimRangeType const& rangeType);

private:
    KVOSimContext m_context;
};
