#pragma once

#include "KVOSimArray.h"
#include "KVOSimIdentifiers.h"

#include <cstddef>
#include <functional>
#include <string>

class KVOSrvBlockWriter;
class Ranks;

/// Lets all ranks write a new matrix of a transaction that rank 0 has begun, and returns when all of it is on the disk: the commit may
/// follow. To be called by all.
/// @param path   of the database  @param matrix  the distribution, on rank 0
/// @param write  writes what this rank has
/// @throws EndedTogether when it failed on any of them, or they do not see one file
void WriteTogether(Ranks const& ranks, std::string const& path, KVOSimDistributionID const& matrix,
                   std::function<void(KVOSrvBlockWriter& writer)> const& write);
