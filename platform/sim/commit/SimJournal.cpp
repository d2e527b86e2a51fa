#include "SimJournal.h"

#include "SimIo.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <utility>

namespace simdb
{

namespace
{

constexpr char kMarkMagic[8] = {'K', 'V', 'O', 'S', 'I', 'M', 'I', 'D'};
constexpr char kFirstMagic[8] = {'K', 'V', 'O', 'S', 'I', 'M', 'J', '1'};
constexpr char kJournalMagic[8] = {'K', 'V', 'O', 'S', 'I', 'M', 'J', '2'};

// Places in the mark.
constexpr std::size_t kFileAt = 8, kSessionAt = 16, kNumberAt = 24;
// Of the first of the session's bytes.
constexpr std::byte kForWriters{1};

struct FirstHeader {
    char magic[8];
    std::uint64_t totalBytes; // of the journal, header and checksum included
    std::uint64_t pieces;
    std::uint64_t markOffset;
    std::array<std::byte, sizeof(FileMark::bytes)> before;
};
struct Header : FirstHeader {
    std::array<std::byte, sizeof(FileMark::bytes)> after;
    std::uint64_t fileBytes;
};
static_assert(sizeof(FirstHeader) == 64 && sizeof(Header) == 104);
struct Place {
    std::uint64_t address;
    std::uint64_t bytes;
};
using Checksum = std::uint64_t;

// CRC-64 of ECMA-182, reflected (as in the .xz file format, section 6): finds every torn or swapped sector up to one in 2^64.
Checksum Crc64(std::span<std::byte const> bytes) noexcept
{
    static auto const s_table = [] {
        std::array<Checksum, 256> table{};
        for (Checksum i = 0; i < table.size(); ++i) {
            table[i] = i;
            for (int bit = 0; bit < 8; ++bit)
                table[i] = table[i] >> 1 ^ (table[i] % 2 != 0 ? 0xC96C5795D7870F42U : 0);
        }
        return table;
    }();
    Checksum crc = ~Checksum{0};
    for (std::byte const byte : bytes)
        crc = s_table[(crc ^ static_cast<Checksum>(byte)) % 256] ^ crc >> 8;
    return ~crc;
}

// 0 where `header` begins no journal.
std::size_t HeaderBytes(FirstHeader const& header) noexcept
{
    if (std::memcmp(header.magic, kJournalMagic, sizeof kJournalMagic) == 0)
        return sizeof(Header);
    return std::memcmp(header.magic, kFirstMagic, sizeof kFirstMagic) == 0 ? sizeof(FirstHeader) : 0;
}

// An older, longer journal may have left its end behind this one's.
bool IsPlausible(FirstHeader const& header, std::uint64_t available) noexcept
{
    std::size_t const headerBytes = HeaderBytes(header);
    return headerBytes > 0 && header.totalBytes <= available && header.totalBytes >= headerBytes + sizeof(Checksum);
}

std::byte* Append(std::byte* to, void const* from, std::size_t bytes) noexcept
{
    if (bytes > 0) // `from` may be null otherwise
        std::memcpy(to, from, bytes);
    return to + bytes;
}

// Fails only where the kernel has no such call; marks then differ in the number alone.
void Draw(std::byte* to) noexcept
{
    constexpr std::size_t kRandomBytes = 8;
    if (getrandom(to, kRandomBytes, 0) < 0)
        std::memset(to, 0, kRandomBytes);
}

} // namespace

FileMark FileMark::New(std::uint64_t offset)
{
    FileMark mark;
    mark.offset = offset;
    std::memcpy(mark.bytes.data(), kMarkMagic, sizeof kMarkMagic);
    Draw(mark.bytes.data() + kFileAt);
    return mark.InNewSession(false);
}

bool FileMark::IsMark() const noexcept
{
    return std::memcmp(bytes.data(), kMarkMagic, sizeof kMarkMagic) == 0;
}

std::uint64_t FileMark::Number() const noexcept
{
    std::uint64_t number;
    std::memcpy(&number, bytes.data() + kNumberAt, sizeof number);
    return number;
}

FileMark FileMark::InNewSession(bool forWriters) const noexcept
{
    FileMark mark = *this;
    Draw(mark.bytes.data() + kSessionAt);
    std::byte& first = mark.bytes[kSessionAt];
    first = forWriters ? first | kForWriters : first & ~kForWriters;
    return mark;
}

bool FileMark::IsForWriters() const noexcept
{
    return (bytes[kSessionAt] & kForWriters) != std::byte{0};
}

FileMark FileMark::AfterCommit() const noexcept
{
    FileMark mark = *this;
    std::uint64_t const number = Number() + 1;
    std::memcpy(mark.bytes.data() + kNumberAt, &number, sizeof number);
    return mark;
}

bool FileMark::IsOfSameFile(FileMark const& other) const noexcept
{
    return offset == other.offset && std::memcmp(bytes.data(), other.bytes.data(), kSessionAt) == 0;
}

Journal::Journal(FileMark const& mark, std::uint64_t fileBytes, std::vector<Piece> const& pieces)
    : m_before(mark), m_after(mark.AfterCommit()), m_fileBytes(fileBytes), m_pieces(pieces)
{
    std::size_t total = sizeof(Header) + pieces.size() * sizeof(Place) + sizeof(Checksum);
    for (Piece const& piece : pieces)
        total += piece.bytes.size();
    m_image.resize(total);

    Header header{{{}, total, pieces.size(), mark.offset, mark.bytes}, m_after->bytes, fileBytes};
    std::memcpy(header.magic, kJournalMagic, sizeof kJournalMagic);
    std::byte* to = Append(m_image.data(), &header, sizeof header);
    for (Piece const& piece : pieces) {
        Place const place{piece.address, piece.bytes.size()};
        to = Append(to, &place, sizeof place);
    }
    for (Piece& piece : m_pieces) {
        std::byte* const begin = to;
        to = Append(to, piece.bytes.data(), piece.bytes.size());
        piece.bytes = {begin, piece.bytes.size()};
    }
    Checksum const checksum = Crc64({m_image.data(), total - sizeof(Checksum)});
    std::memcpy(to, &checksum, sizeof checksum);
}

std::optional<Journal> Journal::Parse(std::vector<std::byte> image)
{
    Header header{};
    if (image.size() < sizeof(FirstHeader))
        return {};
    std::memcpy(&header, image.data(), sizeof(FirstHeader));
    if (!IsPlausible(header, image.size()))
        return {};
    std::size_t const headerBytes = HeaderBytes(header);
    std::memcpy(&header, image.data(), headerBytes);
    std::size_t const dataEnd = header.totalBytes - sizeof(Checksum);
    Checksum checksum;
    std::memcpy(&checksum, image.data() + dataEnd, sizeof checksum);
    if (checksum != Crc64({image.data(), dataEnd}))
        return {};

    Journal journal;
    journal.m_image = std::move(image);
    journal.m_before = {header.markOffset, header.before};
    if (headerBytes == sizeof(Header))
        journal.m_after = FileMark{header.markOffset, header.after};
    journal.m_fileBytes = header.fileBytes;
    std::byte const* const places = journal.m_image.data() + headerBytes;
    std::size_t left = dataEnd - headerBytes;
    if (header.pieces > left / sizeof(Place))
        return {};
    std::byte const* data = places + header.pieces * sizeof(Place);
    left -= header.pieces * sizeof(Place);
    for (std::uint64_t i = 0; i < header.pieces; ++i) {
        Place place;
        std::memcpy(&place, places + i * sizeof place, sizeof place);
        if (place.bytes > left || place.address > INT64_MAX - place.bytes)
            return {};
        journal.m_pieces.push_back({place.address, {data, place.bytes}});
        data += place.bytes;
        left -= place.bytes;
    }
    return journal;
}

int JournalFile::Read(std::optional<Journal>& journal) const
{
    journal.reset();
    Descriptor const file(open(m_path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file.IsOpen())
        return errno == ENOENT ? 0 : errno;
    struct stat status;
    if (fstat(file.Number(), &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode))
        return EINVAL;
    FirstHeader header;
    std::size_t read = 0;
    if (int const error = io::Read(file.Number(), &header, sizeof header, 0, read))
        return error;
    if (read < sizeof header || !IsPlausible(header, static_cast<std::uint64_t>(status.st_size)))
        return 0;
    std::vector<std::byte> image(header.totalBytes);
    if (int const error = io::Read(file.Number(), image.data(), image.size(), 0, read))
        return error;
    image.resize(read);
    journal = Journal::Parse(std::move(image));
    return 0;
}

int JournalFile::Open() noexcept
{
    if (m_file.IsOpen())
        return 0;
    Descriptor file;
    if (int const error = io::OpenOrMake(m_path, m_mode, file))
        return error;
    if (int const error = io::SyncFolderOf(m_path))
        return error;
    m_file = std::move(file);
    return 0;
}

int JournalFile::Begin() noexcept
{
    // A process that died between a commit and this has left the journal of that.
    if (int const error = Drop())
        return error;
    return io::Sync(m_file.Number());
}

int JournalFile::Write(Journal const& journal) noexcept
{
    if (int const error = Open())
        return error;
    auto const image = journal.Image();
    int error = io::Write(m_file.Number(), image.data(), image.size(), 0);
    if (error == 0)
        error = io::Sync(m_file.Number());
    if (error != 0)
        Drop(); // it may be complete: what was reported as failed must not come true at the next opening
    return error;
}

int JournalFile::Drop() noexcept
{
    constexpr std::array<std::byte, sizeof(Header)> kNothing{};
    if (int const error = Open())
        return error;
    return io::Write(m_file.Number(), kNothing.data(), kNothing.size(), 0);
}

int JournalFile::Remove() noexcept
{
    int const error = io::Remove(m_path);
    return error == ENOENT ? 0 : error;
}

int Apply(Journal const& journal, int descriptor) noexcept
{
    for (Journal::Piece const& piece : journal.Pieces())
        if (int const error = io::Write(descriptor, piece.bytes.data(), piece.bytes.size(), piece.address))
            return error;
    if (int const error = io::Sync(descriptor))
        return error;
    // Last, so that a file of which a part was changed still fits. It needs no sync of its own: until it is on the disk, the whole is only
    // done again, and the next journal waits for a sync of the file.
    auto const& after = journal.After();
    return after ? io::Write(descriptor, after->bytes.data(), after->bytes.size(), after->offset) : 0;
}

} // namespace simdb
