#pragma once

#include "KVOSimException.h"

#include <pybind11/pybind11.h>

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <vector>

/// What the library takes for one object, with all that refers to it: a database, a scratch matrix, a sparse matrix. One thread at a time
/// is in it; the lock is taken without the interpreter's, so that neither waits for the other.
class Home
{
public:
    Home() = default;
    Home(Home const&) = delete;
    Home& operator=(Home const&) = delete;
    virtual ~Home() = default;

    /// Of a database only: failures are then said to be of that.
    virtual bool IsClosed() const noexcept { return false; }

    // Taken again by a thread that has it: a callback of Python may let go of a matrix.
    std::recursive_mutex mutex;
};

/// A failure of a database that was closed.
struct ClosedDatabase {
    KVOSimException failure;
};

/// The locks of several homes, in an order that all threads keep.
class Held
{
public:
    explicit Held(std::vector<Home*> homes) : m_homes(std::move(homes))
    {
        std::sort(m_homes.begin(), m_homes.end(), std::less<>());
        for (Home* const home : m_homes)
            home->mutex.lock();
    }
    Held(Held const&) = delete;
    Held& operator=(Held const&) = delete;
    ~Held()
    {
        for (Home* const home : m_homes)
            home->mutex.unlock();
    }

    bool IsSomeClosed() const noexcept
    {
        return std::any_of(m_homes.begin(), m_homes.end(), [](Home const* home) { return home->IsClosed(); });
    }

private:
    std::vector<Home*> m_homes;
};

/// Does `work` with the library, alone in these homes and without the interpreter's lock. It touches nothing of Python.
template<class Work>
auto Alone(std::initializer_list<Home*> homes, Work const& work)
{
    pybind11::gil_scoped_release const released;
    Held const held(homes);
    try {
        return work();
    } catch (KVOSimException const& failure) {
        if (held.IsSomeClosed())
            throw ClosedDatabase{failure};
        throw;
    }
}
