#include "Session.h"

#include "Context.h"
#include "Crc32c.h"
#include "FileAccess.h"
#include "Hdf5.h"
#include "Label.h"
#include "ProcessMutex.h"
#include "SimJournal.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <utility>

#include <unistd.h>

namespace simdb
{

namespace
{

constexpr char const* kOpening = "Cannot open the database";
constexpr char const* kCreating = "Cannot create the database";
constexpr char const* kCommitting = "Cannot commit to the database";
constexpr char const* kFormat = "KVOSim";
constexpr std::int32_t kVersion = 2;

/// The open databases by their serial numbers; of all threads.
class Registry
{
public:
    static void Add(std::uint64_t serial, std::weak_ptr<Session> session)
    {
        std::scoped_lock const lock(Mutex());
        Sessions().emplace(serial, std::move(session));
    }
    static void Remove(std::uint64_t serial) noexcept
    {
        std::scoped_lock const lock(Mutex());
        Sessions().erase(serial);
    }
    static std::shared_ptr<Session> Find(std::uint64_t serial) noexcept
    {
        std::scoped_lock const lock(Mutex());
        auto const found = Sessions().find(serial);
        return found != Sessions().end() ? found->second.lock() : nullptr;
    }

private:
    static std::mutex& Mutex() noexcept { return ProcessMutex<Registry>::Get(); }
    // Never destroyed: databases in objects of static storage duration may be closed after everything else.
    static std::map<std::uint64_t, std::weak_ptr<Session>>& Sessions()
    {
        static auto& s_sessions = *new std::map<std::uint64_t, std::weak_ptr<Session>>;
        return s_sessions;
    }
};

std::uint64_t NextSerial() noexcept
{
    static constinit std::atomic<std::uint64_t> s_last{0};
    return s_last.fetch_add(1, std::memory_order_relaxed) + 1;
}

Hid FormatType(char const* doing, std::string const& path)
{
    Hid type(Checked(H5Tcopy(H5T_C_S1), doing, path));
    if (H5Tset_size(type, std::strlen(kFormat)) < 0 || H5Tset_strpad(type, H5T_STR_NULLPAD) < 0)
        ThrowHdf5(doing, path);
    return type;
}

// Of what the mark keeps for life: a program that writes the file anew, as h5repack, gives everything another place and leaves no mark.
std::uint32_t IdentityOf(File const& file)
{
    constexpr std::size_t kMagicBytes = 8, kRandomBytes = 8;
    FileMark mark;
    file.ReadMetadata(mark.offset, mark.bytes.data(), mark.bytes.size());
    return mark.IsMark() ? std::max(Crc32c(mark.bytes.data() + kMagicBytes, kRandomBytes), 1u) : 0;
}

} // namespace

Session::Session(std::shared_ptr<File> file, std::string const& path)
    : m_serial(NextSerial()), m_path(path), m_file(std::move(file)), m_access(std::make_shared<FileAccess>(m_file)), m_titles(*m_file),
      m_version(kVersion)
{
}

Session::~Session()
{
    Detach();
}

void Session::Register()
{
    Registry::Add(m_serial, weak_from_this());
}

std::shared_ptr<Session> Session::Find(std::uint64_t serial) noexcept
{
    return Registry::Find(serial);
}

std::shared_ptr<Session> Session::Create(std::string const& path, File::Kind kind)
{
    std::shared_ptr<File> file = File::Create(path, kind);
    try {
        std::shared_ptr<Session> const session(new Session(std::move(file), path));
        if (!session->IsScratch()) {
            // At once, so that the file is a database from now on, whatever becomes of the process.
            session->WriteHeader();
            session->m_file->Commit();
            session->m_identity = IdentityOf(*session->m_file);
        }
        session->Register();
        return session;
    } catch (...) { // the session has let go of the file by now
        file.reset();
        unlink(path.c_str());
        throw;
    }
}

std::shared_ptr<Session> Session::Open(std::string const& path, bool readOnly)
{
    std::shared_ptr<Session> const session(new Session(File::Open(path, readOnly), path));
    session->LoadContexts();
    session->Register();
    return session;
}

void Session::WriteHeader()
{
    Hdf5Guard const guard;
    Hid const type = FormatType(kCreating, m_path);
    std::int32_t const contexts = ContextCount();
    WriteAttribute(m_file->Hdf5(), "format", type, kFormat, m_path);
    WriteAttribute(m_file->Hdf5(), "format_version", H5T_STD_I32LE, &m_version, m_path);
    WriteAttribute(m_file->Hdf5(), "contexts", H5T_STD_I32LE, &contexts, m_path);
    m_contextsInFile = contexts;
}

// The number of contexts.
int Session::ReadHeader()
{
    Hdf5Guard const guard;
    Hid const type = FormatType(kOpening, m_path);
    std::string format(std::strlen(kFormat), '\0');
    std::int32_t contexts = 0;
    if (!ReadAttribute(m_file->Hdf5(), "format", type, format.data()) || format != kFormat ||
        !ReadAttribute(m_file->Hdf5(), "format_version", H5T_NATIVE_INT32, &m_version))
        ThrowReason(KVOSimException::Kind::Foreign, kOpening, m_path, "it is an HDF5 file, but no simulation database");
    if (m_version < 1 || m_version > kVersion)
        ThrowReason(KVOSimException::Kind::Foreign, kOpening, m_path,
                    "its format version is " + std::to_string(m_version) + ", this program knows 1 to " + std::to_string(kVersion));
    if (!ReadAttribute(m_file->Hdf5(), "contexts", H5T_NATIVE_INT32, &contexts) || contexts < 0)
        ThrowReason(KVOSimException::Kind::Damaged, kOpening, m_path,
                    "the number of its contexts is missing or negative: the file is damaged");
    return contexts;
}

void Session::LoadContexts()
{
    m_contextsInFile = ReadHeader();
    m_identity = IdentityOf(*m_file);
    for (int index = 0; index < m_contextsInFile; ++index) {
        m_contexts.push_back(std::make_shared<Context>(*this, index));
        m_contexts.back()->Load();
    }
}

void Session::RequireWritable(char const* doing) const
{
    m_file->RequireWritable(doing);
}

std::shared_ptr<Context> Session::CreateContext()
{
    RequireWritable("Cannot create a context in the database");
    m_contexts.push_back(std::make_shared<Context>(*this, ContextCount()));
    return m_contexts.back();
}

std::shared_ptr<Context> Session::ContextAt(int index) const noexcept
{
    return index >= 0 && index < ContextCount() ? m_contexts[static_cast<std::size_t>(index)] : nullptr;
}

Owner Session::BeginTransaction()
{
    m_transactions.push_back(m_lastTransaction + 1);
    return ++m_lastTransaction;
}

void Session::Commit(Owner owner)
{
    RequireWritable(kCommitting);
    Keep(owner);
}

void Session::Keep(Owner owner)
{
    try {
        for (auto const& context : m_contexts)
            context->Stage(owner);
        if (!IsScratch()) {
            for (auto const& context : m_contexts)
                context->Write();
            if (m_contextsInFile != ContextCount())
                WriteHeader();
            m_file->Commit();
        }
    } catch (...) {
        for (auto const& context : m_contexts)
            context->Withdraw();
        throw;
    }
    for (auto const& context : m_contexts)
        context->Accept();
}

void Session::EndTransaction(Owner owner)
{
    for (auto const& context : m_contexts)
        context->RollBack(owner);
    std::erase(m_transactions, owner);
}

void Session::Close()
{
    std::shared_ptr<Session> const self = shared_from_this(); // the owner may let go meanwhile
    if (m_file == nullptr)
        return;
    try {
        while (!m_transactions.empty())
            EndTransaction(m_transactions.back());
        if (m_file->IsWritable())
            Keep(kNoOwner);
    } catch (...) {
        Detach();
        throw;
    }
    for (auto const& context : m_contexts)
        context->Detach();
    Registry::Remove(m_serial);
    m_access.reset();
    std::exchange(m_file, nullptr)->Close();
}

// The file closes itself, without a commit, when the last of its drawers is gone.
void Session::Detach() noexcept
{
    Registry::Remove(m_serial);
    for (auto const& context : m_contexts)
        context->Detach();
    m_contexts.clear();
    m_access.reset();
    m_file.reset();
}

std::uint64_t Session::GrantCache(std::uint64_t wish, std::uint64_t held) noexcept
{
    m_cacheGranted -= held;
    std::uint64_t const granted = std::min({wish, CacheBytesLimit(), 2 * CacheBytesLimit() - m_cacheGranted});
    m_cacheGranted += granted;
    return granted;
}

std::shared_ptr<Context> FindContext(KVOSimContextID const& id, char const* doing)
{
    if (id.IsNull())
        ThrowReason(doing, "", "the identifier is null");
    std::shared_ptr<Session> const session = Session::Find(id.Database());
    if (session == nullptr)
        ThrowReason(doing, "", "the identifier's database is not open any more");
    std::shared_ptr<Context> context = session->ContextAt(id.Index());
    if (context == nullptr)
        ThrowReason(doing, session->Path(), "there is no context " + std::to_string(id.Index()));
    return context;
}

} // namespace simdb
