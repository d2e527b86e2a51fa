#include "KVOSimContext.h"

#include "Context.h"
#include "Hdf5.h"
#include "Session.h"

KVOSimContext::KVOSimContext(KVOSimContextID const& id) : m_context(simdb::FindContext(id, "Cannot open a context")) {}

void KVOSimContext::Open()
{
    m_context->OpenSession("Cannot open a context");
}

void KVOSimContext::Open(KVOSimTypeSchemaSnapshot const&)
{
    Open();
}

char const* KVOSimContext::Path() const noexcept
{
    return m_context->Path().c_str();
}

KVOSimContextID KVOSimContext::ID() const
{
    return m_context->ID();
}

KVOSimTypeSchemaSnapshot KVOSimContext::Schema() const
{
    return KVOSimTypeSchemaSnapshot(m_context->ID());
}

KVOSimCollectionID KVOSimContext::CreateCollection(int members, int type)
{
    return m_context->CreateCollection(members, type);
}

KVOSimDistributionID KVOSimContext::CreateDistribution(KVOSimGrid const& grid, KVOSimRangeType const& rangeType, std::int64_t mask)
{
    if (mask != -1)
        simdb::ThrowReason("Cannot create a distribution in the database", m_context->Path(),
                           "the only mask that exists is -1, all of the grid");
    return m_context->CreateDistribution(grid, rangeType.Key(), -1, false);
}

KVOSimDistributionID KVOSimContext::CreateTempDistribution(KVOSimGrid const& grid, KVOSimRangeType const& rangeType,
                                                           KVOSimTypeID const& type)
{
    return m_context->CreateDistribution(grid, rangeType.Key(), type.Index(), true);
}

KVOSimArray<KVOSimDistributionID> KVOSimContext::QueryDistributions() const
{
    m_context->OpenSession("Cannot list distributions");
    KVOSimArray<KVOSimDistributionID> distributions;
    for (int const index : m_context->StoredDistributions())
        distributions.Append(KVOSimDistributionID(m_context->ID(), index));
    return distributions;
}

KVOSimDistributionID KVOSimContext::Find(char const* title) const
{
    return m_context->Find(title != nullptr ? title : "", "Cannot find a matrix by its title");
}
