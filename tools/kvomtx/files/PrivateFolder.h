#pragma once

#include "Interrupt.h"

#include <functional>
#include <memory>
#include <string>

/// A new folder that nobody else may look into, for what is not to stay: scratch files, and outputs until they are complete. As the folder
/// is new and private, no name in it can be a link that somebody has laid. It goes with everything in it, also when the process is
/// interrupted.
///
/// A file in it says which process of which host has made it, and the folder is locked while it is in use. What killed processes have left
/// is removed by the next process that makes a private folder beside it: folders with a name that we make, of this user, marked so, whose
/// process was one of this host and has ended, and that nobody has locked. Everything else stays.
class PrivateFolder
{
public:
    /// Makes the folder `stem` + process id, with another number behind it where that is taken. Its mode is 0700.
    /// @param stem  ends with ".part" or "kvomtx-scratch-"
    /// @throws std::system_error with the system's number when it cannot be made; nothing is left then
    explicit PrivateFolder(std::string const& stem);
    PrivateFolder(PrivateFolder const&) = delete;
    PrivateFolder& operator=(PrivateFolder const&) = delete;
    ~PrivateFolder() = default;

    /// Whether a file stood in a private folder of this process, also one that has gone. What fails there is an output or a scratch file.
    static bool IsOurs(std::string const& path);

    std::string const& Path() const noexcept { return m_removable->Path(); }
    /// Does `keep`, which takes what is to stay out of the folder; the folder goes when that returns true. See Removable::Release().
    bool Release(std::function<bool()> const& keep) { return m_removable->Release(keep); }

private:
    /// An open folder, which holds its lock.
    struct Descriptor {
        int number = -1;
        ~Descriptor();
    };

    std::unique_ptr<Removable> m_removable;
    Descriptor m_descriptor;
};
