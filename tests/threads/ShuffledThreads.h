#pragma once

#include "KVOSrvParallel.h"

#include <algorithm>
#include <atomic>
#include <numeric>
#include <random>
#include <thread>
#include <vector>

/// A host that lends threads: each operation's tasks in an order of their own, on threads that come for them; the calling one works too.
class ShuffledThreads
{
public:
    explicit ShuffledThreads(int threads) : m_threads(threads) {}
    ShuffledThreads(ShuffledThreads const&) = delete;
    ShuffledThreads& operator=(ShuffledThreads const&) = delete;

    static void Run(void* threads, int tasks, KVOSrvParallel::Task task, void* data)
    {
        static_cast<ShuffledThreads*>(threads)->Do(tasks, task, data);
    }
    /// How often an operation has asked.
    int Calls() const noexcept { return m_calls; }

private:
    void Do(int tasks, KVOSrvParallel::Task task, void* data)
    {
        ++m_calls;
        std::vector<int> order(static_cast<std::size_t>(tasks));
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), m_random);
        std::atomic<std::size_t> next = 0;
        auto const work = [&] {
            for (std::size_t k; (k = next++) < order.size();)
                task(data, order[k]);
        };
        std::vector<std::jthread> others;
        for (int thread = 1; thread < m_threads; ++thread)
            others.emplace_back(work);
        work();
    }

    int m_threads;
    int m_calls = 0;
    std::mt19937 m_random{17};
};
