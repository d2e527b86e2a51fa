#pragma once

#include <mutex>
#include <pthread.h>

/// A lock of the whole process, one for each `Of`, for what objects of different threads share unseen. A child of fork() finds it free and
/// what it guards whole: while the child is made, the lock is held.
///
/// No thread takes one of these while it holds another, so that it does not matter in which order fork() takes them.
template<class Of>
class ProcessMutex
{
public:
    static std::mutex& Get() noexcept
    {
        // Should the system have no memory for it, only a child of fork() would miss it.
        [[maybe_unused]] static int const s_registered = pthread_atfork(Lock, Unlock, Unlock);
        return s_mutex;
    }

private:
    static void Lock() { s_mutex.lock(); }
    static void Unlock() { s_mutex.unlock(); }

    static inline constinit std::mutex s_mutex; // plain and never destroyed
};
