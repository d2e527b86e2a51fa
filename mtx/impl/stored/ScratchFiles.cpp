#include "ScratchFiles.h"

#include "KVOBasPlatformException.h"
#include "KVOBasUtlFilePath.h"
#include "KVOSimDatabase.h"
#include "KVOSimException.h"
#include "KVOSrvUtilities.h"
#include "ProcessMutex.h"

#include <algorithm>
#include <cstdio>
#include <dirent.h>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <unistd.h>

namespace
{

constexpr std::string_view kMatrix = "KVOSrvScratchDenseMatrix", kContainer = "KVOSrvMatrixContainer", kSuffix = ".sim";
constexpr std::size_t kAddressDigits = 16;

cow_String Directory()
{
    cow_String const directory = KVOSrvUtilities::GetTempDirectory();
    if (directory.View().starts_with('/'))
        return directory;
    cow_String const working = ScratchFiles::WorkingDirectory();
    return directory.IsEmpty() ? working : KVOBasUtlFilePath(working, directory).Path();
}

// `numbers` of process and attempt, those that are positive.
cow_String NameFor(std::string_view kind, void const* owner, std::initializer_list<int> numbers)
{
    char address[kAddressDigits + 1];
    std::snprintf(address, sizeof address, "%016llX", static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(owner)));
    std::string name(kind);
    name += address;
    for (int const number : numbers)
        if (number > 0)
            (name += '-') += std::to_string(number);
    return cow_String(name += kSuffix);
}

bool IsNameOfOurs(std::string_view name) noexcept
{
    auto const skip = [&](char const* among) { name.remove_prefix(std::min(name.find_first_not_of(among), name.size())); };
    std::string_view const kind = name.starts_with(kMatrix) ? kMatrix : kContainer;
    if (!name.starts_with(kind))
        return false;
    name.remove_prefix(kind.size());
    std::size_t const length = name.size();
    skip("0123456789ABCDEF");
    if (length - name.size() != kAddressDigits)
        return false;
    for (int numbers = 0; numbers < 2 && name.size() > 1 && name[0] == '-' && name[1] >= '1' && name[1] <= '9'; ++numbers) {
        name.remove_prefix(1);
        skip("0123456789");
    }
    return name == kSuffix;
}

} // namespace

cow_String ScratchFiles::WorkingDirectory()
{
    try {
        return KVOBasUtlgetcwd();
    } catch (KVOBasPlatformException const& exception) {
        atr_String const text = exception.AsString();
        std::string_view reason = text.View();
        reason.remove_suffix(reason.ends_with('.')); // the new text gets one of its own
        KVOSimException("Cannot make a scratch file", "", std::string(reason).c_str(), KVOSimException::Kind::System)
            .Throw("mtx/impl/ScratchFiles", __LINE__);
    }
}

cow_String ScratchFiles::PathForMatrix(void const* owner)
{
    cow_String const directory = Directory();
    RemoveLeftoversOnce(directory);
    for (int attempt = 0;; ++attempt) {
        KVOBasUtlFilePath const path(directory, NameFor(kMatrix, owner, {getpid(), attempt}));
        if (!path.Exists())
            return path.Path();
    }
}

cow_String ScratchFiles::NameForContainer(void const* owner, int attempt)
{
    return NameFor(kContainer, owner, {attempt > 0 ? getpid() : 0, attempt > 1 ? attempt : 0});
}

void ScratchFiles::RemoveLeftoversOnce(cow_String const& directory)
{
    // Never destroyed: scratch matrices of static duration may come while the process ends.
    static auto& s_cleaned = *new std::set<std::string, std::less<>>;
    std::scoped_lock const lock(ProcessMutex<struct CleanedFolders>::Get());
    if (s_cleaned.contains(directory.View()))
        return;
    RemoveLeftovers(directory);
    s_cleaned.emplace(directory.View());
}

void ScratchFiles::RemoveLeftovers(cow_String const& directory) noexcept
{
    std::unique_ptr<DIR, int (*)(DIR*)> const folder(opendir(directory.c_str()), closedir);
    if (folder == nullptr)
        return;
    while (dirent const* const entry = readdir(folder.get()))
        if (IsNameOfOurs(entry->d_name))
            KVOSimDatabase::RemoveLeftScratch(dirfd(folder.get()), entry->d_name);
}
