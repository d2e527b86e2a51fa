#pragma once

#include <cstdint>

/// Work in pieces, by the threads that the host lends (KVOSrvParallel), else by the calling thread.
namespace blac
{

/// What is in force for a thread.
struct HostThreads {
    void (*run)(void* context, int tasks, void (*task)(void* data, int index), void* data) = nullptr; ///< null: none
    void* context = nullptr;
    int count = 1;
};

/// Puts `threads` in force for the calling thread. @return what was
HostThreads ExchangeHostThreads(HostThreads threads) noexcept;

/// How many pieces can be worked on at once: 1 where no threads are lent and inside a task.
int ThreadsForTasks() noexcept;

constexpr int kMostThreads = 256;
constexpr int kPiecesPerThread = 4; // so that a thread that is held up for a while does not hold up the whole
constexpr int kMostTasks = kMostThreads * kPiecesPerThread;

/// Into how many pieces to cut work of `size` units when pieces cost nothing: some for each thread, none of fewer than `least` units.
int PiecesFor(std::int64_t size, std::int64_t least) noexcept;

/// Where piece `piece` of `pieces` of `size` units begins; that of piece `pieces` is `size`.
constexpr std::int64_t PieceBegin(std::int64_t size, int pieces, int piece) noexcept
{
    return size / pieces * piece + size % pieces * piece / pieces;
}

/// See InTasks().
void RunTasks(int count, void (*body)(void const* data, int index), void const* data);

/// body(index) for each index from 0 to count - 1, kMostTasks at the most, in any order and at the same time; without threads one after
/// the other. A body sees what the caller wrote before, the caller what the bodies wrote. Inside a body there are no threads in force.
/// @throws what body(index) throws for the lowest index that throws, and what KVOSrvParallel says of `run`. With threads every body has
/// ended then; without, those behind did not begin
template<class Body>
void InTasks(int count, Body const& body)
{
    RunTasks(
        count, [](void const* data, int index) { (*static_cast<Body const*>(data))(index); }, &body);
}

} // namespace blac
