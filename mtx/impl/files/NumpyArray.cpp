#include "NumpyArray.h"

#include "MalformedFile.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

namespace
{

constexpr std::size_t kBuffer = std::size_t{1} << 16;
constexpr std::size_t kLongestHead = 65535; // what a head of version 1 may have; those of arrays of numbers take 128 bytes

// What follows the key in a dictionary that Python prints.
std::string_view Behind(std::string_view dictionary, std::string_view key)
{
    std::size_t const place = dictionary.find(key);
    if (place == std::string_view::npos)
        return {};
    std::string_view rest = dictionary.substr(place + key.size());
    rest.remove_prefix(std::min(rest.find_first_not_of(" :"), rest.size()));
    return rest;
}

template<class T>
T As(char const* bytes)
{
    T value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

std::int64_t WholeNumber(char kind, std::size_t bytes, char const* item)
{
    bool const isSigned = kind == 'i';
    switch (bytes) {
    case 1:
        return isSigned ? std::int64_t{As<std::int8_t>(item)} : std::int64_t{As<std::uint8_t>(item)};
    case 2:
        return isSigned ? std::int64_t{As<std::int16_t>(item)} : std::int64_t{As<std::uint16_t>(item)};
    case 4:
        return isSigned ? std::int64_t{As<std::int32_t>(item)} : std::int64_t{As<std::uint32_t>(item)};
    default:
        return As<std::int64_t>(item);
    }
}

} // namespace

NumpyArray::NumpyArray(std::unique_ptr<ByteStream> stream, std::string name)
    : m_stream(std::move(stream)), m_name(std::move(name)), m_buffer(std::make_unique<char[]>(kBuffer))
{
    ReadHead();
}

void NumpyArray::RequireDimensions(std::size_t count, char const* what) const
{
    if (m_shape.size() != count)
        Refuse(std::string("expected ") + what + ", found an array of " + std::to_string(m_shape.size()) + " dimensions");
}

NumpyArray::Value NumpyArray::TakeValue(KVOSrvMatrixPart part)
{
    auto const real = [this](std::size_t bytes) {
        char const* const item = Take(bytes, m_reversed);
        return bytes == 4 ? double{As<float>(item)} : As<double>(item);
    };
    if (m_kind == 'f') {
        double const value = real(m_bytes);
        return {value, value == 0.0};
    }
    if (m_kind == 'c') {
        double const value = real(m_bytes / 2), imaginary = real(m_bytes / 2);
        return {part == KVOSrvMatrixPart::kImaginary ? imaginary : value, value == 0.0 && imaginary == 0.0};
    }
    char const* const item = Take(m_bytes, m_reversed);
    double const value = m_kind == 'u' && m_bytes == 8 ? static_cast<double>(As<std::uint64_t>(item))
                                                       : static_cast<double>(WholeNumber(m_kind, m_bytes, item));
    return {value, value == 0.0};
}

std::int64_t NumpyArray::TakeInteger(std::int64_t first, std::int64_t last, char const* what)
{
    std::string const expected =
        std::string("expected ") + what + " from " + std::to_string(first) + " to " + std::to_string(last) + ", found ";
    if (m_kind != 'i' && m_kind != 'u')
        Refuse(expected + "an array that is not of whole numbers");
    std::int64_t const number = WholeNumber(m_kind, m_bytes, Take(m_bytes, m_reversed));
    if (number < first || number > last)
        Refuse(expected + std::to_string(number));
    return number;
}

std::string NumpyArray::TakeText()
{
    constexpr std::size_t kLongest = 16;
    std::size_t const width = m_kind == 'U' ? 4 : 1, letters = m_bytes / width;
    if (!IsText() || !m_shape.empty() || letters > kLongest)
        Refuse("expected a short text");
    std::string text;
    for (std::size_t k = 0; k < letters; ++k)
        if (char const letter = *Take(width, m_reversed); letter != '\0')
            text += letter;
    return text;
}

void NumpyArray::RequireEnd()
{
    char more;
    if (m_next != m_end || m_stream->Read(&more, 1) != 0)
        Refuse("expected the end of the array, found more");
}

void NumpyArray::Refuse(std::string const& what) const
{
    throw MalformedFile::AtByte(m_place, (m_name.empty() ? "" : m_name + ": ") + what);
}

void NumpyArray::ReadHead()
{
    constexpr char kMark[] = "\x93NUMPY";
    for (char const* mark = kMark; *mark != '\0'; ++mark)
        if (*Take(1, false) != *mark)
            Refuse("expected an array of NumPy");
    int const version = *Take(2, false);
    std::size_t const length = version == 1 ? As<std::uint16_t>(Take(2, false)) : As<std::uint32_t>(Take(4, false));
    if (version < 1 || version > 3 || length > kLongestHead)
        Refuse("expected the head of an array of NumPy, version 1 to 3");
    std::string head;
    while (head.size() < length)
        head += *Take(1, false);
    ParseHead(head);
}

void NumpyArray::ParseHead(std::string const& head)
{
    std::string_view const type = Behind(head, "'descr'"), order = Behind(head, "'fortran_order'");
    std::string_view shape = Behind(head, "'shape'");
    if (!type.starts_with('\'') || !shape.starts_with('('))
        Refuse("expected the type and the shape of an array of plain numbers");
    ParseType(std::string(type.substr(1, type.find('\'', 1) - 1)));
    m_fortranOrder = order.starts_with("True");
    shape.remove_prefix(1);
    while (!shape.starts_with(')')) {
        std::int64_t size = 0;
        auto const [end, error] = std::from_chars(shape.data(), shape.data() + shape.size(), size);
        if (error != std::errc{} || size < 0 || m_shape.size() == 3)
            Refuse("expected the shape of an array of up to 3 dimensions");
        m_shape.push_back(size);
        shape.remove_prefix(static_cast<std::size_t>(end - shape.data()));
        shape.remove_prefix(std::min(shape.find_first_not_of(", "), shape.size()));
    }
}

void NumpyArray::ParseType(std::string type)
{
    m_reversed = type.starts_with('>');
    if (type.find_first_of("<>|=") == 0)
        type.erase(0, 1);
    m_kind = type.empty() ? '?' : type[0];
    char const* const end = type.data() + type.size();
    bool const isRead = type.size() > 1 && std::from_chars(type.data() + 1, end, m_bytes).ptr == end && m_bytes <= 1024;
    if (m_kind == 'U')
        m_bytes *= 4;
    std::string_view const sizes = m_kind == 'f' ? "48" : m_kind == 'i' || m_kind == 'u' ? "1248" : m_kind == 'b' ? "1" : "";
    bool const isNumber = m_kind == 'c' ? m_bytes == 8 || m_bytes == 16
                                        : m_bytes < 10 && sizes.find(static_cast<char>('0' + m_bytes)) != std::string_view::npos;
    if (!isRead || (!isNumber && !IsText()))
        Refuse("expected whole numbers, or real or complex ones of 4 or 8 bytes a part, found the type " + Quoted(type));
}

// The next bytes, up to 16, valid until the next call.
char const* NumpyArray::Take(std::size_t bytes, bool reversed)
{
    if (m_end - m_next >= bytes && !reversed) {
        std::memcpy(m_item, m_buffer.get() + m_next, bytes);
        m_next += bytes;
        m_place += static_cast<std::int64_t>(bytes);
        return m_item;
    }
    for (std::size_t k = 0; k < bytes; ++k) {
        if (m_next == m_end) {
            m_next = 0;
            m_end = m_stream->Read(m_buffer.get(), kBuffer);
            if (m_end == 0)
                Refuse("the array ends here, expected more of it");
        }
        m_item[reversed ? bytes - 1 - k : k] = m_buffer[m_next++];
        ++m_place;
    }
    return m_item;
}
