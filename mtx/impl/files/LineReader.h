#pragma once

#include "InputText.h"
#include "TextWindow.h"

#include <cstdint>
#include <string_view>

/// A text that is read line by line and word by word. What is refused is a MalformedFile with the line.
class LineReader
{
public:
    /// @throws KVOSrvMtxOpenFileException as InputFile
    explicit LineReader(char const* path);

    /// Goes to the next line; false at the end of the file.
    bool Next();
    /// Goes to the next line that is not blank and does not begin with `comment`.
    bool NextData(char comment);

    /// Takes the next word off the line; empty at its end.
    std::string_view Word() noexcept;

    /// Take the next word, a number. @param what  for the message, as "a value"
    std::int64_t TakeInteger(char const* what);
    double TakeValue(char const* what);
    /// A whole number from `first` to `last`. @param what  as "the number of rows"
    std::int64_t TakeIntegerIn(std::int64_t first, std::int64_t last, char const* what);
    void RequireEndOfLine();
    /// Whether nothing but white space is left of the line.
    bool IsAtEnd() const noexcept;
    /// What is left of the line.
    std::string_view Rest() const noexcept { return {m_word, static_cast<std::size_t>(m_lineEnd - m_word)}; }

    /// Refuse the line; in front of the first one, as the first.
    [[noreturn]] void RefuseWord(std::string const& expected, std::string_view found) const;
    [[noreturn]] void Refuse(std::string const& what) const;

private:
    InputText m_file;
    TextWindow m_window;
    char* m_next;              // behind the line
    char* m_word = nullptr;    // the rest of the line, up to
    char* m_lineEnd = nullptr; // the white space that ends it
    std::int64_t m_line = 0;
};
