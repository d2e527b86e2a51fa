#pragma once

#include "CommandLine.h"
#include "Validators.h"

#include "KVOSrvProductMemory.h"
#include "KVOSrvUtilities.h"
#include "mem_Allocator.h"

/// The option of commands that keep within a memory, `memory` being what it sets. @param work  what takes it, as "the product"
inline void AddMemory(CLI::App& command, std::string& memory, std::string const& work)
{
    AddOption(command, "--memory", memory, "Bytes that " + work + " may take, as 600M or 2G (half of what the process may have)",
              RequireBytes);
}

/// What it stands for.
inline std::int64_t StatedBytes(std::string const& memory)
{
    return memory.empty() ? static_cast<std::int64_t>(mem_MostBytes() / 2) : BytesOf(memory);
}

/// The memory for reading and writing matrix files, beside the matrix, as long as this lives. What needs more goes to `folder`.
class MemoryForFiles
{
public:
    MemoryForFiles(std::string const& memory, std::string const& folder) : m_limit(StatedBytes(memory))
    {
        KVOSrvUtilities::SetTempDirectory(cow_String(folder.c_str()));
    }

private:
    KVOSrvProductMemory m_limit;
};
