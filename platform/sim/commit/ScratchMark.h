#pragma once

/// By which the file of a scratch database is known again: where a persistent file has its FileMark, and only while nothing that is held
/// back has been written, which a scratch file's is never. Functions take the file's descriptor.
namespace simdb::scratch_mark
{

/// Marks the file as a scratch database of this process. @return 0 or an errno
int Write(int descriptor) noexcept;
/// Whether the file is a scratch database whose process is gone from this host.
bool IsLeftBehind(int descriptor) noexcept;

} // namespace simdb::scratch_mark
