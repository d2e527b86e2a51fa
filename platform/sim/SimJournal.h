#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace simdb
{

/// A random mark in the database file by which a journal knows it again.
struct FileMark {
    /// Marks of files that we made lie between the superblock of 48 bytes and what HDF5 allocates after it.
    static constexpr std::uint64_t kOffset = 64;
    static constexpr std::uint64_t kEnd = 96;

    std::uint64_t offset = kOffset;
    std::array<std::byte, kEnd - kOffset> bytes{};

    static FileMark New(std::uint64_t offset);
    /// Whether `bytes` begin as every mark does.
    bool IsMark() const noexcept;
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

    /// The journal that writes `pieces` into the file with this mark.
    Journal(FileMark const& mark, std::vector<Piece> const& pieces);
    /// The journal in `image`; none when it is incomplete or damaged anywhere.
    static std::optional<Journal> Parse(std::vector<std::byte> image);

    std::span<std::byte const> Image() const noexcept { return m_image; }
    FileMark const& Mark() const noexcept { return m_mark; }
    /// Views into the image.
    std::vector<Piece> const& Pieces() const noexcept { return m_pieces; }

private:
    Journal() = default;

    std::vector<std::byte> m_image;
    FileMark m_mark;
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
    ~JournalFile();

    std::string const& Path() const noexcept { return m_path; }
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
    int m_descriptor = -1;
};

/// Writes the pieces of `journal` into the file and syncs it. Doing it again changes nothing.
int Apply(Journal const& journal, int descriptor) noexcept;

} // namespace simdb
