#pragma once

/// @file
/// The types of stored values and the kinds of drawers.

#include "KVOExport.h"

/// The types of stored values. The numbers are part of the files.
enum KVOSimTypeKey : int {
    KVOSimInt8 = 1,
    KVOSimInt32 = 2,
    KVOSimDouble = 3,
    KVOSimFloat = 4,
    KVOSimUInt8 = 5,
    KVOSimUInt32 = 6,
    KVOSimEnum32 = 7,
    KVOSimReference32 = 8,
};

/// Bytes of a value: 1 for keys 1 and 5, 4 for keys 2, 4, 6, 7 and 8, 8 for key 3. Any other key is a broken program:
/// the assertion stop "!\"Illegal KVOSimTypeKey\"" in include/KVOSimTypeKey, line 87.
KVO_EXPORT int KVOSimTypeKeySize(int key);

/// What drawers may hold: kind numbers that QueryDrawers reports.
enum KVOSimDrawerKind : int { KVOSimDenseDrawer = 1, KVOSimSparseDrawer = 3, KVOSimSparseSymDrawer = 4 };
