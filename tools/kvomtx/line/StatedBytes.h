#pragma once

#include "CommandLine.h"
#include "Validators.h"
#include "mem_Allocator.h"

/// The option of commands that multiply, `memory` being what it sets.
inline void AddMemory(CLI::App& command, std::string& memory)
{
    AddOption(command, "--memory", memory, "Bytes that the product may take, as 600M or 2G (half of what the process may have)",
              RequireBytes);
}

/// What it stands for.
inline std::int64_t StatedBytes(std::string const& memory)
{
    return memory.empty() ? static_cast<std::int64_t>(mem_MostBytes() / 2) : BytesOf(memory);
}
