#include "PrivateFolder.h"

#include "KVOBasLeftover.h"

#include <cerrno>
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

constexpr KVOBasFolderMark kMark{".kvomtx", {'K', 'V', 'O', 'M', 'T', 'X', 'P', 'F'}};
constexpr std::string_view kStems[] = {".part", "kvomtx-scratch-"};

// Of "<stem><process>" or "<stem><process>-<number>", with something in front of ".part", the process; empty for other names.
std::string_view ProcessOf(std::string_view name) noexcept
{
    auto const takeNumber = [&name] {
        std::string_view const number = name.substr(name.find_last_not_of("0123456789") + 1);
        name.remove_suffix(number.size());
        return number;
    };
    std::string_view number = takeNumber();
    if (!number.empty() && name.ends_with('-') && !name.ends_with(kStems[1])) {
        name.remove_suffix(1);
        number = takeNumber();
    }
    bool const isOurs = name == kStems[1] || (name.ends_with(kStems[0]) && name.size() > kStems[0].size());
    return isOurs ? number : std::string_view();
}

void RemoveLeftovers(std::filesystem::path const& parent)
{
    std::error_code error;
    std::vector<std::string> paths;
    for (std::filesystem::directory_iterator entry(parent.empty() ? "." : parent, error), end; !error && entry != end;
         entry.increment(error))
        if (!ProcessOf(entry->path().filename().string()).empty())
            paths.push_back(entry->path().string());
    for (std::string const& path : paths) {
        KVOBasUnusedFile const unused(AT_FDCWD, path.c_str());
        if (unused.IsHeld() && kMark.IsLeftBehind(unused.Descriptor()))
            RemoveFolder(path, kMark.name);
    }
}

} // namespace

PrivateFolder::Descriptor::~Descriptor()
{
    if (number >= 0)
        close(number);
}

bool PrivateFolder::IsOurs(std::string const& path)
{
    std::string const folder = std::filesystem::path(path).parent_path().filename().string();
    return ProcessOf(folder) == std::to_string(getpid());
}

PrivateFolder::PrivateFolder(std::string const& stem)
{
    RemoveLeftovers(std::filesystem::path(stem).parent_path());
    std::string const first = stem + std::to_string(getpid());
    std::string path = first;
    for (int attempt = 1; mkdir(path.c_str(), 0700) != 0; ++attempt) {
        if (errno != EEXIST)
            throw std::system_error(errno, std::generic_category());
        path = first + "-" + std::to_string(attempt);
    }
    m_removable = std::make_unique<Removable>(path, kMark.name);
    m_descriptor.number = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (m_descriptor.number < 0 || !kMark.Write(m_descriptor.number))
        throw std::system_error(errno, std::generic_category());
    flock(m_descriptor.number, LOCK_EX); // waits for whoever is looking at it; where there are no locks, the process id tells
}
