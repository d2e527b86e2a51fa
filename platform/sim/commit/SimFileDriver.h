#pragma once

#include <memory>

#include <hdf5.h>

namespace simdb
{

class DriverFile;

/// Sets our HDF5 file driver in a file access list; the file is then opened on `file`, whatever name HDF5 is given. False when HDF5 fails.
bool SetDriver(hid_t accessList, std::shared_ptr<DriverFile> const& file);

} // namespace simdb
