#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

/// The bytes of a text file, also of one that is compressed by gzip or zstd, from front to back.
class TextBytes
{
public:
    /// @throws ToolError kUnreadable
    explicit TextBytes(std::string const& path);
    ~TextBytes();
    TextBytes(TextBytes const&) = delete;
    TextBytes& operator=(TextBytes const&) = delete;

    /// The next byte, EOF at the end.
    int Next() { return m_next != m_end || Fill() ? static_cast<unsigned char>(*m_next++) : EOF; }

    /// Takes bytes off their packing.
    class Source;

private:
    bool Fill();

    std::unique_ptr<Source> m_source;
    std::unique_ptr<char[]> m_buffer;
    char const* m_next = nullptr;
    char const* m_end = nullptr;
};
