#pragma once

#include "PrivateFolder.h"

#include <memory>
#include <string>

/// A folder of its own for the library's scratch files; it goes with everything in it.
class ScratchFolder
{
public:
    /// Makes it inside `parent`, the working directory when that is empty.
    /// @throws ToolError kUnwritable
    explicit ScratchFolder(std::string const& parent);
    ~ScratchFolder();
    ScratchFolder(ScratchFolder const&) = delete;
    ScratchFolder& operator=(ScratchFolder const&) = delete;

    std::string Path() const { return m_folder->Path(); }

    /// The folder that `output` is to stand in, which has room for what is about as large.
    static std::string FolderOf(std::string const& output);

private:
    std::unique_ptr<PrivateFolder> m_folder;
};
