#include "SimPersistence.h"

#include "Hdf5.h"
#include "SimIo.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace simdb
{

namespace
{

constexpr char const* kOpening = "Cannot open the database";
constexpr char const* kCreating = "Cannot create the database";

struct stat StatusOf(int descriptor, std::string const& path)
{
    struct stat status;
    if (fstat(descriptor, &status) != 0)
        ThrowErrno("Cannot look at the database", path, errno);
    return status;
}

// Joins pieces that touch into writes of about a MiB.
class Gathered
{
public:
    explicit Gathered(int descriptor) : m_descriptor(descriptor) {}

    int Add(std::uint64_t address, std::span<std::byte const> bytes)
    {
        constexpr std::size_t kEnough = std::size_t{1} << 20;
        if (address != m_address + m_bytes.size() || m_bytes.size() >= kEnough) {
            if (int const error = Write())
                return error;
            m_address = address;
        }
        m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
        return 0;
    }
    int Write()
    {
        int const error = m_bytes.empty() ? 0 : io::Write(m_descriptor, m_bytes.data(), m_bytes.size(), m_address);
        m_bytes.clear();
        return error;
    }

private:
    int m_descriptor;
    std::uint64_t m_address = 0;
    std::vector<std::byte> m_bytes;
};

} // namespace

Persistence::Persistence(std::string path, std::string const& realPath, std::shared_ptr<DriverFile> file)
    : m_path(std::move(path)), m_file(std::move(file)), m_journal(realPath + ".journal", StatusOf(m_file->Number(), m_path).st_mode & 0666)
{
}

void Persistence::Begin()
{
    // The mark comes first, so that a file whose making was cut short is recognised.
    m_mark = FileMark::New(FileMark::kOffset);
    if (int const error = io::Write(m_file->Number(), m_mark.bytes.data(), m_mark.bytes.size(), m_mark.offset))
        ThrowErrno(kCreating, m_path, error);
    if (int const error = m_journal.Remove())
        ThrowErrno("Cannot remove the journal that an earlier file has left,", m_journal.Path(), error);
}

FileMark Persistence::MarkAt(std::uint64_t offset) const
{
    FileMark mark{offset, {}};
    std::size_t read = 0;
    if (int const error = io::Read(m_file->Number(), mark.bytes.data(), mark.bytes.size(), mark.offset, read))
        ThrowErrno(kOpening, m_path, error);
    return mark;
}

// The journal stays as it is: what it belongs to may need it.
void Persistence::RefuseJournal(std::string const& why) const
{
    ThrowReason(KVOSimException::Kind::Damaged, kOpening, m_path, m_journal.Path() + ' ' + why);
}

// A reader leaves alone what it cannot apply: whatever state the file is in, the journal is not a part of it.
bool Persistence::IsToBeApplied(Journal const& journal, bool readOnly)
{
    FileMark const mark = MarkAt(journal.Before().offset);
    auto const length = static_cast<std::uint64_t>(StatusOf(m_file->Number(), m_path).st_size);
    bool const isFirstForm = !journal.After();
    bool const isOfThisState = mark == journal.Before();
    // A journal of the first form leaves the mark as it is, so only before commits were counted does the mark tell the state.
    if (isOfThisState && length >= journal.FileBytes() && !(isFirstForm && mark.Number() > 0))
        return true;
    if (readOnly || journal.After() == mark)
        return false;
    if (!mark.IsOfSameFile(journal.Before()))
        RefuseJournal(std::string("is the journal of another database") +
                      (mark.offset == FileMark::kOffset ? "" : ", or of another state of this one") +
                      "; put it beside that one, or remove it");
    if (isOfThisState && !isFirstForm)
        RefuseJournal("belongs to a file of " + std::to_string(journal.FileBytes()) + " bytes, of which " + std::to_string(length) +
                      " are left; put the whole file back, or remove the journal to open it without the last commit");
    if (isOfThisState)
        RefuseJournal("was left by an older program, which may have gone on from there; open the database with that one, or remove it");
    RefuseJournal("is of another state of this database: it was to make commit " + std::to_string(journal.Before().Number() + 1) +
                  ", and the file, of another time or another copy, holds commit " + std::to_string(mark.Number()) +
                  "; put it beside the file that it belongs to, or remove it");
}

void Persistence::Recover(bool readOnly)
{
    std::optional<Journal> journal;
    if (int const error = m_journal.Read(journal))
        ThrowErrno("Cannot read the journal", m_journal.Path(), error);
    if (!journal || !IsToBeApplied(*journal, readOnly))
        return;
    if (readOnly) {
        for (Journal::Piece const& piece : journal->Pieces())
            m_file->Held().Put(piece.address, piece.bytes.data(), piece.bytes.size());
        return;
    }
    m_unfinished = true;
    CompleteUnfinished();
}

void Persistence::BeginChanges()
{
    m_mark = MarkAt(FileMark::kOffset);
    m_committedEnd = m_file->End();
    // First, so that writers of blocks that another session has left behind see that the space is no longer theirs.
    if (m_mark.IsMark() && m_mark.IsForWriters()) {
        RenewMark(false, kOpening);
        RequireSuccess(io::Sync(m_file->Number()), kOpening);
    }
    if (static_cast<std::uint64_t>(StatusOf(m_file->Number(), m_path).st_size) > m_committedEnd)
        if (int const error = io::SetLength(m_file->Number(), m_committedEnd))
            ThrowErrno(kOpening, m_path, error);
    if (!m_mark.IsMark()) { // made by another program: the mark goes behind what is there, not across the edge of a sector
        constexpr std::uint64_t kMarkBytes = FileMark::kEnd - FileMark::kOffset;
        m_mark = FileMark::New((m_file->End() + kMarkBytes - 1) / kMarkBytes * kMarkBytes);
        m_file->SetEnd(m_mark.offset + kMarkBytes);
    }
}

void Persistence::RequireSuccess(int error, char const* doing) const
{
    if (error != 0)
        ThrowErrno(doing, m_path, error);
}

bool Persistence::IsInFile(std::uint64_t address, std::span<std::byte const> bytes) const
{
    std::vector<std::byte> inFile(bytes.size());
    std::size_t read = 0;
    RequireSuccess(io::Read(m_file->Number(), inFile.data(), inFile.size(), address, read));
    return read == bytes.size() && std::equal(bytes.begin(), bytes.end(), inFile.begin());
}

// What the last commit refers to and this one changes. HDF5 writes much that has not changed, the superblock on each closing for one.
std::vector<Journal::Piece> Persistence::Changes() const
{
    std::vector<Journal::Piece> changes;
    for (auto const& [address, bytes] : m_file->Held().All()) {
        if (address >= m_committedEnd)
            break;
        auto const committed = std::span(bytes).first(std::min<std::uint64_t>(bytes.size(), m_committedEnd - address));
        if (!IsInFile(address, committed))
            changes.push_back({address, committed});
    }
    return changes;
}

// What the last commit does not refer to. After it the file is as long as HDF5 takes it to be.
void Persistence::WriteAdditions()
{
    Gathered gathered(m_file->Number());
    for (auto const& [address, bytes] : m_file->Held().All()) {
        std::uint64_t const skip = address < m_committedEnd ? std::min<std::uint64_t>(bytes.size(), m_committedEnd - address) : 0;
        if (skip < bytes.size())
            RequireSuccess(gathered.Add(address + skip, std::span(bytes).subspan(skip)));
    }
    RequireSuccess(gathered.Write());
    auto const length = static_cast<std::uint64_t>(StatusOf(m_file->Number(), m_path).st_size);
    if (length < m_file->End())
        RequireSuccess(io::Reserve(m_file->Number(), length, m_file->End() - length));
}

void Persistence::Commit()
{
    if (m_unfinished)
        CompleteUnfinished();
    if (m_file->Held().IsEmpty())
        RequireSuccess(io::Sync(m_file->Number())); // values only
    else
        Write();
}

// An earlier journal, which the file does not fit then, is gone for good first.
void Persistence::RenewMark(bool forWriters, char const* doing)
{
    RequireSuccess(m_journal.Begin(), doing);
    FileMark const mark = m_mark.InNewSession(forWriters);
    RequireSuccess(io::Write(m_file->Number(), mark.bytes.data(), mark.bytes.size(), mark.offset), doing);
    m_mark = mark;
}

// Once in a session, and again after a journal failed: that one may be complete, and the file is no longer what it fits.
void Persistence::BeginJournals()
{
    if (!m_journalsBegun)
        RenewMark(false, kCommitting);
}

FileMark Persistence::MarkForWriters()
{
    constexpr char const* kMarking = "Cannot mark the database for writers of blocks";
    if (m_unfinished)
        CompleteUnfinished();
    if (!m_mark.IsForWriters())
        RenewMark(true, kMarking);
    RequireSuccess(io::Sync(m_file->Number()), kMarking);
    return m_mark;
}

void Persistence::Write()
{
    std::vector<Journal::Piece> const changes = Changes();
    if (!changes.empty())
        BeginJournals();
    WriteAdditions();
    RequireSuccess(io::Sync(m_file->Number()));
    if (changes.empty()) {
        m_file->Held().Clear();
        return;
    }
    Journal const journal(m_mark, m_file->End(), changes);
    m_journalsBegun = false;
    RequireSuccess(m_journal.Write(journal));
    m_journalsBegun = true;
    m_mark = *journal.After();

    // From here on the commit counts, whatever happens to this process. Where the file cannot be changed now, that is tried again by the
    // next commit and by Finish().
    m_committedEnd = m_file->End();
    m_unfinished = true;
    if (Apply(journal, m_file->Number()) != 0 || m_journal.Drop() != 0)
        return;
    m_unfinished = false;
    m_file->Held().Clear();
}

// From the journal and not from what is held: that may have changed since.
void Persistence::CompleteUnfinished()
{
    constexpr char const* kDoing = "Cannot complete the last commit to the database";
    std::optional<Journal> journal;
    int error = m_journal.Read(journal);
    if (error == 0 && journal)
        error = Apply(*journal, m_file->Number());
    if (error == 0)
        error = m_journal.Drop();
    if (error != 0)
        ThrowReason(KindOf(error), kDoing, m_path, std::string(strerror(error)) + "; it is kept in " + m_journal.Path());
    m_unfinished = false;
}

void Persistence::Finish()
{
    if (m_unfinished)
        CompleteUnfinished();
    if (int const error = m_journal.Remove())
        ThrowErrno("Cannot remove the journal", m_journal.Path(), error);
}

} // namespace simdb
