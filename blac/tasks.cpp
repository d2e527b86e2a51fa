#include "tasks.h"

#include "KVOSrvMtxExceptions.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <utility>

namespace
{

constexpr char kSource[] = "blac/tasks";

using blac::HostThreads;

thread_local HostThreads s_inForce;

// The tasks of one operation. What the host calls is checked, since a piece that is left out or runs twice gives wrong results without a
// word, and one that runs on after the operation writes to memory of others.
class Group
{
public:
    void Run(HostThreads const& host, int count, void (*body)(void const*, int), void const* data)
    {
        m_count = count;
        m_body = body;
        m_data = data;
        m_failedIndex = count;
        m_failure = nullptr;
        m_ended.store(0, std::memory_order_relaxed);
        for (int index = 0; index < count; ++index)
            m_begun[index].store(false, std::memory_order_relaxed);
        m_misused.store(false, std::memory_order_release);

        std::exception_ptr const failureOfRun = CallHost(host);
        bool const misused = Complete();
        if (m_failure)
            std::rethrow_exception(std::exchange(m_failure, nullptr));
        if (failureOfRun)
            std::rethrow_exception(failureOfRun);
        if (misused)
            KVOSrvMtxRefusedInput("KVOSrvParallel", "run", "it returned before every task had ended, or called one twice or not at all")
                .Throw(kSource, __LINE__);
    }

private:
    static void Task(void* group, int index) { static_cast<Group*>(group)->RunOne(index); }

    std::exception_ptr CallHost(HostThreads const& host) noexcept
    {
        try {
            host.run(host.context, m_count, Task, this);
        } catch (...) {
            return std::current_exception();
        }
        return nullptr;
    }

    void RunOne(int index) noexcept
    {
        if (index < 0 || index >= m_count || m_begun[index].exchange(true, std::memory_order_acq_rel)) {
            m_misused.store(true, std::memory_order_relaxed);
            return;
        }
        HostThreads const former = blac::ExchangeHostThreads({});
        try {
            m_body(m_data, index);
        } catch (...) {
            Keep(index, std::current_exception());
        }
        blac::ExchangeHostThreads(former);
        m_ended.fetch_add(1, std::memory_order_release);
        m_ended.notify_one();
    }

    void Keep(int index, std::exception_ptr failure) noexcept
    {
        std::lock_guard const lock(m_mutex);
        if (index < m_failedIndex) {
            m_failedIndex = index;
            m_failure = std::move(failure);
        }
    }

    // Returns when all tasks have ended. @return whether that took more than `run` is to do
    bool Complete() noexcept
    {
        bool const early = m_ended.load(std::memory_order_acquire) != m_count;
        if (early) {
            for (int index = 0; index < m_count; ++index)
                if (!m_begun[index].load(std::memory_order_acquire))
                    RunOne(index); // or the host's thread, if it comes first after all
            for (int ended; (ended = m_ended.load(std::memory_order_acquire)) != m_count;)
                m_ended.wait(ended, std::memory_order_acquire);
        }
        return early || m_misused.load(std::memory_order_relaxed);
    }

    int m_count = 0;
    void (*m_body)(void const*, int) = nullptr;
    void const* m_data = nullptr;
    std::mutex m_mutex; // for the next two
    int m_failedIndex = 0;
    std::exception_ptr m_failure;
    std::atomic<int> m_ended = 0;
    std::atomic<bool> m_misused = false;
    std::atomic<bool> m_begun[blac::kMostTasks] = {};
};

// One for each thread that has operations, since tasks have none: nothing is allocated that could fail, and a host's call that comes too
// late finds an object.
thread_local Group s_group;

} // namespace

blac::HostThreads blac::ExchangeHostThreads(HostThreads threads) noexcept
{
    return std::exchange(s_inForce, threads);
}

int blac::ThreadsForTasks() noexcept
{
    return s_inForce.run != nullptr ? s_inForce.count : 1;
}

int blac::PiecesFor(std::int64_t size, std::int64_t least) noexcept
{
    int const threads = ThreadsForTasks();
    return threads > 1 ? static_cast<int>(std::clamp<std::int64_t>(size / least, 1, std::int64_t{threads} * kPiecesPerThread)) : 1;
}

void blac::RunTasks(int count, void (*body)(void const*, int), void const* data)
{
    if (count > 1 && ThreadsForTasks() > 1)
        return s_group.Run(s_inForce, count, body, data);
    for (int index = 0; index < count; ++index)
        body(data, index);
}
