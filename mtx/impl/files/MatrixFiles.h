#pragma once

#include "Descriptor.h"
#include "mem_Allocator.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

static_assert(std::endian::native == std::endian::little, "binary matrix files hold numbers as this machine does");

/// A regular file open for reading, from front to back.
class InputFile
{
public:
    /// @throws KVOSrvMtxOpenFileException with the path when it cannot be opened or names no regular file; a null path counts as empty
    explicit InputFile(char const* path);
    ~InputFile() = default;
    InputFile(InputFile const&) = delete;
    InputFile& operator=(InputFile const&) = delete;

    /// Bytes the file had when it was opened.
    std::int64_t Size() const noexcept { return m_size; }

    /// Bytes that were read or passed over.
    std::int64_t Place() const noexcept { return m_place; }

    /// Reads up to `bytes` bytes; fewer only at the end of the file.
    /// @throws MalformedFile when the file cannot be read
    std::size_t Read(void* target, std::size_t bytes);

    /// The same from a place of its own, also by several threads at once.
    std::size_t ReadAt(std::int64_t place, void* target, std::size_t bytes) const;

    /// Reads `count` items of type T.
    /// @throws MalformedFile when the file ends before
    template<class T>
    void ReadItems(T* target, std::int64_t count)
    {
        ReadExactly(target, static_cast<std::size_t>(count) * sizeof(T));
    }

    /// Passes over `bytes` bytes.
    void Skip(std::int64_t bytes) noexcept { m_place += bytes; }

private:
    void ReadExactly(void* target, std::size_t bytes);

    Descriptor m_file;
    std::int64_t m_size;
    std::int64_t m_place = 0;
};

/// The file is as long as what it is to hold. @param what  that, as "the header of a dense file" @throws MalformedFile
void RequireSize(InputFile const& file, std::int64_t bytes, std::string const& what);

/// A file being written, through a buffer.
class OutputFile
{
public:
    enum class Existing {
        kTruncate,
        kOverwrite // what the new content does not reach stays
    };

    /// @throws KVOSrvMtxOpenFileException with the path; a null path counts as empty
    OutputFile(char const* path, Existing existing, unsigned permissions);

    /// Closes the file if that has not been done; what is still in the buffer is lost.
    ~OutputFile() = default;
    OutputFile(OutputFile const&) = delete;
    OutputFile& operator=(OutputFile const&) = delete;

    /// Room for at least `bytes` characters, at most kBufferBytes, at the end of what is buffered; Commit() tells how far it was used.
    char* Room(std::size_t bytes)
    {
        if (kBufferBytes - m_used < bytes)
            Flush();
        return m_buffer.get() + m_used;
    }
    void Commit(char const* end) noexcept { m_used = static_cast<std::size_t>(end - m_buffer.get()); }

    /// Appends `count` items of type T; a long run goes to the file straight from there.
    template<class T>
    void WriteItems(T const* items, std::int64_t count)
    {
        Write(items, static_cast<std::size_t>(count) * sizeof(T));
    }

    /// Writes what is buffered and closes the file. Every write, also before, throws KVOSrvMtxFileWriteFailure with the path on failure.
    void Close();

    static constexpr std::size_t kBufferBytes = std::size_t{1} << 18; // stays in a second-level cache: 512 KiB and more since 2017

private:
    void Write(void const* data, std::size_t bytes);
    void WriteThrough(char const* data, std::size_t bytes);
    void Flush();
    [[noreturn]] void ThrowWriteFailure() const;

    char const* m_path;
    Descriptor m_file;
    std::size_t m_used = 0;
    std::unique_ptr<char[], mem_Deleter> m_buffer;
};
