#pragma once

#include "Catalogue.h"

#include <memory>

namespace simdb
{

class Session;

/// What a client holds of an open transaction; outlives the database.
struct Transaction {
    std::weak_ptr<Session> session;
    Owner owner = kNoOwner;
};

} // namespace simdb
