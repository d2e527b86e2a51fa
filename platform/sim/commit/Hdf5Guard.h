#pragma once

#include <cstddef>
#include <new>

namespace simdb
{

/// The way into HDF5: a function has one around its calls of HDF5, as short as it can be; they nest in one thread. While it lives,
///
/// 1. no other thread is in HDF5, which has no locks of its own: its driver, its list of identifiers and its errors belong to the process.
///    What is done beside HDF5, moving values and syncing above all, is done without a guard, so that it goes on in several threads;
/// 2. HDF5 does not print its errors. What the host has set is in force again afterwards, but for HDF5's end with the process once
///    there was an error;
/// 3. there was memory when it was made: HDF5 crashes or stays broken when its own allocations fail, so that memory runs out here, before
///    it is called. Other threads may take that memory in between.
class Hdf5Guard
{
public:
    /// Enough for any call but those whose need grows with what the file holds.
    static constexpr std::size_t kReserve = std::size_t(1) << 20;

    /// @param bytes  what HDF5 may need; within another guard only a number above kReserve is looked at
    /// @throws mem_OutOfMemory when they cannot be had; HDF5 is not entered then
    explicit Hdf5Guard(std::size_t bytes = kReserve);
    /// For what cannot refuse, releasing above all: HDF5 gets kReserve bytes that were kept back for it.
    explicit Hdf5Guard(std::nothrow_t) noexcept;
    Hdf5Guard(Hdf5Guard const&) = delete;
    Hdf5Guard& operator=(Hdf5Guard const&) = delete;
    ~Hdf5Guard();

private:
    static void Enter() noexcept;
    static void Leave() noexcept;
    static void Silence() noexcept;
};

} // namespace simdb
