#pragma once

#include "KVOSimException.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

/// A process of its own that runs `run` and ends with what it returns, 98 after an exception.
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
        if (m_id == 0)
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
