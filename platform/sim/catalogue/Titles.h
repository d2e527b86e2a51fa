#pragma once

#include "Hdf5.h"
#include "SimFile.h"

#include <map>
#include <optional>
#include <string>

namespace simdb
{

/// A matrix, by its numbers.
struct Titled {
    int context;
    int distribution;
    friend bool operator==(Titled const&, Titled const&) noexcept = default;
};

/// The titles in a database, which are names of soft links in its root group. One is taken from when a matrix is given it until no commit
/// and no rollback brings it back.
class Titles
{
public:
    /// @param file  stays open as long as this is used
    explicit Titles(File const& file) noexcept : m_file(file) {}

    /// Which matrix has taken it, if one has.
    std::optional<Titled> Find(std::string const& title);
    /// `title`, or that with " (2)", " (3)", ... behind it when others than `matrix` have it.
    std::string FreeFor(Titled const& matrix, std::string const& title);
    void Take(std::string const& title, Titled const& matrix);
    void Drop(std::string const& title) noexcept { m_taken.erase(title); }

    /// In the file: the link `former` goes, and `title` leads to `target`. Either may be empty: none. What was done before is done again.
    void Relink(std::string const& former, std::string const& title, std::string const& target);

private:
    void Load();

    File const& m_file;
    bool m_isLoaded = false;
    std::map<std::string, std::optional<Titled>> m_taken; ///< none: a name of another program's
    Hid m_properties;                                     ///< of links
};

} // namespace simdb
