#include "KVOSrvDataRequest.h"

KVOSrvDataRequest::~KVOSrvDataRequest() = default;
