#include "KVOSimCollection.h"

#include "Context.h"
#include "Hdf5.h"
#include "Session.h"

#include <span>

namespace
{

constexpr char const* kUsing = "Cannot use a collection";
constexpr char const* kCreating = "Cannot create a set in the database";

std::span<int const> CheckedNumbers(simdb::Context const& context, int const* numbers, int count)
{
    if (count < 0 || (count > 0 && numbers == nullptr))
        simdb::ThrowReason(kCreating, context.Path(), "the number of its members is negative, or their list is missing");
    return {numbers, static_cast<std::size_t>(count)};
}

} // namespace

KVOSimCollection::KVOSimCollection(KVOSimCollectionID const& id) : m_context(simdb::FindContext(id.ContextID(), kUsing)), m_id(id)
{
    m_context->CollectionOf(id, kUsing);
}

int KVOSimCollection::NumberOfMembers() const
{
    return m_context->CollectionOf(m_id, kUsing).members;
}

KVOSimCSetID KVOSimCollection::BiggestCSetID() const
{
    m_context->CollectionOf(m_id, kUsing);
    return KVOSimCSetID(m_id, simdb::kBiggestSet);
}

KVOSimCSetID KVOSimCollection::CreateOrderedCSet(int const* numbers, int count)
{
    return m_context->IDOf(
        *m_context->CreateSet(m_id, CheckedNumbers(*m_context, numbers, count), simdb::Context::SetLife::Stored, kCreating), m_id.Color());
}

KVOSimCSetID KVOSimCollection::CreateTempOrderedCSet(int const* numbers, int count)
{
    return m_context->IDOf(
        *m_context->CreateSet(m_id, CheckedNumbers(*m_context, numbers, count), simdb::Context::SetLife::Temporary, kCreating),
        m_id.Color());
}

KVOSimCollectionID KVOSimCollection::CreateColorVariant(int color)
{
    KVOSimCollectionID variant = m_id;
    variant.SetColor(color);
    m_context->CollectionOf(variant, "Cannot create a colour variant of a collection of the database");
    return variant;
}
