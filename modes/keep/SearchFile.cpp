#include "SearchFile.h"

#include "Fingerprint.h"

#include "KVOSimCSet.h"
#include "KVOSimCollection.h"
#include "KVOSimDistribution.h"
#include "KVOSimException.h"
#include "KVOSimPosition.h"
#include "KVOSimTransaction.h"
#include "KVOSimTransfer.h"
#include "KVOSrvDenseMatrix.h"
#include "KVOSrvModesFailure.h"
#include "KVOSrvUtilities.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace
{

constexpr char kSource[] = "modes/SearchFile";
constexpr std::uint64_t kForm = 1; // grows when a state changes its meaning
// A search spends one part of so many on being kept.
constexpr int kShare = 20;
// A state lies in columns of so many words.
constexpr int kStateRows = 8192;
// Columns that are read and written at a time.
constexpr int kColumns = 8;
constexpr char kJournal[] = ".journal"; // the database's own, behind its name
// What the distributions are, in the order in which they are made.
constexpr int kMarkType = 30;
enum Part { kState = 0, kBasis = 2, kModes = 4, kParts = 5 };

int TypeOf(int part)
{
    return kMarkType + 1 + part;
}

// Columns in an array that is used again.
KVOSrvMatrix View(std::vector<double>& values, int rows, int columns)
{
    values.resize(static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns));
    return KVOSrvMatrix(rows, columns, values.data(), false, false);
}

std::uint64_t SumOf(KVOSrvMatrix const& columns, std::uint64_t before)
{
    return Fingerprint(
        columns.Values(),
        static_cast<std::size_t>(columns.NumberOfRows()) * static_cast<std::size_t>(columns.NumberOfColumns()) * sizeof(double), before);
}

// To a name that is free, for good. @return 0 or the error
int Rename(std::string const& from, std::string const& to)
{
    int result = renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    if (result != 0 && (errno == EINVAL || errno == ENOSYS)) // not every file system can
        result = std::rename(from.c_str(), to.c_str());
    if (result != 0)
        return errno;
    std::string const folder = std::filesystem::path(to).parent_path().string();
    if (int const directory = open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); directory >= 0) {
        fsync(directory); // where it fails, the file is complete all the same
        close(directory);
    }
    return 0;
}

} // namespace

SearchFile::SearchFile(std::string path, int order, bool goesOn) : m_path(std::move(path)), m_isMade(!goesOn)
{
    if (!goesOn)
        Make(order);
    Open(order);
}

SearchFile::~SearchFile()
{
    m_parts.clear();
    m_context.reset();
    try {
        m_database.Close();
    } catch (KVOSimException const&) { // what counts was committed
    }
    std::error_code ignored;
    if (m_isMade && m_head.keeping <= 1) {
        std::filesystem::remove(m_path, ignored);
        std::filesystem::remove(m_path + kJournal, ignored); // which a broken disk may leave
    }
}

void SearchFile::Refuse(std::string const& why, int line) const
{
    KVOSrvModesFailure(KVOSrvModesFailure::Kept, m_path + ": " + why).Throw(kSource, line);
}

// The file comes under its name when it is complete: whoever finds one there can go on with it.
void SearchFile::Make(int order)
{
    constexpr char kThere[] = "is there; go on with what it keeps, or name another file";
    std::error_code ignored;
    if (std::filesystem::exists(m_path, ignored))
        Refuse(kThere);
    std::string const part = m_path + ".part" + std::to_string(getpid());
    try {
        FillNew(part, order);
        std::filesystem::remove(m_path + kJournal, ignored); // of a file that is gone
        if (int const error = Rename(part, m_path); error == EEXIST)
            Refuse(kThere);
        else if (error != 0)
            KVOSimException("Cannot create the database", m_path.c_str(), std::strerror(error), KVOSimException::Kind::System)
                .Throw(kSource, __LINE__);
    } catch (...) {
        std::filesystem::remove(part, ignored);
        throw;
    }
}

void SearchFile::FillNew(std::string const& path, int order)
{
    KVOSimDatabase database;
    database.CreateFile(DRXUnicodeString(path.c_str()), 0);
    KVOSimContext context(database.CreateContext());
    KVOSimPosition position(context);
    KVOSrvUtilities::Create1DDistribution(position, kMarkType, KVOSimCollection(context.CreateCollection(1)).BiggestCSetID(), -1);
    for (int part = 0; part < kParts; ++part)
        GrowingColumns(context, TypeOf(part), part < kBasis ? kStateRows : order);
    database.Close();
}

void SearchFile::Open(int order)
{
    m_database.OpenFile(DRXUnicodeString(m_path.c_str()), false);
    KVOSimContextID const id = m_database.ContextID();
    constexpr char kNone[] = "keeps no search for modes; give one that a search was kept in";
    if (id.IsNull())
        Refuse(kNone);
    m_context = std::make_unique<KVOSimContext>(id);
    auto const distributions = m_context->QueryDistributions();
    if (distributions.Size() != kParts + 1)
        Refuse(kNone);
    m_mark = distributions[0];
    for (int part = -1; part < kParts; ++part)
        if (KVOSimDistribution(distributions[part + 1]).Type() != TypeOf(part))
            Refuse(kNone);
    for (int part = 0; part < kParts; ++part)
        m_parts.emplace_back(distributions[part + 1]);
    if (int const kept = m_parts[kBasis].Rows(); kept != order)
        Refuse("was kept of matrices of order " + std::to_string(kept) + ", not " + std::to_string(order) + "; give those, or begin anew");
    if (int const keeping = KVOSimCSet(KVOSrvDenseMatrix(m_mark).RowCSetID()).OrderedMembers()[0]; keeping > 0)
        ReadState(static_cast<std::uint64_t>(keeping));
}

