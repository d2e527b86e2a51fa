#include "KVOSrvSimFileHandle.h"

#include "KVOBasUtlFilePath.h"
#include "KVOSimAssert.h"
#include "KVOSimContext.h"
#include "KVOSrvSimFileHandleRepr.h"

#include <unistd.h>
#include <utility>

KVOSrvSimFileHandleRepr::KVOSrvSimFileHandleRepr(cow_String const& fileName) : m_fileName(fileName), m_process(getpid())
{
    auto database = std::make_unique<KVOSimDatabase>();
    database->SetScratch();
    database->CreateFile(DRXUnicodeString(m_fileName.c_str()), 0);
    m_database = std::move(database); // from here on the file is ours
    try {
        KVOSimContext context(m_database->CreateContext());
        context.Open();
    } catch (...) {
        CloseAndRemove();
        throw;
    }
}

KVOSrvSimFileHandleRepr::~KVOSrvSimFileHandleRepr()
{
    CloseAndRemove();
}

KVOSimContextID KVOSrvSimFileHandleRepr::ContextID() const
{
    return m_database != nullptr ? m_database->ContextID() : KVOSimContextID();
}

void KVOSrvSimFileHandleRepr::CloseAndRemove() noexcept
{
    if (m_database == nullptr)
        return;
    // The name goes while the file is still locked: so it cannot become that of somebody else's file before.
    KVOBasUtlFilePath const file(m_fileName);
    if (m_process == getpid() && file.Exists())
        file.Remove();
    m_database.reset(); // closes; what a scratch file fails to keep is not needed any more
}

KVOSrvSimFileHandle::KVOSrvSimFileHandle() : m_useCount(static_cast<std::int32_t*>(mem_OperatorNewThrow(sizeof(std::int32_t))))
{
    *m_useCount = 1;
}

KVOSrvSimFileHandle::KVOSrvSimFileHandle(KVOSrvSimFileHandle const& other) noexcept : m_useCount(other.m_useCount), m_repr(other.m_repr)
{
    ++*m_useCount;
}

KVOSrvSimFileHandle& KVOSrvSimFileHandle::operator=(KVOSrvSimFileHandle const& other) noexcept
{
    ++*other.m_useCount; // first: it may be our own
    Release();
    m_useCount = other.m_useCount;
    m_repr = other.m_repr;
    return *this;
}

KVOSrvSimFileHandle::~KVOSrvSimFileHandle()
{
    Release();
}

void KVOSrvSimFileHandle::Associate(cow_String const& path)
{
    if (m_repr != nullptr)
        KVOSimAssert::ReportValidationFailure("pointer.IsNull() && \"File Handle already associated with a SIM database.\"",
                                              "mtx/impl/KVOSrvSimFileHandle", 16);
    Hold(std::make_unique<KVOSrvSimFileHandleRepr>(path));
}

KVOSimContextID KVOSrvSimFileHandle::ContextID() const
{
    if (m_repr == nullptr)
        KVOSimAssert::ReportValidationFailure("pointer.HasValue() && \"File Handle is not associated with a SIM database.\"",
                                              "mtx/impl/KVOSrvSimFileHandle", 22);
    return m_repr->ContextID();
}

// Other holders keep what they share.
void KVOSrvSimFileHandle::Hold(std::unique_ptr<KVOSrvSimFileHandleRepr> repr)
{
    KVOSrvSimFileHandle fresh;
    fresh.m_repr = repr.release();
    std::swap(m_useCount, fresh.m_useCount);
    std::swap(m_repr, fresh.m_repr);
}

void KVOSrvSimFileHandle::Release() noexcept
{
    if (--*m_useCount != 0)
        return;
    delete m_repr;
    mem_Free(m_useCount);
}
