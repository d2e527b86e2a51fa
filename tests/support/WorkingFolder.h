#pragma once

#include "TemporaryFolder.h"

#include <vector>

/// A fresh folder that is the working one while this object lives.
class WorkingFolder : public TemporaryFolder
{
public:
    explicit WorkingFolder(std::filesystem::path const& parent = std::filesystem::temp_directory_path()) : TemporaryFolder(parent)
    {
        std::filesystem::current_path(Path());
    }
    ~WorkingFolder() { std::filesystem::current_path(m_before); }

    std::string Path() const { return *this / "."; }
    /// Makes a folder in it the working one; `gone`: which is removed at once.
    void EnterBelow(bool gone = false) const
    {
        std::filesystem::create_directory(*this / "below");
        std::filesystem::current_path(*this / "below");
        if (gone)
            std::filesystem::remove(*this / "below");
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
    std::filesystem::path m_before = std::filesystem::current_path();
};
