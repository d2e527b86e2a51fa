#pragma once

#include "KVOExport.h"
#include "KVOSimContext.h"

#include <memory>

namespace simdb
{
struct Transaction;
}

/// What is created in the context's database from the construction on (collections, sets, distributions, extensions) disappears with
/// this object unless it was committed. Values written to matrices that existed before are not taken back.
class KVO_EXPORT KVOSimTransaction
{
public:
    explicit KVOSimTransaction(KVOSimContext& context);
    KVOSimTransaction(KVOSimTransaction const&) = delete;
    KVOSimTransaction& operator=(KVOSimTransaction const&) = delete;
    ~KVOSimTransaction();

    /// Keeps what was created. When it returns, that is on the disk, with all values written before (scratch databases: no promise).
    /// A second call commits what was created since. @throws KVOSimException when that fails; nothing is lost in memory then
    void Commit();

private:
    std::unique_ptr<simdb::Transaction> m_transaction;
};
