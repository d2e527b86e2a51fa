#pragma once

#include "ChildProcess.h"
#include "Hdf5.h"
#include "SimFailure.h"
#include "SimFile.h"
#include "TemporaryFolder.h"

#include <memory>
#include <string>

/// What a program does to a database in the tests of faults and crashes: commits that are numbered from 1, each of which can be checked.
///
/// Commit k removes a dataset that the commit before made last (so that HDF5 may want to use its space), makes a group with a chunked
/// drawer in it, and extends the drawer that all commits share, whose size tells the number of commits. Values that an earlier commit left
/// are not overwritten: only those may be torn by a crash.
namespace workload
{

using FilePointer = std::shared_ptr<simdb::File>;

/// Everything of commit `number`, but for the commit itself.
void Change(FilePointer const& file, int number);

/// The number of the last commit in the file; 0 when there is none. Fails the test when any of it and of those before is not whole.
int CheckedCommits(FilePointer const& file);
int CommitsIn(std::string const& path, bool readOnly = true);

/// Commits `first` to `last`.
void Commit(FilePointer const& file, int first, int last);

/// The open database `path`, new, of some commits.
FilePointer NewDatabase(std::string const& path, int commits);

/// A database of `commits` commits of which the last is in the journal only: what a kill behind the writing of the journal leaves.
void MakeUnapplied(std::string const& path, int commits);

/// For tests of a file a.sim, with its journal.
class FileTest : public testing::Test
{
protected:
    TemporaryFolder const folder{FolderWithoutDisk()};
    std::string const path = folder / "a.sim", journal = path + ".journal";
};

} // namespace workload
