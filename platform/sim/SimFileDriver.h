#pragma once

#include "HeldWrites.h"

#include <cstdint>
#include <memory>

#include <hdf5.h>

namespace simdb
{

/// What HDF5's driver and File share of one open file.
///
/// Values (H5FD_MEM_DRAW) go straight to the descriptor. All else that HDF5 writes is held here until the commit, and read from here.
/// Freed space is not used again, and the end never moves back: what the last commit refers to stays as it is.
struct DriverFile {
    int descriptor = -1;
    bool isNew = false;                  ///< HDF5 is to begin an empty file, whatever is in it
    bool discarding = false;             ///< nothing that is written from here on is of use
    bool closing = false;                ///< HDF5 closes the file; it would keep a broken identifier of one that it cannot write
    int closingError = 0;                ///< why a write failed meanwhile
    bool finding = false;                ///< HDF5 is asked where values are: none are moved
    std::uint64_t end = 0;               ///< of what HDF5 has allocated
    std::uint64_t valuesAt = UINT64_MAX; ///< where HDF5 last moved values, or would have
    HeldWrites held;
};

/// The source file that our driver's records on HDF5's error stack name; their line is the system's error number.
inline constexpr char kDriverErrors[] = "SimFileDriver";

/// Sets our driver in a file access list; the file is then opened on `file`, whatever name HDF5 is given. False when HDF5 fails.
bool SetDriver(hid_t accessList, std::shared_ptr<DriverFile> const& file);

} // namespace simdb
