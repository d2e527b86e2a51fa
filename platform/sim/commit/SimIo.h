#pragma once

#include "Descriptor.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// The system calls that change a database's files, each 0 or an errno. They go on after signals and short transfers, and refuse what
/// RLIMIT_FSIZE forbids with EFBIG, instead of the signal SIGXFSZ that would end the process.
///
/// Beneath them is the C library: tests stand in front of its functions to let them fail, to kill the process or to watch.
namespace simdb::io
{

/// Whether RLIMIT_FSIZE forbids a file of that length.
bool ExceedsLimit(std::uint64_t end) noexcept;
int Write(int descriptor, void const* data, std::size_t bytes, std::uint64_t offset) noexcept;
/// Reads up to the end of the file; `read` says how much there was.
int Read(int descriptor, void* data, std::size_t bytes, std::uint64_t offset, std::size_t& read) noexcept;
/// fdatasync.
int Sync(int descriptor) noexcept;
int SetLength(int descriptor, std::uint64_t length) noexcept;
/// Takes room on the disk for [offset, offset + bytes) and lengthens the file to hold it; where a file system cannot, it lengthens only.
int Reserve(int descriptor, std::uint64_t offset, std::uint64_t bytes) noexcept;
/// Opens the file for reading and writing, making it where it is missing; never through a symbolic link.
int OpenOrMake(std::string const& path, unsigned mode, Descriptor& file) noexcept;
int Remove(std::string const& path) noexcept;
/// Makes the names in the folder of `path` durable.
int SyncFolderOf(std::string const& path) noexcept;

} // namespace simdb::io
