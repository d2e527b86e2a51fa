#pragma once

#include "cow_String.h"

/// Scratch database files, those of scratch matrices above all.
namespace ScratchFiles
{

/// @throws KVOSimException when it is gone
cow_String WorkingDirectory();

/// The absolute path of a new scratch file for the object at `owner`, in the directory for scratch files; nothing of that name exists.
/// The first time in a directory, files that killed processes have left there are removed.
/// @throws KVOSimException when the working directory is needed and gone
cow_String PathFor(void const* owner);

/// Removes the file `path`, unless somebody uses it: whoever does has it locked.
/// @return whether the name is free now
bool RemoveIfUnused(cow_String const& path) noexcept;

/// Removes the scratch files in `directory` that nobody uses. What cannot be looked at or removed stays.
void RemoveLeftovers(cow_String const& directory) noexcept;

} // namespace ScratchFiles
