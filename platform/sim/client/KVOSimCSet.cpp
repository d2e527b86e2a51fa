#include "KVOSimCSet.h"

#include "Context.h"
#include "Hdf5.h"
#include "Session.h"

#include <span>

namespace
{

constexpr char const* kUsing = "Cannot use a set";

} // namespace

KVOSimCSet::KVOSimCSet(KVOSimCSetID const& id)
    : m_context(simdb::FindContext(id.ContextID(), kUsing)), m_set(m_context->SetOf(id, kUsing)), m_id(id)
{
}

int KVOSimCSet::Size() const
{
    return static_cast<int>(m_context->SetOf(m_id, kUsing)->size);
}

KVOSimCSet KVOSimCSet::Part(int first, int count) const
{
    auto const numbers = m_context->NumbersOf(*m_context->SetOf(m_id, kUsing));
    if (first < 0 || count < 0 || static_cast<std::size_t>(first) + static_cast<std::size_t>(count) > numbers->size())
        simdb::ThrowReason(kUsing, m_context->Path(), "a part leaves it");
    auto const part = m_context->CreateSet(m_id.CollectionID(),
                                           std::span(*numbers).subspan(static_cast<std::size_t>(first), static_cast<std::size_t>(count)),
                                           simdb::Context::SetLife::WhileHeld, kUsing);
    return KVOSimCSet(m_context->IDOf(*part, m_id.CollectionID().Color()));
}

KVOSimArray<int> KVOSimCSet::OrderedMembers() const
{
    return KVOSimArray<int>(*m_context->NumbersOf(*m_context->SetOf(m_id, kUsing)));
}
