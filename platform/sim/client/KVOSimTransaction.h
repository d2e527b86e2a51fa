#pragma once

#include "KVOExport.h"
#include "KVOSimContext.h"

#include <memory>

namespace simdb
{
class Session;
struct Transaction;
} // namespace simdb

/// What is created in the context's database from the construction on (collections, sets, distributions, extensions)
/// disappears with this object unless it was committed. Values written to matrices that existed before are not taken
/// back.
class KVO_EXPORT KVOSimTransaction
{
public:
    /// Begins. @throws KVOSimException when the database was closed
    explicit KVOSimTransaction(KVOSimContext& context);
    KVOSimTransaction(KVOSimTransaction const&) = delete;
    KVOSimTransaction& operator=(KVOSimTransaction const&) = delete;
    ~KVOSimTransaction();

    /// Keeps what was created. When it returns, that is on the disk, with all values written before (scratch databases:
    /// no promise). The transaction is over then: what is created later is kept as if this object were gone; a second
    /// call brings that to the disk, too.
    /// @throws KVOSimException when that fails; nothing is lost in memory then, and the transaction goes on. Also in a
    /// child that fork() made: only the process that opened a database writes it
    void Commit();

private:
    void End(simdb::Session& session);

    std::unique_ptr<simdb::Transaction> m_transaction;
};
