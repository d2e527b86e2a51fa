#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// What a reader finds wrong in a file and throws. It leaves the library as KVOSrvMtxMalformedFile, with the path: see WithPathOf().
struct MalformedFile {
    std::int64_t line; ///< from 1; 0 where the byte is known
    std::int64_t byte; ///< from 0; -1 where the line is known
    std::string what;  ///< what was expected there and what was found

    static MalformedFile AtLine(std::int64_t line, std::string const& what) { return {line, -1, what}; }
    static MalformedFile AtByte(std::int64_t byte, std::string const& what) { return {0, byte, what}; }

    [[noreturn]] void ThrowFor(char const* path) const;
};

/// The result of `read`, a call without arguments. @throws KVOSrvMtxMalformedFile with the path for the MalformedFile that it throws
template<class Read>
auto WithPathOf(char const* path, Read const& read)
{
    try {
        return read();
    } catch (MalformedFile const& fault) {
        fault.ThrowFor(path);
    }
}

/// A word of a file for a message: its beginning in quotation marks, what cannot be printed as ?.
std::string Quoted(std::string_view word);
