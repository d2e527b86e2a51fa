#pragma once

#include "cow_String.h"

/// The scratch database files of matrices and containers.
namespace ScratchFiles
{

/// @throws KVOSimException when it is gone
cow_String WorkingDirectory();

/// The absolute path of a new file for the scratch matrix at `owner`, in the directory for scratch files; nothing of that name exists.
/// @throws KVOSimException when the working directory is needed and gone
cow_String PathForMatrix(void const* owner);
/// The name of a file for the container at `owner`. @param attempt  0: after the address only; 1: with the process id; further ones
/// with a number, too
cow_String NameForContainer(void const* owner, int attempt);

/// The first time in a directory, removes what killed processes have left there: files that have exactly a name of those above, are
/// marked as scratch databases, and are of no process of this host any more; nobody has them locked. Everything else stays.
void RemoveLeftoversOnce(cow_String const& directory);
/// The same, each time.
void RemoveLeftovers(cow_String const& directory) noexcept;

} // namespace ScratchFiles
