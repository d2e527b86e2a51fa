#pragma once

#include "KVOSrvSparseMatrix.h"

#include <algorithm>
#include <bit>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

/// @file
/// What the fuzzers share.

/// Ends the process with the fuzzer's report when `held` is false.
inline void Check(bool held, char const* what)
{
    if (!held) {
        std::fprintf(stderr, "broken: %s\n", what);
        std::abort();
    }
}

/// A file in memory that has a path.
class MemoryFile
{
public:
    MemoryFile() : m_descriptor(memfd_create("matrix", 0)), m_path("/proc/self/fd/" + std::to_string(m_descriptor))
    {
        Check(m_descriptor >= 0, "a file in memory can be had");
    }
    char const* Path() const { return m_path.c_str(); }

    void SetContent(std::string const& bytes, std::size_t zeros)
    {
        Check(ftruncate(m_descriptor, 0) == 0 &&
                  pwrite(m_descriptor, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()) &&
                  ftruncate(m_descriptor, static_cast<off_t>(bytes.size() + zeros)) == 0,
              "the file can be written");
    }

    std::string Content() const
    {
        std::string text(static_cast<std::size_t>(lseek(m_descriptor, 0, SEEK_END)), ' ');
        Check(pread(m_descriptor, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()), "the file can be read");
        return text;
    }

private:
    int m_descriptor;
    std::string m_path;
};

/// The sizes, and places and bits of the first thousand entries, which must lie inside.
inline std::vector<std::uint64_t> ContentOf(KVOSrvSparseMatrix const& matrix)
{
    int count = 0;
    std::unique_ptr<KVOSrvSparseMatrixEntry[]> const entries(matrix.GetEntries(count));
    std::vector<std::uint64_t> content{static_cast<std::uint64_t>(matrix.NumberOfRows()),
                                       static_cast<std::uint64_t>(matrix.NumberOfColumns())};
    count = std::min(count, 1000);
    content.reserve(2 + 3 * static_cast<std::size_t>(count));
    for (int k = 0; k < count; ++k) {
        Check(entries[k].row < static_cast<unsigned>(matrix.NumberOfRows()) &&
                  entries[k].column < static_cast<unsigned>(matrix.NumberOfColumns()),
              "every entry lies inside of the matrix");
        content.insert(content.end(), {entries[k].row, entries[k].column, std::bit_cast<std::uint64_t>(entries[k].value)});
    }
    return content;
}

/// The text with its longer numbers cut: a sound file may ask for two thousand million empty rows, which takes seconds. Much longer ones,
/// which readers refuse, stay.
inline std::string CutNumbers(std::string text, std::size_t mostDigits)
{
    std::size_t digits = 0;
    for (char& c : text) {
        digits = std::isdigit(static_cast<unsigned char>(c)) ? digits + 1 : 0;
        if (digits > mostDigits && digits < mostDigits + 6)
            c = ' ';
    }
    return text;
}
