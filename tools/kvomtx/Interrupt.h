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

/// From here on SIGINT, SIGTERM and SIGHUP are requests to end: CheckInterrupt() throws. A step that does not come by there within two
/// seconds is not waited for: the files of all Removable are removed and the process ends. A second signal shortens the wait.
/// A write beyond a limit on file sizes becomes an error of that write instead of a signal.
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
    bool Release(std::function<bool()> const& keep);

private:
    std::string m_path;
    bool m_released = false;
};
