#include "KVOSimDatabase.h"

#include "Context.h"
#include "DatabaseCheck.h"
#include "Hdf5.h"
#include "KVOBasException.h"
#include "KVOBasLeftover.h"
#include "ScratchMark.h"
#include "Session.h"

#include <exception>
#include <string>

namespace
{

constexpr char const* kCreating = "Cannot create the database";
constexpr char const* kOpening = "Cannot open the database";

std::string CheckedPath(DRXUnicodeString const& path, bool isOpen, char const* doing)
{
    if (isOpen)
        simdb::ThrowReason(doing, path.Utf8(), "this object has a database open already");
    if (path.IsEmpty())
        simdb::ThrowReason(doing, "", "its path is empty");
    return path.Utf8();
}

} // namespace

KVOSimDatabase::KVOSimDatabase() noexcept = default;

KVOSimDatabase::~KVOSimDatabase()
{
    try {
        Close();
    } catch (KVOBasException const&) { // see the declaration
    } catch (std::exception const&) {
    }
}

void KVOSimDatabase::RemoveLeftScratch(int directory, char const* name) noexcept
{
    KVOBasUnusedFile file(directory, name);
    if (file.IsHeld() && simdb::scratch_mark::IsLeftBehind(file.Descriptor()))
        file.Remove();
}

void KVOSimDatabase::CreateFile(DRXUnicodeString const& path, int flags)
{
    std::string const name = CheckedPath(path, IsOpen(), kCreating);
    if (flags != 0)
        simdb::ThrowReason(kCreating, name, "the only flags that exist are 0");
    m_session = simdb::Session::Create(name, m_scratch ? simdb::File::Kind::Scratch : simdb::File::Kind::Persistent);
}

void KVOSimDatabase::OpenFile(DRXUnicodeString const& path, bool readOnly)
{
    m_session = simdb::Session::Open(CheckedPath(path, IsOpen(), kOpening), readOnly);
}

void KVOSimDatabase::Close()
{
    if (std::shared_ptr<simdb::Session> const session = std::move(m_session))
        session->Close();
}

bool KVOSimDatabase::IsOpen() const noexcept
{
    return m_session != nullptr;
}

KVOSimContextID KVOSimDatabase::CreateContext()
{
    if (m_session == nullptr)
        simdb::ThrowReason("Cannot create a context", "", "no database is open");
    return m_session->CreateContext()->ID();
}

KVOSimContextID KVOSimDatabase::ContextID() const
{
    std::shared_ptr<simdb::Context> const context = m_session != nullptr ? m_session->ContextAt(0) : nullptr;
    return context != nullptr ? context->ID() : KVOSimContextID();
}

KVOSimArray<KVOSimContextID> KVOSimDatabase::QueryContexts() const
{
    KVOSimArray<KVOSimContextID> contexts;
    for (int index = 0; m_session != nullptr && index < m_session->ContextCount(); ++index)
        contexts.Append(m_session->ContextAt(index)->ID());
    return contexts;
}

KVOSimCheckReport KVOSimDatabase::Check() const
{
    constexpr char const* kChecking = "Cannot check the database";
    if (m_session == nullptr)
        simdb::ThrowReason(KVOSimException::Kind::Misuse, kChecking, "", "no database is open");
    if (!m_session->GetFile()->IsReadOnly())
        simdb::ThrowReason(KVOSimException::Kind::Misuse, kChecking, m_session->Path(), "it is open for writing");
    return simdb::CheckDatabase(*m_session);
}
