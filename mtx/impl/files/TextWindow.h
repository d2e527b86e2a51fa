#pragma once

#include "mem_Allocator.h"

#include <cstddef>
#include <cstdint>
#include <memory>

class InputText;

/// A part of a text file in windows that end in white space, so that every word that begins in a window also ends there.
class TextWindow
{
public:
    /// @param begin,end  the part's bytes; an end behind that of the text goes on to whatever comes
    explicit TextWindow(InputText const& file, std::int64_t begin = 0, std::int64_t end = INT64_MAX);

    /// Empty before the first Next(). End()[-1] is white space unless the window is empty.
    char* Begin() const noexcept { return m_text.get(); }
    char* End() const noexcept { return m_text.get() + m_windowEnd; }
    /// Whether the window holds all that is left; it ends in a newline, added where the part has none there.
    bool IsLast() const noexcept { return m_last; }
    /// Where in the file `text`, which lies in the window, stands.
    std::int64_t PlaceOf(char const* text) const noexcept { return m_next - static_cast<std::int64_t>(m_read) + (text - Begin()); }

    /// Goes on by the part of the window in front of `rest`. False after the last window.
    /// @throws MalformedFile when the file cannot be read, or what is compressed has no white space for too long
    bool Next(char const* rest);

private:
    void Keep(char const* rest);

    InputText const& m_file;
    std::int64_t m_next; // what follows the bytes that were read
    std::int64_t m_end;
    std::size_t m_capacity;
    std::unique_ptr<char[], mem_Deleter> m_text;
    std::size_t m_read = 0; // bytes of the file in the text
    std::size_t m_windowEnd = 0;
    bool m_last = false;
};
