#pragma once

#include <mutex>
#include <pthread.h>

/// A lock of the whole process, one for each `Of`, for what objects of different threads share unseen. A child of
/// fork() finds it free and what it guards whole: while the child is made, the lock is held.
///
/// No thread takes one of these while it holds another, so that it does not matter in which order fork() takes them.
template<class Of>
class ProcessMutex
{
public:
    static std::mutex& Get() noexcept
    {
        static_cast<void>(s_registered);
        return s_mutex;
    }

private:
    static void Lock() { s_mutex.lock(); }
    static void Unlock() { s_mutex.unlock(); }

    static inline constinit std::mutex s_mutex; // plain and never destroyed
    // At load time: done at first use, it could be under way in another thread when a child is made, and never end
    // there.
    static inline int const s_registered = pthread_atfork(Lock, Unlock, Unlock);
};
