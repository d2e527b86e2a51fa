#pragma once

#include <exception>
#include <functional>
#include <string>

/// Ctrl-C, thrown at the next CheckInterrupt().
class Interrupted : public std::exception
{
public:
    char const* what() const noexcept override { return "interrupted"; }
};

/// From the program's start SIGINT, SIGTERM and SIGHUP are held back; from here on they are requests to end: CheckInterrupt() throws. A
/// step that does not come by there within a second and a half is not waited for: the files of all Removable are removed and the process
/// ends. A second signal shortens the wait. Those that the caller has made ignored stay so. A write beyond a limit on file sizes or into a
/// closed pipe becomes an error of that write instead of a signal.
/// @param milliseconds  that are waited; the rest of two seconds is for removing a large factor
/// @param tells         a line says that the process was interrupted where it ends so
/// @throws ToolError kCannot when no thread can be had to watch
void WatchSignals(int milliseconds = 1500, bool tells = true);

/// @throws Interrupted once a signal has come
void CheckInterrupt();

/// Removes a folder with everything in it, as far as that goes; the file `last` in it after all others.
void RemoveFolder(std::string const& path, char const* last);

/// A folder that is removed with this object and when the process is interrupted.
class Removable
{
public:
    /// @param last  the file in it that goes last; lives as long as the program
    Removable(std::string path, char const* last);
    ~Removable();
    Removable(Removable const&) = delete;
    Removable& operator=(Removable const&) = delete;

    std::string const& Path() const noexcept { return m_path; }
    /// Does `keep`, for instance a rename of what is to stay, and removes the folder when that returns true. Not torn by an interruption.
    /// @throws Interrupted once a signal has come, unless another one was kept before: the outputs of a command belong together
    bool Release(std::function<bool()> const& keep);

private:
    std::string m_path;
    char const* m_last;
    bool m_released = false;
};
