#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

class InputFile;

/// What a compressed file holds, from front to back. Takes as much memory as the method's window, however much that is.
class Decompression
{
public:
    /// Null when the file's first bytes are those of no method that is known: gzip and zstd.
    static std::unique_ptr<Decompression> Of(InputFile const& file);

    Decompression(Decompression const&) = delete;
    Decompression& operator=(Decompression const&) = delete;
    virtual ~Decompression();

    /// Reads up to `bytes` bytes; fewer only at the end.
    /// @throws MalformedFile with the byte of the compressed file where that is damaged or cut off
    std::size_t Read(char* target, std::size_t bytes);

    /// How much of the compressed file was used.
    std::int64_t Place() const noexcept { return m_behind - static_cast<std::int64_t>(m_left); }

protected:
    explicit Decompression(InputFile const& file);

    /// Unpacks from the `m_left` bytes at `m_next` to `target`, some bytes at least where there are any. @return how many
    virtual std::size_t Unpack(char* target, std::size_t bytes) = 0;
    /// Whether nothing is missing where it stands.
    virtual bool IsComplete() const noexcept = 0;
    [[noreturn]] void Refuse(char const* reason) const;

    unsigned char* m_next = nullptr;
    std::size_t m_left = 0;

private:
    static constexpr std::size_t kPiece = std::size_t{1} << 16;

    InputFile const& m_file;
    std::int64_t m_behind = 0; // what follows the bytes in the buffer
    std::unique_ptr<unsigned char[]> m_buffer;
};
