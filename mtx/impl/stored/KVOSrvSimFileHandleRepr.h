#pragma once

#include "KVOSimDatabase.h"
#include "cow_String.h"
#include "mem_Allocator.h"

#include <memory>
#include <sys/types.h>

/// A scratch database and its file, which live as long as this object.
class KVOSrvSimFileHandleRepr : public mem_AllocationOperators
{
public:
    /// @throws KVOSimException when the file exists or cannot be made; nothing of ours is left then
    explicit KVOSrvSimFileHandleRepr(cow_String const& fileName);
    KVOSrvSimFileHandleRepr(KVOSrvSimFileHandleRepr const&) = delete;
    KVOSrvSimFileHandleRepr& operator=(KVOSrvSimFileHandleRepr const&) = delete;
    ~KVOSrvSimFileHandleRepr();

    /// Null without a database.
    KVOSimContextID ContextID() const;

private:
    void CloseAndRemove() noexcept;

    std::unique_ptr<KVOSimDatabase> m_database;
    cow_String m_fileName;
    pid_t m_process; // a child of fork() leaves the file to its parent
};
