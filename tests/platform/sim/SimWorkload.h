#pragma once

#include "SimFile.h"

#include <string>

/// What a program does to a database in the tests of faults and crashes: commits that are numbered from 1, each of which can be checked.
///
/// Commit k removes a dataset that the commit before made last (so that HDF5 may want to use its space), makes a group with an attribute
/// and a chunked dataset in it, extends the dataset that all commits share, and sets the number of the last commit. Values that an earlier
/// commit left are not overwritten: only those may be torn by a crash.
namespace workload
{

/// Everything of commit `number`, but for the commit itself.
void Change(simdb::File& file, int number);

/// The number of the last commit in the file; 0 when there is none. Fails the test when any of it and of those before is not whole.
int CheckedCommits(simdb::File& file);

/// Where files need no disk: for tests of what the system calls leave in a file, of which most of the time would be waiting for syncs.
std::string FolderWithoutDisk();

} // namespace workload
