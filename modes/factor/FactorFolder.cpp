#include "FactorFolder.h"

#include "KVOBasLeftover.h"
#include "KVOSrvModesFailure.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace
{

constexpr KVOBasFolderMark kMark{".maker", {'K', 'V', 'O', 'F', 'A', 'C', 'T', 'R'}};
constexpr std::string_view kStem = "KVOSrvSparseFactor-";

// The mark goes last: what is left of a removal that is killed is found again.
void Remove(std::filesystem::path const& folder)
{
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        std::error_code ignored;
        if (entry->path().filename() != kMark.name)
            std::filesystem::remove(entry->path(), ignored);
    }
    std::filesystem::remove_all(folder, error);
}

void RemoveLeftovers(std::filesystem::path const& parent)
{
    std::error_code error;
    std::vector<std::filesystem::path> paths;
    for (std::filesystem::directory_iterator entry(parent, error), end; !error && entry != end; entry.increment(error)) {
        std::string const name = entry->path().filename().string();
        if (name.starts_with(kStem) && name.find_first_not_of("0123456789-", kStem.size()) == std::string::npos)
            paths.push_back(entry->path());
    }
    for (std::filesystem::path const& path : paths) {
        KVOBasUnusedFile const unused(AT_FDCWD, path.c_str());
        if (unused.IsHeld() && kMark.IsLeftBehind(unused.Descriptor()))
            Remove(path);
    }
}

} // namespace

FactorFolder::FactorFolder(std::string const& parent)
{
    static std::atomic<int> s_number{0};
    std::error_code error;
    std::filesystem::path const folder = std::filesystem::absolute(parent.empty() ? "." : parent, error);
    RemoveLeftovers(folder);
    do
        m_path = (folder / (std::string(kStem) + std::to_string(getpid()) + "-" + std::to_string(++s_number))).string();
    while (mkdir(m_path.c_str(), 0700) != 0 && errno == EEXIST);
    m_descriptor = open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (m_descriptor >= 0)
        flock(m_descriptor, LOCK_EX); // before it is marked: the mark of this very process counts as one that has ended
    if (m_descriptor >= 0 && kMark.Write(m_descriptor))
        return;
    std::string const reason = std::strerror(errno);
    if (m_descriptor >= 0) {
        close(m_descriptor);
        Remove(m_path);
    }
    KVOSrvModesFailure(KVOSrvModesFailure::Disk, "the factor cannot be kept in " + folder.string() + ": " + reason)
        .Throw("modes/FactorFolder", __LINE__);
}

FactorFolder::~FactorFolder()
{
    Remove(m_path);
    close(m_descriptor);
}
