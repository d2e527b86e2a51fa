#include "Hdf5Guard.h"

#include "AddressSanitizer.h"
#include "mem_Allocator.h"

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <pthread.h>

#include <hdf5.h>

namespace simdb
{

namespace
{

// Not a recursive mutex: a child of fork() could not give that back.
constinit std::mutex s_mutex;
constinit std::atomic<pthread_t> s_holder{0}; // 0, the address of no thread: none

// Of the holder.
int s_depth = 0;
H5E_auto2_t s_report = nullptr;
void* s_reportData = nullptr;
void* s_spare = nullptr; // kReserve bytes for who cannot refuse

bool IsHolder() noexcept
{
    return s_holder.load(std::memory_order_relaxed) == pthread_self();
}

void LockForFork()
{
    if (!IsHolder())
        s_mutex.lock();
}

void UnlockAfterFork()
{
    if (!IsHolder())
        s_mutex.unlock();
}

// At load time: done at first use, it could be under way in another thread when a child is made, and never end there.
[[maybe_unused]] int const s_forkHandlers = pthread_atfork(LockForFork, UnlockAfterFork, UnlockAfterFork);

void SilenceClosing()
{
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

// Called where HDF5 would print. It loses memory in some failures, a chunk that it could not write for one, and when the process ends it
// complains of that ("infinite loop closing library") to whoever has its printing on. HDF5 is in use here, so its own exit handler is
// registered already, and this one runs before it.
herr_t NoteFailure(hid_t, void*)
{
    [[maybe_unused]] static int const s_registered = std::atexit(SilenceClosing);
    return 0;
}

// By malloc, which HDF5 calls itself: what one call of it has released in this thread, the next finds. Not of the address sanitizer's,
// which would spend most of a test's time on it.
bool CanBeHad(std::size_t bytes) noexcept
{
    if (kAddressSanitized)
        return true;
    void* const volatile memory = std::malloc(bytes); // volatile, or the compiler takes the pair away
    bool const had = memory != nullptr;
    std::free(memory);
    return had;
}

bool KeepSpare() noexcept
{
    if (s_spare == nullptr)
        s_spare = std::malloc(Hdf5Guard::kReserve);
    return s_spare != nullptr;
}

} // namespace

Hdf5Guard::Hdf5Guard(std::size_t bytes)
{
    Enter();
    bool const isInner = s_depth > 1;
    if ((isInner && bytes <= kReserve) || (KeepSpare() && CanBeHad(bytes))) {
        Silence();
        return;
    }
    Leave();
    throw mem_OutOfMemory(bytes);
}

Hdf5Guard::Hdf5Guard(std::nothrow_t) noexcept
{
    Enter();
    std::free(s_spare);
    s_spare = nullptr;
    Silence();
}

Hdf5Guard::~Hdf5Guard()
{
    if (s_depth == 1) {
        H5Eset_auto2(H5E_DEFAULT, s_report, s_reportData);
        KeepSpare();
    }
    Leave();
}

void Hdf5Guard::Enter() noexcept
{
    if (!IsHolder()) {
        s_mutex.lock();
        s_holder.store(pthread_self(), std::memory_order_relaxed);
    }
    ++s_depth;
}

void Hdf5Guard::Leave() noexcept
{
    if (--s_depth > 0)
        return;
    s_holder.store(0, std::memory_order_relaxed);
    s_mutex.unlock();
}

void Hdf5Guard::Silence() noexcept
{
    if (s_depth > 1)
        return;
    H5Eget_auto2(H5E_DEFAULT, &s_report, &s_reportData);
    H5Eset_auto2(H5E_DEFAULT, NoteFailure, nullptr);
}

} // namespace simdb
