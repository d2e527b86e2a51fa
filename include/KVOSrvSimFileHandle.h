#pragma once

#include "KVOExport.h"
#include "KVOSimIdentifiers.h"
#include "cow_String.h"
#include "mem_Allocator.h"

#include <cstdint>
#include <memory>

class KVOSrvSimFileHandleRepr;

/// A counted hold on a database file of one's own: a scratch file, closed and removed when the last copy of the handle
/// goes.
///
/// The count is not atomic: copies stay within one thread.
class KVO_EXPORT KVOSrvSimFileHandle
{
public:
    /// Not associated with a database.
    KVOSrvSimFileHandle();
    /// Shares the database.
    KVOSrvSimFileHandle(KVOSrvSimFileHandle const& other) noexcept;
    /// Shares the database of `other`; the one held so far is closed and removed if this was its last handle.
    KVOSrvSimFileHandle& operator=(KVOSrvSimFileHandle const& other) noexcept;
    ~KVOSrvSimFileHandle();

    /// Makes a scratch database at `path`, which must not exist, with one context. Copies of this handle stay without
    /// it.
    /// A handle that has a database is a broken program: the assertion stop in mtx/impl/KVOSrvSimFileHandle, line 16.
    /// @throws KVOSimException when the file cannot be made; the handle is as it was, and nothing is left of the file
    void Associate(cow_String const& path);

    /// The context of the database. Without a database: the assertion stop in mtx/impl/KVOSrvSimFileHandle, line 22.
    KVOSimContextID ContextID() const;

private:
    void Hold(std::unique_ptr<KVOSrvSimFileHandleRepr> repr);
    void Release() noexcept;

    // 1. Handles that share a count share the representation. 2. The last of them frees both.
    std::int32_t* m_useCount;
    KVOSrvSimFileHandleRepr* m_repr = nullptr;
};
