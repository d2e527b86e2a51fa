// Database files: opening and closing, transactions, what is in them.

#include "Database.h"

#include "KVOSimCheck.h"
#include "KVOSimCollection.h"
#include "KVOSimPosition.h"
#include "KVOSimTransfer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr char kJournal[] = ".journal";

[[noreturn]] void Fail(char const* doing, std::string const& path, int error)
{
    KVOSimException::Kind const kind = error == ENOENT                      ? KVOSimException::Kind::NotFound
                                       : error == EACCES || error == EPERM  ? KVOSimException::Kind::Denied
                                       : error == ENOSPC || error == EDQUOT ? KVOSimException::Kind::NoSpace
                                                                            : KVOSimException::Kind::System;
    KVOSimException(doing, path.c_str(), std::strerror(error), kind).Throw("python/module/Database", __LINE__);
}

// A new name of a file survives a power cut once its folder is on the disk. The file is complete with or without it.
void SyncFolderOf(std::string const& path)
{
    std::string const folder = std::filesystem::path(path).parent_path().string();
    int const directory = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        fsync(directory);
        close(directory);
    }
}

template<class T>
std::vector<T> Reversed(KVOSimArray<T> const& list)
{
    std::vector<T> result(list.begin(), list.end());
    std::reverse(result.begin(), result.end());
    return result;
}

} // namespace

void About::Tell(KVOSimDistributionID const& id) const
{
    if (!title.empty() || !unit.empty() || !description.empty())
        KVOSimDistribution(id).SetTitle(title.c_str(), unit.c_str(), description.c_str());
}

Database::Database(std::string path, bool create, bool readOnly) : m_path(std::move(path)), m_readOnly(readOnly)
{
    if (!create) {
        Open();
        return;
    }
    m_database.CreateFile(DRXUnicodeString(m_path.c_str()), 0);
    m_database.CreateContext();
    RememberContexts();
}

Database::~Database()
{
    m_transaction.reset();
    if (m_descriptor >= 0)
        close(m_descriptor);
}

void Database::Open()
{
    if (m_readOnly) // before the library opens it: a file that takes the name meanwhile is then found out
        m_descriptor = open(m_path.c_str(), O_RDONLY | O_CLOEXEC);
    m_database.OpenFile(DRXUnicodeString(m_path.c_str()), m_readOnly);
    RememberContexts();
}

void Database::RememberContexts()
{
    KVOSimArray<KVOSimContextID> const contexts = m_database.QueryContexts();
    m_contexts.assign(contexts.begin(), contexts.end());
    ++m_opened;
}

void Database::Close()
{
    m_transaction.reset();
    if (m_descriptor >= 0)
        close(std::exchange(m_descriptor, -1));
    m_database.Close();
}

void Database::CloseAndMoveTo(std::string const& path)
{
    Close();
    if (std::rename(m_path.c_str(), path.c_str()) != 0)
        Fail("Cannot give the database its name", path, errno);
    m_path = path;
    if (unlink((path + kJournal).c_str()) != 0 && errno != ENOENT)
        Fail("Cannot remove the journal of the file that was replaced", path + kJournal, errno);
    SyncFolderOf(path);
}

void Database::Reopen()
{
    Open();
}

void Database::Begin()
{
    KVOSimContext context = FirstContext();
    m_transaction = std::make_unique<KVOSimTransaction>(context);
}

void Database::Commit()
{
    if (m_transaction == nullptr)
        Begin(); // one that keeps what no transaction has made
    m_transaction->Commit();
    m_transaction.reset();
}

KVOSimContext Database::FirstContext() const
{
    return KVOSimContext(m_contexts.empty() ? KVOSimContextID() : m_contexts.front());
}

std::vector<Entry> Database::List() const
{
    std::vector<Entry> entries;
    for (KVOSimContextID const& context : m_contexts)
        for (KVOSimDistributionID const& id : KVOSimContext(context).QueryDistributions())
            entries.push_back(Describe({context.Index(), id.Index()}));
    return entries;
}

Entry Database::Describe(Place const& place) const
{
    KVOSimDistribution const distribution(IdOf(place));
    Entry entry;
    entry.place = place;
    entry.type = distribution.Type();
    entry.title = distribution.Title();
    entry.unit = distribution.Unit();
    entry.description = distribution.Description();
    KVOSimArray<KVOSimDrawer> drawers;
    distribution.QueryDrawers(drawers);
    if (drawers.IsEmpty())
        return entry;
    KVOSimDrawer const& drawer = drawers[0];
    entry.kind = drawer.kind;
    entry.typeKey = drawer.typeKey;
    // A sparse drawer has its rows in dimension 0.
    entry.shape = drawer.kind == KVOSimDenseDrawer ? Reversed(drawer.dimensionSizes)
                                                   : std::vector<int>(drawer.dimensionSizes.begin(), drawer.dimensionSizes.end());
    entry.chunks = Reversed(drawer.chunkSizes);
    entry.values = distribution.DataSizeItems(drawer.id, 0);
    return entry;
}

std::optional<Place> Database::Find(std::string const& title) const
{
    for (KVOSimContextID const& context : m_contexts)
        if (KVOSimDistributionID const id = KVOSimContext(context).Find(title.c_str()); !id.IsNull())
            return Place{context.Index(), id.Index()};
    return std::nullopt;
}

KVOSimDistributionID Database::IdOf(Place const& place) const
{
    for (KVOSimContextID const& context : m_contexts)
        if (context.Index() == place.context)
            return KVOSimDistributionID(context, place.distribution);
    return {};
}

Place Database::CreateDense(std::vector<std::int64_t> const& shape, int typeKey, std::optional<std::vector<int>> const& chunks,
                            About const& about, bool checksums)
{
    KVOSimContext context = FirstContext();
    KVOSimPosition position(context);
    KVOSimArray<KVOSimCSetID> sets;
    KVOSimArray<KVOSimCollectionID> collections;
    for (auto extent = shape.rbegin(); extent != shape.rend(); ++extent) {
        collections.Append(context.CreateCollection(static_cast<int>(*extent)));
        sets.Append(KVOSimCollection(collections[collections.Size() - 1]).BiggestCSetID());
    }
    KVOSimGrid const grid(collections);
    KVOSimRangeType const range(typeKey);
    KVOSimDistributionID const id =
        about.type < 0 ? position.CreateDistribution(grid, range) : position.CreateTypedDistribution(about.type, grid, range);
    about.Tell(id);
    KVOSimTransfer transfer{KVOSimDistribution(id)};
    transfer.SetWrite();
    if (chunks)
        transfer.SetMakeNewDrawerChunked(KVOSimArray<int>(std::vector<int>(chunks->rbegin(), chunks->rend())));
    else
        transfer.SetMakeNewDrawer();
    for (int d = 0; d < sets.Size(); ++d)
        transfer.SetDim(d, sets[d]);
    transfer.SetInitializationValue(0.0, typeKey);
    if (checksums)
        transfer.SetValueChecksums();
    transfer.CheckView();
    transfer.InitializePersistentDrawer();
    return {id.ContextID().Index(), id.Index()};
}

int Database::Descriptor() const
{
    struct stat ours, named;
    bool const same = m_descriptor >= 0 && fstat(m_descriptor, &ours) == 0 && stat(m_path.c_str(), &named) == 0 &&
                      ours.st_dev == named.st_dev && ours.st_ino == named.st_ino;
    return same ? m_descriptor : -1;
}

std::string Database::Check() const
{
    std::string found;
    for (KVOSimDamage const& damage : m_database.Check().damages)
        found += std::string(damage.what.Utf8()) + "\n";
    return found;
}
