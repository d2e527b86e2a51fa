#pragma once

#include "DRXUnicodeString.h"
#include "KVOSimArray.h"

#include <cstdint>

/// What is wrong with a database.
struct KVOSimDamage {
    int context;           ///< its number, as in the file
    int distribution = -1; ///< index of the matrix; -1: the damage is in the catalogue
    int drawer = -1;       ///< of the distribution
    DRXUnicodeString what; ///< in a sentence
};

/// What a check of a database has seen.
struct KVOSimCheckReport {
    int drawers = 0;         ///< how many there are
    std::int64_t pieces = 0; ///< chunks, and arrays that lie in one piece, whose places were looked at
    std::int64_t values = 0; ///< chunks, and arrays of sparse matrices, whose values were compared with their checksums
    bool hasChecksums = false;         ///< of the catalogue and the places of values: not in files of format version 1
    KVOSimArray<KVOSimDamage> damages; ///< all of them, in the order in which they were met
};
