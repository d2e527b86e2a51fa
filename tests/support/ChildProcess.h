#pragma once

#include "KVOSimException.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

/// A process of its own that runs `run` and ends with what it returns, 98 after an exception; it does not outlive this one.
class ChildProcess
{
public:
    template<class Run>
    explicit ChildProcess(Run const& run)
    {
        std::fflush(nullptr);
        m_id = fork();
        if (m_id < 0)
            throw std::runtime_error("no child process");
        if (m_id > 0)
            return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(ExitCode(run));
    }
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;
    ~ChildProcess()
    {
        if (m_id > 0)
            Kill();
    }

    void Kill()
    {
        kill(m_id, SIGKILL);
        Wait();
    }
    /// Its exit code, or minus the signal that ended it.
    int Wait()
    {
        int status = 0;
        while (waitpid(m_id, &status, 0) < 0 && errno == EINTR) {
        }
        m_id = -1;
        return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }

private:
    template<class Run>
    static int ExitCode(Run const& run)
    {
        try {
            return run();
        } catch (KVOBasException const& exception) {
            std::fprintf(stderr, "%s\n", exception.DeveloperReport().c_str());
        } catch (std::exception const& exception) {
            std::fprintf(stderr, "%s\n", exception.what());
        }
        return 98;
    }

    pid_t m_id;
};

/// Pipe through which a child process says how far it has come.
class Reports
{
public:
    Reports()
    {
        if (pipe(m_ends.data()) != 0)
            throw std::runtime_error("no pipe");
    }
    Reports(Reports const&) = delete;
    Reports& operator=(Reports const&) = delete;
    ~Reports()
    {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    void Send(int number) const
    {
        if (write(m_ends[1], &number, sizeof number) != sizeof number)
            _exit(97);
    }
    /// Waits for the next one; 0 when the sender is dead and has sent no more. For the receiver, once the sender has been started.
    int Next()
    {
        close(std::exchange(m_ends[1], -1));
        int number = 0;
        return read(m_ends[0], &number, sizeof number) == sizeof number ? number : 0;
    }
    /// The last one, when the sender is dead; 0 if none was sent.
    int Last()
    {
        int last = 0;
        while (int const number = Next())
            last = number;
        return last;
    }

private:
    std::array<int, 2> m_ends;
};
