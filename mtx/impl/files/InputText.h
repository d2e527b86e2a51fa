#pragma once

#include "Decompression.h"
#include "MatrixFiles.h"

#include <cstddef>
#include <cstdint>
#include <memory>

/// The text in a file, which may be compressed.
class InputText
{
public:
    /// @throws KVOSrvMtxOpenFileException as InputFile
    explicit InputText(char const* path);

    bool IsCompressed() const noexcept { return m_content != nullptr; }
    /// Bytes of the file, compressed where it is.
    std::int64_t FileBytes() const noexcept { return m_file.Size(); }
    /// How many of them a text that was read up to `place` came from.
    std::int64_t FileBytesUpTo(std::int64_t place) const noexcept { return m_content ? m_content->Place() : place; }

    /// Reads up to `bytes` bytes from a place of the text; fewer only at its end. A text as it is may be read by several threads at once; a
    /// compressed one by one only, and from the front again where the place lies in front of the end of what was read before.
    /// @throws MalformedFile when the file cannot be read
    std::size_t ReadAt(std::int64_t place, void* target, std::size_t bytes) const
    {
        return m_content ? Unpack(place, static_cast<char*>(target), bytes) : m_file.ReadAt(place, target, bytes);
    }

private:
    std::size_t Unpack(std::int64_t place, char* target, std::size_t bytes) const;

    InputFile m_file;
    mutable std::unique_ptr<Decompression> m_content; // null: not compressed
    mutable std::int64_t m_unpacked = 0;
};
