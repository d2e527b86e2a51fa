#pragma once

#include <cstddef>
#include <string>

/// The most bytes that this process can have: the least of the machine's memory, of its control groups' limits (looked
/// up once) and of its limits of address space and data, which the host may change at any time.
std::size_t MemoryLimit() noexcept;

/// The least memory limit of the control groups that a process is in and of all groups around them, versions 1 and 2;
/// SIZE_MAX when there is none.
///
/// @param groups  file in the form of /proc/self/cgroup
/// @param mounts  file in the form of /proc/self/mountinfo
std::size_t ControlGroupMemory(std::string const& groups, std::string const& mounts);
