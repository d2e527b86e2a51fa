#pragma once

#include "Hdf5.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace simdb
{

/// What a maker says of a matrix for those who look at the file. UTF-8 texts, empty: none.
struct Label {
    std::string title;       ///< also a name of the matrix in the root group
    std::string unit;        ///< of the values
    std::string description; ///< in words

    bool IsEmpty() const noexcept { return title.empty() && unit.empty() && description.empty(); }
    friend bool operator==(Label const&, Label const&) = default;
};

/// What readers without the catalogue learn beside that.
struct DrawerFacts {
    std::int64_t rows = 0;
    std::int64_t columns = 0; ///< of more than two dimensions the first, as rows are the last
    bool isSymmetric = false;
    std::string_view storage;
    friend bool operator==(DrawerFacts const&, DrawerFacts const&) = default;
};

/// What HDF5 may need to write one: texts and their copies.
inline constexpr std::size_t kBytesOfLabel = 1 << 17;

/// @throws KVOSimException unless the title can be a link's name and the texts can be attributes
void RequireValid(Label const& label, std::string const& path);

/// Writes both as attributes of an object of the file, over those that it has; an empty text has none.
void WriteLabel(hid_t object, Label const& label, DrawerFacts const& facts, std::string const& path);
/// What attributes of that name and kind say.
Label ReadLabel(hid_t object, std::string const& path);

/// A scalar attribute, made or written over. @throws KVOSimException
void WriteAttribute(hid_t object, char const* name, hid_t type, void const* value, std::string const& path);
/// The same for a UTF-8 text of at least one byte.
void WriteText(hid_t object, char const* name, std::string const& text, std::string const& path);
/// False when there is no scalar attribute of that name and kind.
bool ReadAttribute(hid_t object, char const* name, hid_t type, void* value);

} // namespace simdb
