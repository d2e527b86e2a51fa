#include "KVOSimCSet.h"

#include "Context.h"
#include "Session.h"

namespace
{

constexpr char const* kUsing = "Cannot use a set";

} // namespace

KVOSimCSet::KVOSimCSet(KVOSimCSetID const& id) : m_context(simdb::FindContext(id.ContextID(), kUsing)), m_id(id)
{
    m_context->SetOf(id, kUsing);
}

int KVOSimCSet::Size() const
{
    return static_cast<int>(m_context->SetOf(m_id, kUsing)->size);
}

KVOSimArray<int> KVOSimCSet::OrderedMembers() const
{
    return KVOSimArray<int>(*m_context->NumbersOf(*m_context->SetOf(m_id, kUsing)));
}
