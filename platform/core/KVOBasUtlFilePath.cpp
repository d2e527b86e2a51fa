#include "KVOBasUtlFilePath.h"

#include <filesystem>
#include <sys/stat.h>
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
    return std::filesystem::current_path().c_str();
}
