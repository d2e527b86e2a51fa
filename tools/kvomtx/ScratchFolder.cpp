#include "ScratchFolder.h"

#include "Errors.h"
#include "KVOSrvUtilities.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdlib.h>

ScratchFolder::ScratchFolder(std::string const& parent)
{
    std::string path = (std::filesystem::path(parent) / "kvomtx-scratch-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr)
        throw ToolError(ExitCode::kUnwritable, (parent.empty() ? std::string("the working directory") : parent) +
                                                   ": no scratch files can be made there: " + std::strerror(errno) +
                                                   "; name another folder with --scratch");
    m_folder = std::make_unique<Removable>(path);
    KVOSrvUtilities::SetTempDirectory(cow_String(path.c_str()));
}

ScratchFolder::~ScratchFolder()
{
    KVOSrvUtilities::SetTempDirectory(cow_String());
}

std::string ScratchFolder::FolderOf(std::string const& output)
{
    return std::filesystem::path(output).parent_path().string();
}
