#include "TextWindow.h"

#include "InputText.h"
#include "MalformedFile.h"
#include "MatrixText.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace
{

constexpr std::int64_t kSmallest = 64;
constexpr std::int64_t kLargest = 1 << 18; // stays in a second-level cache: 512 KiB and more since 2017
// A file as it is holds the longest record or line that it asks for room for; a few compressed bytes may stand for any length.
constexpr std::size_t kLongestUnpacked = std::size_t{1} << 24;

std::unique_ptr<char[], mem_Deleter> Allocate(std::size_t bytes)
{
    return std::unique_ptr<char[], mem_Deleter>(static_cast<char*>(mem_OperatorNewThrow(bytes)));
}

} // namespace

// Two places more than a small part has bytes: for the newline behind it, and so that the first read sees its end.
TextWindow::TextWindow(InputText const& file, std::int64_t begin, std::int64_t end)
    : m_file(file), m_next(begin), m_end(end),
      m_capacity(static_cast<std::size_t>(
          file.IsCompressed() ? kLargest : std::clamp(std::min(end, file.FileBytes()) - begin + 2, kSmallest, kLargest))),
      m_text(Allocate(m_capacity))
{
}

bool TextWindow::Next(char const* rest)
{
    if (m_last)
        return false;
    Keep(rest);
    std::size_t const room = m_capacity - 1 - m_read;
    std::size_t const got = m_file.ReadAt(
        m_next, m_text.get() + m_read, static_cast<std::size_t>(std::min<std::int64_t>(static_cast<std::int64_t>(room), m_end - m_next)));
    m_next += static_cast<std::int64_t>(got);
    m_read += got;
    m_windowEnd = m_read;
    m_last = got < room;
    if (m_last && m_read > 0 && m_text[m_read - 1] != '\n')
        m_text[m_windowEnd++] = '\n'; // what ends the file ends its last word and line
    while (m_windowEnd > 0 && !MatrixText::IsSpace(m_text[m_windowEnd - 1]))
        --m_windowEnd;
    return true;
}

// Moves what begins at `rest` to the front, into a larger buffer when it takes more than half: a record or a line longer than that.
void TextWindow::Keep(char const* rest)
{
    std::size_t const kept = m_read - static_cast<std::size_t>(rest - m_text.get());
    if (kept <= m_capacity / 2) {
        std::memmove(m_text.get(), rest, kept);
    } else {
        if (m_file.IsCompressed() && m_capacity >= kLongestUnpacked)
            throw MalformedFile::AtByte(m_file.FileBytesUpTo(m_next),
                                        "a line or a record of the text that is compressed here is longer than 8 MiB");
        auto larger = Allocate(2 * m_capacity);
        std::memcpy(larger.get(), rest, kept);
        m_text = std::move(larger);
        m_capacity *= 2;
    }
    m_read = kept;
}
