#include "KVOSimTransaction.h"

#include "Context.h"
#include "Hdf5.h"
#include "KVOBasException.h"
#include "Session.h"
#include "Transaction.h"

#include <exception>
#include <utility>

namespace
{

constexpr char const* kBeginning = "Cannot begin a transaction";

} // namespace

KVOSimTransaction::KVOSimTransaction(KVOSimContext& context) : m_transaction(std::make_unique<simdb::Transaction>())
{
    simdb::Session& session = context.m_context->OpenSession(kBeginning);
    m_transaction->session = session.weak_from_this();
    m_transaction->owner = session.BeginTransaction();
}

// Dropping needs the memory of what was made only; what HDF5 may refuse meanwhile leaves nothing that a reader would see.
KVOSimTransaction::~KVOSimTransaction()
{
    try {
        if (auto const session = m_transaction->session.lock(); session != nullptr && session->IsOpen())
            End(*session);
    } catch (KVOBasException const&) {
    } catch (std::exception const&) {
    }
}

void KVOSimTransaction::Commit()
{
    auto const session = m_transaction->session.lock();
    if (session == nullptr || !session->IsOpen())
        simdb::ThrowReason("Cannot commit a transaction", "", "its database was closed");
    session->Commit(m_transaction->owner);
    End(*session);
}

void KVOSimTransaction::End(simdb::Session& session)
{
    if (m_transaction->owner != simdb::kNoOwner)
        session.EndTransaction(std::exchange(m_transaction->owner, simdb::kNoOwner));
}
