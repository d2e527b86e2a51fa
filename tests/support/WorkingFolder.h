#pragma once

#include "TemporaryFolder.h"

#include <vector>

/// A fresh folder that is the working one while this object lives.
class WorkingFolder
{
public:
    explicit WorkingFolder(std::filesystem::path const& parent = std::filesystem::temp_directory_path())
        : m_folder(parent), m_before(std::filesystem::current_path())
    {
        std::filesystem::current_path(Path());
    }
    ~WorkingFolder() { std::filesystem::current_path(m_before); }
    WorkingFolder(WorkingFolder const&) = delete;
    WorkingFolder& operator=(WorkingFolder const&) = delete;

    std::string Path() const { return m_folder / "."; }
    std::string operator/(std::string const& name) const { return m_folder / name; }
    /// Makes a folder in it the working one; `gone`: which is removed at once.
    void EnterBelow(bool gone = false) const
    {
        std::filesystem::create_directory(m_folder / "below");
        std::filesystem::current_path(m_folder / "below");
        if (gone)
            std::filesystem::remove(m_folder / "below");
    }
    /// The names of what is in it.
    std::vector<std::string> Files() const
    {
        std::vector<std::string> names;
        for (auto const& entry : std::filesystem::directory_iterator(Path()))
            names.push_back(entry.path().filename());
        return names;
    }

private:
    TemporaryFolder m_folder;
    std::filesystem::path m_before;
};
