#include "MemoryLimit.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <new>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>

namespace
{

// SIZE_MAX: no such file, or no limit in it ("max").
std::size_t NumberIn(std::string const& path)
{
    std::size_t number = SIZE_MAX;
    std::ifstream file(path);
    return file >> number ? number : SIZE_MAX;
}

bool Lists(std::string const& words, std::string const& word)
{
    std::istringstream list(words);
    for (std::string listed; std::getline(list, listed, ',');)
        if (listed == word)
            return true;
    return false;
}

// The lines are <number>:<controllers>:<path>; version 2 has no controllers in its line.
std::string PathOf(std::string const& controller, std::string const& groups)
{
    std::ifstream file(groups);
    for (std::string number, controllers, path;
         std::getline(file, number, ':') && std::getline(file, controllers, ':') && std::getline(file, path);)
        if (controller.empty() ? controllers.empty() : Lists(controllers, controller))
            return path;
    return {};
}

std::size_t MachineAndGroups() noexcept
{
    long const pages = sysconf(_SC_PHYS_PAGES), pageBytes = sysconf(_SC_PAGESIZE);
    std::size_t const machine =
        pages > 0 && pageBytes > 0 ? static_cast<std::size_t>(pages) * static_cast<std::size_t>(pageBytes) : SIZE_MAX;
    try {
        return std::min(machine, ControlGroupMemory("/proc/self/cgroup", "/proc/self/mountinfo"));
    } catch (std::bad_alloc const&) {
        return machine; // there is no memory left to look it up
    }
}

} // namespace

std::size_t ControlGroupMemory(std::string const& groups, std::string const& mounts)
{
    std::size_t least = SIZE_MAX;
    std::ifstream file(mounts);
    for (std::string line; std::getline(file, line);) {
        std::istringstream fields(line);
        std::string skipped, root, point, type, options;
        fields >> skipped >> skipped >> skipped >> root >> point;
        while (fields >> skipped && skipped != "-") {
        }
        fields >> type >> skipped >> options;
        bool const unified = type == "cgroup2";
        if (!unified && (type != "cgroup" || !Lists(options, "memory")))
            continue;
        std::string const path = PathOf(unified ? "" : "memory", groups);
        // A container may see no more than its own part of the tree.
        std::string directory = point;
        directory += '/';
        directory += path.starts_with(root) ? path.substr(root.size()) : path;
        for (;;) {
            directory.erase(directory.find_last_not_of('/') + 1);
            if (directory.size() < point.size())
                break;
            least = std::min(least, NumberIn(directory + (unified ? "/memory.max" : "/memory.limit_in_bytes")));
            directory.erase(std::min(directory.rfind('/'), directory.size()));
        }
    }
    return least;
}

std::size_t MemoryLimit() noexcept
{
    static std::size_t const s_machineAndGroups = MachineAndGroups();
    std::size_t least = s_machineAndGroups;
    for (auto const which : {RLIMIT_AS, RLIMIT_DATA}) {
        rlimit limit{};
        if (getrlimit(which, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
            least = std::min(least, static_cast<std::size_t>(limit.rlim_cur));
    }
    return least;
}
