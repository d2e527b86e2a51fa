#include "KVOSimTypeKey.h"

#include "KVOSimAssert.h"

int KVOSimTypeKeySize(int key)
{
    switch (key) {
    case KVOSimInt8:
    case KVOSimUInt8:
        return 1;
    case KVOSimInt32:
    case KVOSimFloat:
    case KVOSimUInt32:
    case KVOSimEnum32:
    case KVOSimReference32:
        return 4;
    case KVOSimDouble:
        return 8;
    default:
        // Text and line are what support staff search logs for.
        KVOSimAssert::ReportValidationFailure("!\"Illegal KVOSimTypeKey\"", "include/KVOSimTypeKey", 87);
    }
}
