#include "Label.h"

#include <string_view>

namespace simdb
{

namespace
{

constexpr char const* kLabelling = "Cannot give a title to a matrix of the database";
constexpr char const* kWriting = "Cannot commit to the database";
constexpr std::size_t kLongestTitle = 255;
constexpr std::size_t kLongestText = 16384; // an attribute has to stay below 64 KiB

// Of one character at the begin of a text: 0 when there is none.
std::size_t BytesOfCharacter(std::string_view text) noexcept
{
    auto const byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    unsigned const first = byte(0);
    std::size_t const bytes = first < 0x80                    ? 1
                              : first >= 0xc2 && first < 0xe0 ? 2
                              : (first & 0xf0) == 0xe0        ? 3
                              : first >= 0xf0 && first < 0xf5 ? 4
                                                              : 0;
    if (bytes == 0 || bytes > text.size())
        return 0;
    for (std::size_t i = 1; i < bytes; ++i)
        if ((byte(i) & 0xc0) != 0x80)
            return 0;
    bool const overlong = (first == 0xe0 && byte(1) < 0xa0) || (first == 0xf0 && byte(1) < 0x90);
    bool const noCharacter = (first == 0xed && byte(1) >= 0xa0) || (first == 0xf4 && byte(1) >= 0x90); // surrogates; above U+10FFFF
    return overlong || noCharacter ? 0 : bytes;
}

bool IsUtf8(std::string_view text) noexcept
{
    for (std::size_t bytes; !text.empty(); text.remove_prefix(bytes))
        if (text[0] == '\0' || (bytes = BytesOfCharacter(text)) == 0)
            return false;
    return true;
}

Hid TextType(std::size_t bytes, std::string const& path)
{
    Hid type(Checked(H5Tcopy(H5T_C_S1), kWriting, path));
    if (H5Tset_size(type, bytes) < 0 || H5Tset_strpad(type, H5T_STR_NULLPAD) < 0 || H5Tset_cset(type, H5T_CSET_UTF8) < 0)
        ThrowHdf5(kWriting, path);
    return type;
}

/// Writes the attributes of one object: what HDF5 wants to have made for each of them is made once, and what has none is not searched.
class AttributeWriter
{
public:
    AttributeWriter(hid_t object, std::string const& path)
        : m_object(object), m_path(path), m_scalar(Checked(H5Screate(H5S_SCALAR), kWriting, path)), m_text(TextType(1, path))
    {
        H5O_info_t info;
        Checked(H5Oget_info2(object, &info, H5O_INFO_NUM_ATTRS), kWriting, path);
        m_isBlank = info.num_attrs == 0;
    }

    void Write(char const* name, hid_t type, void const* value) const
    {
        Hid const attribute(Has(name) ? H5Aopen(m_object, name, H5P_DEFAULT)
                                      : H5Acreate2(m_object, name, type, m_scalar, H5P_DEFAULT, H5P_DEFAULT));
        if (!attribute.IsValid() || H5Awrite(attribute, type, value) < 0)
            ThrowHdf5(kWriting, m_path);
    }
    /// An empty text has no attribute.
    void Write(char const* name, std::string_view text) const
    {
        if (Has(name) && H5Adelete(m_object, name) < 0) // its length is part of its type
            ThrowHdf5(kWriting, m_path);
        if (text.empty())
            return;
        Checked(H5Tset_size(m_text, text.size()), kWriting, m_path);
        Write(name, m_text, text.data());
    }

private:
    bool Has(char const* name) const noexcept { return !m_isBlank && H5Aexists(m_object, name) > 0; }

    hid_t m_object;
    std::string const& m_path;
    Hid m_scalar;
    Hid m_text;
    bool m_isBlank;
};

std::string ReadText(hid_t object, char const* name, std::string const& path)
{
    if (H5Aexists(object, name) <= 0)
        return {};
    Hid const attribute(H5Aopen(object, name, H5P_DEFAULT));
    Hid const type(attribute.IsValid() ? H5Aget_type(attribute) : H5I_INVALID_HID);
    // Texts of other programs may have any length, kept elsewhere: they are theirs.
    if (!type.IsValid() || H5Tget_class(type) != H5T_STRING || H5Tis_variable_str(type) != 0)
        return {};
    std::size_t const bytes = H5Tget_size(type);
    if (bytes > kLongestText)
        return {};
    std::string text(bytes, '\0');
    if (!ReadAttribute(object, name, TextType(bytes, path), text.data()))
        return {};
    text.resize(text.find_last_not_of('\0') + 1);
    return IsUtf8(text) ? text : std::string();
}

} // namespace

void RequireValid(Label const& label, std::string const& path)
{
    auto const refuse = [&](std::string const& why) { ThrowReason(kLabelling, path, why); };
    std::string const& title = label.title;
    for (std::string const* const text : {&title, &label.unit, &label.description})
        if (!IsUtf8(*text))
            refuse("a text is not UTF-8");
    if (title.size() > kLongestTitle)
        refuse("the title has " + std::to_string(title.size()) + " bytes, at most 255 are possible");
    if (label.unit.size() > kLongestText || label.description.size() > kLongestText)
        refuse("a text has more than 16384 bytes");
    if (title.find('/') != std::string::npos)
        refuse("the title \"" + title + "\" has a slash, which parts the names of a path");
    if (title == "." || title.starts_with("context_"))
        refuse("the title \"" + title + "\" is a name that the database uses itself");
}

void WriteAttribute(hid_t object, char const* name, hid_t type, void const* value, std::string const& path)
{
    AttributeWriter(object, path).Write(name, type, value);
}

void WriteText(hid_t object, char const* name, std::string const& text, std::string const& path)
{
    AttributeWriter(object, path).Write(name, text);
}

bool ReadAttribute(hid_t object, char const* name, hid_t type, void* value)
{
    if (H5Aexists(object, name) <= 0)
        return false;
    Hid const attribute(H5Aopen(object, name, H5P_DEFAULT));
    if (!attribute.IsValid())
        return false;
    Hid const fileType(H5Aget_type(attribute));
    Hid const space(H5Aget_space(attribute));
    return fileType.IsValid() && space.IsValid() && H5Tget_class(fileType) == H5Tget_class(type) &&
           H5Sget_simple_extent_type(space) == H5S_SCALAR && H5Aread(attribute, type, value) >= 0;
}

void WriteLabel(hid_t object, Label const& label, DrawerFacts const& facts, std::string const& path)
{
    auto const symmetric = static_cast<std::int8_t>(facts.isSymmetric);
    AttributeWriter const writer(object, path);
    writer.Write("title", label.title);
    writer.Write("unit", label.unit);
    writer.Write("description", label.description);
    writer.Write("rows", H5T_STD_I64LE, &facts.rows);
    writer.Write("columns", H5T_STD_I64LE, &facts.columns);
    writer.Write("symmetric", H5T_STD_I8LE, &symmetric);
    writer.Write("storage", facts.storage);
}

Label ReadLabel(hid_t object, std::string const& path)
{
    return {ReadText(object, "title", path), ReadText(object, "unit", path), ReadText(object, "description", path)};
}

} // namespace simdb
