#pragma once

#include "KVOExport.h"

#include <cstdint>

/// @file
/// Reads files of unformatted sequential Fortran records, as `write(unit) a, b, c` leaves them, by unit number.
///
/// A record is its items without gaps, between two 4-byte little-endian markers that hold its length. A record too long
/// for a marker (or for the writer's limit) is split into sub-records, each with its own pair: the leading marker is
/// negative when another sub-record follows, the trailing one when another came before. Nothing in the file tells types
/// or counts: the reader has to know them.
///
/// Nothing is believed that the file does not hold: a marker that points beyond the end, markers that do not match and
/// a record that is cut off are reported. Every function returns a status and leaves the unit usable for for_close().
///
/// The functions have C++ linkage on purpose: the Fortran runtime of a host may bring C symbols of the same names.
/// Units belong to the calling thread, which closes what it left open when it ends.

/// What the functions return.
enum KVOForStatus : int {
    KVOForEndOfFile = -1,  ///< there is no further record
    KVOForOk = 0,          ///< done as described
    KVOForOpenFailure = 1, ///< the file does not exist, may not be read, or is not a regular file
    KVOForNotOpen = 2,     ///< the unit is not open
    KVOForMalformed = 3,   ///< the markers contradict each other or the file's length, or the file cannot be read
    KVOForEndOfRecord = 4, ///< the record holds fewer bytes than asked for
    KVOForBadArgument = 5  ///< a negative count or size, or more bytes than exist
};

/// Opens `path` for reading on `unit`, in front of its first record. A file that was open on the unit is closed first.
/// @throws mem_OutOfMemory
KVO_EXPORT KVOForStatus for_open(int unit, char const* path);

/// Goes to the next record: the first one after for_open(), else the one after the current; what was not transmitted of
/// that is skipped.
KVO_EXPORT KVOForStatus for_read_seq(int unit);

/// Transmits the next `count` items of `itemBytes` bytes of the current record.
///
/// @param[out] items  receives them, as the file holds them; null skips them. Its content is undefined unless the
/// status is KVOForOk
/// @return also KVOForEndOfRecord in front of the first record
KVO_EXPORT KVOForStatus for_read_seq_xmit(int unit, void* items, std::int64_t count, std::int64_t itemBytes);

/// Where a unit stands in its file.
struct KVOForPlace {
    std::int64_t record = 0; ///< byte of the marker that begins the current record; at the end of the file its size
    std::int64_t fault = -1; ///< byte of what is wrong, after KVOForMalformed; else -1
    char const* reason = ""; ///< what was expected there and what was found; lives until the unit is closed
};

/// Tells where the unit stands and why its last call returned KVOForMalformed.
KVO_EXPORT KVOForStatus for_inquire(int unit, KVOForPlace& place);

/// Closes the unit.
KVO_EXPORT KVOForStatus for_close(int unit);
