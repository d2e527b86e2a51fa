#include "KVOBasUtlFilePath.h"

#include "KVOBasPlatformException.h"

#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

KVOBasUtlFilePath::KVOBasUtlFilePath(cow_String const& directory, cow_String const& name)
    : m_path((std::filesystem::path(directory.c_str()) / name.c_str()).c_str())
{
}

bool KVOBasUtlFilePath::Exists() const noexcept
{
    struct stat status;
    return lstat(m_path.c_str(), &status) == 0;
}

bool KVOBasUtlFilePath::Remove() const noexcept
{
    return unlink(m_path.c_str()) == 0;
}

cow_String KVOBasUtlgetcwd()
{
    std::error_code error;
    std::filesystem::path const path = std::filesystem::current_path(error);
    if (error)
        KVOBasPlatformException(("The working directory cannot be had: " + error.message() + ".").c_str())
            .Throw("platform/core/KVOBasUtlFilePath", __LINE__);
    return path.c_str();
}
