#pragma once

#include <cmath>
#include <fstream>
#include <string>

/// Of this process in MiB; "VmRSS", or "VmHWM", the most since ForgetResidentPeak().
inline double Resident(std::string const& which)
{
    std::ifstream file("/proc/self/status");
    for (std::string key, rest; file >> key && std::getline(file, rest);)
        if (key == which + ":")
            return std::stod(rest) / 1024;
    return NAN;
}

inline void ForgetResidentPeak()
{
    std::ofstream("/proc/self/clear_refs") << "5";
}
