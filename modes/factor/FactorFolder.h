#pragma once

#include <string>

/// A folder of its own for the files of a factor, whose names MUMPS chooses, inside that for scratch files. It goes with everything in it.
///
/// What killed processes have left goes when the next such folder is made beside it: folders with a name that we make, of this user, that
/// hold the mark of a process of this host that has ended, and that nobody has locked. Everything else stays.
class FactorFolder
{
public:
    /// Makes it, of mode 0700.
    /// @throws KVOSrvModesFailure Disk
    explicit FactorFolder(std::string const& parent);
    FactorFolder(FactorFolder const&) = delete;
    FactorFolder& operator=(FactorFolder const&) = delete;
    ~FactorFolder();

    std::string const& Path() const noexcept { return m_path; }

private:
    std::string m_path;
    int m_descriptor = -1; // holds the lock
};
