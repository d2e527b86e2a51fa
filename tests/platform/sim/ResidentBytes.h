#pragma once

#include <cstdint>
#include <fstream>
#include <string>

/// Bytes of the file that are mapped into this process at the moment.
inline std::uint64_t ResidentBytes(std::string const& path)
{
    std::ifstream maps("/proc/self/smaps");
    std::uint64_t bytes = 0;
    bool ours = false;
    for (std::string line; std::getline(maps, line);)
        if (line.find('-') < line.find(' ')) // the first line of a mapping begins with its addresses
            ours = line.ends_with(path);
        else if (ours && line.starts_with("Rss:"))
            bytes += std::stoull(line.substr(4)) << 10;
    return bytes;
}
