#pragma once

#include "KVOExport.h"

/// Base of request objects.
class KVO_EXPORT KVOSrvDataRequest
{
public:
    virtual ~KVOSrvDataRequest();
};
