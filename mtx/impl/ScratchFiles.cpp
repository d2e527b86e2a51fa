#include "ScratchFiles.h"

#include "KVOBasUtlFilePath.h"
#include "KVOSimException.h"
#include "KVOSrvUtilities.h"

#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr std::string_view kPrefix = "KVOSrvScratchDenseMatrix";
constexpr std::string_view kSuffix = ".sim";

cow_String Directory()
{
    cow_String const directory = KVOSrvUtilities::GetTempDirectory();
    if (directory.View().starts_with('/'))
        return directory;
    cow_String const working = ScratchFiles::WorkingDirectory();
    return directory.IsEmpty() ? working : KVOBasUtlFilePath(working, directory).Path();
}

std::string NameFor(void const* owner, int attempt)
{
    char text[64];
    std::snprintf(text, sizeof text, "%016llX-%d", static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(owner)), getpid());
    std::string name(kPrefix);
    name += text;
    if (attempt > 0)
        (name += '-') += std::to_string(attempt);
    return name += kSuffix;
}

/// A descriptor that closes itself.
class Descriptor
{
public:
    explicit Descriptor(int number) noexcept : m_number(number) {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor()
    {
        if (m_number >= 0)
            close(m_number);
    }
    operator int() const noexcept { return m_number; }

private:
    int m_number;
};

// Whoever uses a scratch file has it locked. Between the making of a file and its locking it may be taken for a leftover here; its maker
// sees then that the name is gone, and makes it again.
void RemoveFileIfUnused(int directory, char const* name) noexcept
{
    Descriptor const file(openat(directory, name, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat opened, named;
    if (file < 0 || fstat(file, &opened) != 0 || !S_ISREG(opened.st_mode) || flock(file, LOCK_EX | LOCK_NB) != 0)
        return;
    // Until now the name may have passed to another file.
    if (fstatat(directory, name, &named, AT_SYMLINK_NOFOLLOW) == 0 && named.st_ino == opened.st_ino && named.st_dev == opened.st_dev)
        unlinkat(directory, name, 0);
}

} // namespace

cow_String ScratchFiles::WorkingDirectory()
{
    try {
        return KVOBasUtlgetcwd();
    } catch (std::filesystem::filesystem_error const& error) {
        KVOSimException("Cannot make a scratch file in the working directory", "", error.code().message().c_str())
            .Throw("mtx/impl/ScratchFiles", __LINE__);
    }
}

cow_String ScratchFiles::PathFor(void const* owner)
{
    cow_String const directory = Directory();
    // Never destroyed: scratch matrices of static duration may come while the process ends.
    static auto& s_cleaned = *new std::set<std::string, std::less<>>;
    if (!s_cleaned.contains(directory.View())) {
        RemoveLeftovers(directory);
        s_cleaned.emplace(directory.View());
    }
    for (int attempt = 0;; ++attempt) {
        KVOBasUtlFilePath const path(directory, cow_String(NameFor(owner, attempt)));
        if (!path.Exists())
            return path.Path();
    }
}

bool ScratchFiles::RemoveIfUnused(cow_String const& path) noexcept
{
    RemoveFileIfUnused(AT_FDCWD, path.c_str());
    return !KVOBasUtlFilePath(path).Exists();
}

void ScratchFiles::RemoveLeftovers(cow_String const& directory) noexcept
{
    std::unique_ptr<DIR, int (*)(DIR*)> const folder(opendir(directory.c_str()), closedir);
    if (folder == nullptr)
        return;
    while (dirent const* const entry = readdir(folder.get())) {
        std::string_view const name = entry->d_name;
        if (name.starts_with(kPrefix) && name.ends_with(kSuffix))
            RemoveFileIfUnused(dirfd(folder.get()), entry->d_name);
    }
}
