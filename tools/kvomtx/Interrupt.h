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
/// step that does not come by there within two seconds is not waited for: the files of all Removable are removed and the process ends. A
/// second signal shortens the wait. Those that the caller has made ignored stay so. A write beyond a limit on file sizes or into a closed
/// pipe becomes an error of that write instead of a signal.
void WatchSignals();

/// @throws Interrupted once a signal has come
void CheckInterrupt();

/// A file or a folder, with the journal of a database beside it, that is removed with this object and when the process is interrupted.
class Removable
{
public:
    explicit Removable(std::string path);
    ~Removable();
    Removable(Removable const&) = delete;
    Removable& operator=(Removable const&) = delete;

    std::string const& Path() const noexcept { return m_path; }
    /// Does `keep`, for instance a rename; when it returns true there is nothing to be removed any more. Not torn by an interruption.
    /// @throws Interrupted once a signal has come, unless another one was kept before: the outputs of a command belong together
    bool Release(std::function<bool()> const& keep);

private:
    std::string m_path;
    bool m_released = false;
};
