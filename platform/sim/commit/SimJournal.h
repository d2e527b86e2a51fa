#pragma once

#include "Descriptor.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace simdb
{

/// What tells one state of one database file from all others, in the file itself, so that a journal is applied to no other: a magic, 8
/// random bytes that the file keeps for life, 8 random bytes of the session that committed last, and the number of commits, 0 in files that
/// were made before they were counted. The session's bytes part the ways of copies that go on each by itself, with the same numbers.
struct FileMark {
    /// Marks of files that we made lie between the superblock of 48 bytes and what HDF5 allocates after it.
    static constexpr std::uint64_t kOffset = 64;
    static constexpr std::uint64_t kEnd = 96;

    std::uint64_t offset = kOffset;
    std::array<std::byte, kEnd - kOffset> bytes{};

    static FileMark New(std::uint64_t offset);
    /// Whether `bytes` begin as every mark does.
    bool IsMark() const noexcept;
    std::uint64_t Number() const noexcept;
    /// The mark of the same state in another session. @param forWriters  what IsForWriters() tells of it
    FileMark InNewSession(bool forWriters) const noexcept;
    /// Places of blocks may be known to other processes that go by this mark. Of files from before there were such it may be true, too.
    bool IsForWriters() const noexcept;
    /// The mark after one commit more.
    FileMark AfterCommit() const noexcept;
    bool IsOfSameFile(FileMark const& other) const noexcept;

    friend bool operator==(FileMark const&, FileMark const&) = default;
};

/// What one commit changes in a database file, as the bytes of the file beside it (docs/reliability.md has the format).
class Journal
{
public:
    struct Piece {
        std::uint64_t address;
        std::span<std::byte const> bytes;
    };

    Journal(Journal&&) noexcept = default;
    Journal& operator=(Journal&&) noexcept = default;
    Journal(Journal const&) = delete; // the pieces point into the image
    Journal& operator=(Journal const&) = delete;
    ~Journal() = default;

    /// The journal that writes `pieces` into the file with this mark, `fileBytes` long, and then the mark after one commit more.
    Journal(FileMark const& mark, std::uint64_t fileBytes, std::vector<Piece> const& pieces);
    /// The journal in `image`; none when it is incomplete or damaged anywhere.
    static std::optional<Journal> Parse(std::vector<std::byte> image);

    std::span<std::byte const> Image() const noexcept { return m_image; }
    /// The mark of the file until all of the journal is applied.
    FileMark const& Before() const noexcept { return m_before; }
    /// And from then on; none in journals of the first form, which don't change it.
    std::optional<FileMark> const& After() const noexcept { return m_after; }
    /// The length of the file, at least; 0 in journals of the first form.
    std::uint64_t FileBytes() const noexcept { return m_fileBytes; }
    /// Views into the image.
    std::vector<Piece> const& Pieces() const noexcept { return m_pieces; }

private:
    Journal() = default;

    std::vector<std::byte> m_image;
    FileMark m_before;
    std::optional<FileMark> m_after;
    std::uint64_t m_fileBytes = 0;
    std::vector<Piece> m_pieces;
};

/// The file that holds the journal. It is made by the first commit of a session and removed at its end; between commits its first bytes
/// are zero. Functions return 0 or an errno.
class JournalFile
{
public:
    /// @param mode  of the file, when it is made
    JournalFile(std::string path, unsigned mode) : m_path(std::move(path)), m_mode(mode) {}
    JournalFile(JournalFile const&) = delete;
    JournalFile& operator=(JournalFile const&) = delete;
    ~JournalFile() = default;

    std::string const& Path() const noexcept { return m_path; }
    /// Makes the file, which holds no journal then. What an earlier session has left in it, or in one of its name that was removed, will
    /// not come back when the power goes.
    int Begin() noexcept;
    /// What the file holds; none when it is missing, or holds no complete journal.
    int Read(std::optional<Journal>& journal) const;
    /// When it returns 0, the journal is on the disk; otherwise the file holds none (unless even that could not be written).
    int Write(Journal const& journal) noexcept;
    /// The file holds no journal after it.
    int Drop() noexcept;
    int Remove() noexcept;

private:
    int Open() noexcept;

    std::string m_path;
    unsigned m_mode;
    Descriptor m_file;
};

/// Writes the pieces of `journal` into the file, syncs it, and changes the mark. Doing it again changes nothing.
int Apply(Journal const& journal, int descriptor) noexcept;

} // namespace simdb