void SearchFile::ReadState(std::uint64_t keeping)
{
    constexpr char kDamaged[] = "is damaged: its state does not fit its checksum; begin anew";
    GrowingColumns const& place = Place(kState, keeping % 2);
    std::vector<double> values;
    {
        KVOSrvMatrix first = View(values, kStateRows, 1);
        place.Read(0, first);
    }
    constexpr std::size_t kHeadWords = sizeof m_head / sizeof(double);
    std::memcpy(&m_head, values.data(), sizeof m_head);
    auto const room = static_cast<std::uint64_t>(place.Columns()) * kStateRows - kHeadWords;
    if (m_head.form != kForm || m_head.keeping != keeping || m_head.words > room)
        Refuse(kDamaged);
    std::size_t const size = kHeadWords + m_head.words;
    {
        KVOSrvMatrix all = View(values, kStateRows, static_cast<int>((size + kStateRows - 1) / kStateRows));
        place.Read(0, all);
    }
    Head blank = m_head;
    blank.sum = 0;
    m_state.assign(values.begin() + kHeadWords, values.begin() + static_cast<std::ptrdiff_t>(size));
    if (Fingerprint(m_state.data(), m_state.size() * sizeof(double), Fingerprint(&blank, sizeof blank)) != m_head.sum)
        Refuse(kDamaged);
}

void SearchFile::ReadColumns(GrowingColumns const& from, std::uint64_t count, std::uint64_t sum, Take const& take) const
{
    std::vector<double> values;
    std::uint64_t read = 0;
    for (int first = 0; first < static_cast<int>(count); first += kColumns) {
        KVOSrvMatrix columns = View(values, from.Rows(), std::min(kColumns, static_cast<int>(count) - first));
        from.Read(first, columns);
        read = SumOf(columns, read);
        take(columns);
    }
    if (read != sum)
        Refuse("is damaged: what it keeps of vectors does not fit its checksum; begin anew");
}

void SearchFile::ReadBasis(std::uint64_t generation, Take const& take)
{
    auto const begin = Clock::now();
    ReadColumns(Place(kBasis, m_head.basisPlace), m_head.basisColumns, m_head.basisSum, take);
    m_generation = generation;
    m_end = Clock::now();
    m_cost = m_end - begin; // about what it takes to write them
}

void SearchFile::ReadModes(Take const& take) const
{
    ReadColumns(m_parts[kModes], m_head.modes, m_head.modesSum, take);
}

bool SearchFile::IsDue() const noexcept
{
    return Clock::now() - m_end >= (kShare - 1) * m_cost;
}

void SearchFile::Keep(std::vector<double> const& state, Basis const* basis, KVOSrvMatrix const* modes)
{
    auto const begin = Clock::now();
    KVOSimTransaction transaction(*m_context);
    Head head = m_head;
    head.form = kForm;
    ++head.keeping;
    if (basis == nullptr)
        head.basisColumns = head.basisSum = 0;
    else
        KeepBasis(*basis, head);
    if (modes != nullptr) {
        m_parts[kModes].Write(static_cast<int>(head.modes), *modes);
        head.modes += static_cast<std::uint64_t>(modes->NumberOfColumns());
        head.modesSum = SumOf(*modes, head.modesSum);
    }
    KeepState(state, head);
    Mark(head.keeping);
    transaction.Commit();
    m_head = head;
    m_generation = basis != nullptr ? basis->generation : 0;
    m_end = Clock::now();
    m_cost = m_end - begin;
}

void SearchFile::KeepBasis(Basis const& basis, Head& head)
{
    if (head.basisColumns == 0 || basis.generation != m_generation) {
        head.basisPlace = 1 - head.basisPlace;
        head.basisColumns = head.basisSum = 0;
    }
    std::vector<double> values;
    for (auto first = static_cast<int>(head.basisColumns); first < basis.columns; first += kColumns) {
        GrowingColumns& place = Place(kBasis, head.basisPlace);
        KVOSrvMatrix columns = View(values, place.Rows(), std::min(kColumns, basis.columns - first));
        basis.read(first, columns);
        place.Write(first, columns);
        head.basisSum = SumOf(columns, head.basisSum);
    }
    head.basisColumns = static_cast<std::uint64_t>(basis.columns);
}

void SearchFile::KeepState(std::vector<double> const& state, Head& head)
{
    head.words = state.size();
    head.sum = 0;
    head.sum = Fingerprint(state.data(), state.size() * sizeof(double), Fingerprint(&head, sizeof head));
    constexpr std::size_t kHeadWords = sizeof head / sizeof(double);
    std::size_t const size = kHeadWords + state.size();
    std::vector<double> values;
    KVOSrvMatrix columns = View(values, kStateRows, static_cast<int>((size + kStateRows - 1) / kStateRows));
    std::memcpy(values.data(), &head, sizeof head);
    std::copy(state.begin(), state.end(), values.begin() + kHeadWords);
    Place(kState, head.keeping % 2).Write(0, columns);
}

void SearchFile::Mark(std::uint64_t keeping)
{
    KVOSimDistribution const distribution(m_mark);
    int const number = static_cast<int>(keeping);
    KVOSimTransfer transfer(distribution);
    transfer.SetWrite();
    transfer.SetDimMembers(0, KVOSimCollection(distribution.Collections()[0]).CreateOrderedCSet(&number, 1));
}
