#include "KVOSimPosition.h"

#include "Context.h"
#include "Hdf5.h"

KVOSimDistributionID KVOSimPosition::CreateDistribution(KVOSimGrid const& grid, KVOSimRangeType const& rangeType)
{
    return m_context.CreateDistribution(grid, rangeType, -1);
}

KVOSimDistributionID KVOSimPosition::CreateTypedDistribution(int typeIndex, KVOSimGrid const& grid, KVOSimRangeType const& rangeType)
{
    if (typeIndex < 0)
        simdb::ThrowReason("Cannot create a distribution in the database", m_context.m_context->Path(), "its type is negative");
    return m_context.m_context->CreateDistribution(grid, rangeType.Key(), typeIndex, false);
}
