#pragma once

#include "KVOSrvInterrupt.h"

#include <pybind11/pybind11.h>

#include <chrono>
#include <optional>

/// Ends a call of the library; what is to be raised is with whom that threw it.
struct Stopped {
};

/// The result of `work`, which reads or writes matrix files in this thread, without the interpreter's lock. Handlers of Python's signals
/// run meanwhile; what they raise, KeyboardInterrupt above all, ends the work.
template<class Work>
auto Interruptible(Work const& work)
{
    using Clock = std::chrono::steady_clock;
    struct Watch {
        std::optional<pybind11::error_already_set> error;
        Clock::time_point next{};

        static void Check(void* context)
        {
            auto& [error, next] = *static_cast<Watch*>(context);
            if (Clock::now() < next)
                return;
            {
                pybind11::gil_scoped_acquire const acquired;
                if (PyErr_CheckSignals() != 0)
                    error.emplace();
            }
            if (error)
                throw Stopped();
            next = Clock::now() + std::chrono::milliseconds(10); // the lock may be waited for, while other threads are in Python
        }
    } watch;
    try {
        KVOSrvInterrupt const interrupt(&Watch::Check, &watch);
        return work();
    } catch (Stopped const&) {
        throw pybind11::error_already_set(*watch.error);
    }
}
