#pragma once

#include "KVOSrvParallel.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

/// Threads of a program for KVOSrvParallel, made once and kept:
///
///     ParallelThreads threads(4);
///     KVOSrvParallel const parallel(ParallelThreads::Run, &threads, threads.Count());
///
/// Serves the operations of one thread at a time.
class ParallelThreads
{
public:
    /// @param count  the calling thread included, which works too @throws std::system_error when a thread cannot be had
    explicit ParallelThreads(int count)
    {
        for (int thread = 1; thread < count; ++thread)
            m_threads.emplace_back([this](std::stop_token const& stop) { Serve(stop); });
    }
    ParallelThreads(ParallelThreads const&) = delete;
    ParallelThreads& operator=(ParallelThreads const&) = delete;

    int Count() const { return static_cast<int>(m_threads.size()) + 1; }

    /// For KVOSrvParallel; `threads` is a ParallelThreads.
    static void Run(void* threads, int tasks, KVOSrvParallel::Task task, void* data)
    {
        static_cast<ParallelThreads*>(threads)->Do({tasks, task, data});
    }

private:
    struct Job {
        int tasks;
        KVOSrvParallel::Task task;
        void* data;
    };

    void Do(Job const& job)
    {
        {
            std::lock_guard const lock(m_mutex);
            m_job = job;
            m_next = 0;
        }
        m_come.notify_all();
        Work();
        std::unique_lock lock(m_mutex);
        m_gone.wait(lock, [this] { return m_working == 0; });
        m_job.tasks = 0; // who comes now finds nothing
    }

    void Serve(std::stop_token const& stop)
    {
        std::unique_lock lock(m_mutex);
        while (m_come.wait(lock, stop, [this] { return m_next < m_job.tasks; })) {
            ++m_working;
            lock.unlock();
            Work();
            lock.lock();
            if (--m_working == 0)
                m_gone.notify_one();
        }
    }

    void Work()
    {
        for (int index; (index = m_next++) < m_job.tasks;)
            m_job.task(m_job.data, index);
    }

    std::mutex m_mutex;
    std::condition_variable_any m_come;
    std::condition_variable m_gone;
    Job m_job{};
    std::atomic<int> m_next = 0;
    int m_working = 0;
    std::vector<std::jthread> m_threads; // the last member: they end before what they use goes
};
