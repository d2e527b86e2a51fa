#pragma once

#include "KVOSimCheck.h"

namespace simdb
{

class Session;

/// Goes through all that a database that is open for reading holds; see KVOSimDatabase::Check().
KVOSimCheckReport CheckDatabase(Session const& session);

} // namespace simdb
