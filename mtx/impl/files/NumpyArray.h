#pragma once

#include "KVOSrvMatrixFile.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// Bytes from front to back: of a file, or of a member of an archive.
class ByteStream
{
public:
    virtual ~ByteStream() = default;
    /// Reads up to `bytes` bytes; fewer only at the end. @throws MalformedFile
    virtual std::size_t Read(char* target, std::size_t bytes) = 0;
};

/// An array of NumPy, number by number in the order of the file: format versions 1 to 3 of numpy.lib.format. What is refused is a
/// MalformedFile with the byte of the array's file or member.
class NumpyArray
{
public:
    /// Reads the head. @param name  of the member, for messages; empty for a file
    NumpyArray(std::unique_ptr<ByteStream> stream, std::string name);

    std::vector<std::int64_t> const& Shape() const noexcept { return m_shape; }
    bool IsComplex() const noexcept { return m_kind == 'c'; }
    bool IsText() const noexcept { return m_kind == 'S' || m_kind == 'U'; }
    /// Whether the first index varies fastest.
    bool IsFortranOrder() const noexcept { return m_fortranOrder; }
    /// The array has this many dimensions. @param what  it is, for the message
    void RequireDimensions(std::size_t count, char const* what) const;

    /// A number, and whether it is 0 in both parts.
    struct Value {
        double number;
        bool isZero;
    };
    /// Takes the next number. @param part  of a complex one
    Value TakeValue(KVOSrvMatrixPart part);
    /// Takes the next whole number, from `first` to `last`.
    std::int64_t TakeInteger(std::int64_t first, std::int64_t last, char const* what);
    /// Takes the whole of an array that is one text.
    std::string TakeText();
    /// Nothing follows, and the archive's checksum holds.
    void RequireEnd();

    [[noreturn]] void Refuse(std::string const& what) const;

private:
    void ReadHead();
    void ParseHead(std::string const& head);
    void ParseType(std::string type);
    char const* Take(std::size_t bytes, bool reversed);

    std::unique_ptr<ByteStream> m_stream;
    std::string m_name;
    std::vector<std::int64_t> m_shape;
    bool m_fortranOrder = false;
    char m_kind = 'f'; // b, i, u, f, c, S, U
    std::size_t m_bytes = 8;
    bool m_reversed = false; // big-endian

    std::unique_ptr<char[]> m_buffer;
    std::size_t m_next = 0;
    std::size_t m_end = 0;
    std::int64_t m_place = 0; // of the file or member, behind what was taken
    char m_item[16];
};
