#include "ScratchFolder.h"

#include "Errors.h"
#include "KVOSrvUtilities.h"

#include <cstring>
#include <filesystem>
#include <system_error>

ScratchFolder::ScratchFolder(std::string const& parent)
{
    try {
        m_folder = std::make_unique<PrivateFolder>((std::filesystem::path(parent) / "kvomtx-scratch-").string());
    } catch (std::system_error const& failure) {
        throw ToolError(ExitCode::kUnwritable, (parent.empty() ? std::string("the working directory") : parent) +
                                                   ": no scratch files can be made there: " + std::strerror(failure.code().value()) +
                                                   "; name another folder with --scratch");
    }
    KVOSrvUtilities::SetTempDirectory(cow_String(m_folder->Path().c_str()));
}

ScratchFolder::~ScratchFolder()
{
    KVOSrvUtilities::SetTempDirectory(cow_String());
}

std::string ScratchFolder::FolderOf(std::string const& output)
{
    return std::filesystem::path(output).parent_path().string();
}
