#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <limits>
#include <stop_token>
#include <string>
#include <thread>

// Watches the memory that is this process's own, once a millisecond. VmHWM, the peak that the system keeps by itself, would not do: it also
// counts pages of the database file that are mapped at the time, which the system takes back as soon as memory gets short.
class MemoryWatch
{
public:
    // The most that the process has grown by since the watch began, in MiB.
    double Growth() const { return m_peak - m_start; }

private:
    static double Now()
    {
        std::ifstream status("/proc/self/status");
        for (std::string word; status >> word;)
            if (double kilobytes = 0.0; word == "RssAnon:" && status >> kilobytes)
                return kilobytes / 1024.0;
        return std::numeric_limits<double>::infinity();
    }
    void Watch(std::stop_token const& stop)
    {
        for (; !stop.stop_requested(); std::this_thread::sleep_for(std::chrono::milliseconds(1)))
            m_peak = std::max(m_peak.load(), Now());
    }

    double const m_start = Now();
    std::atomic<double> m_peak = m_start;
    std::jthread m_watcher{[this](std::stop_token const& stop) { Watch(stop); }};
};
