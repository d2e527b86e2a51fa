#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

/// A line on the terminal for a step that takes more than a second: its name and a bar, and what time is left or was taken. Nothing is
/// written when the error stream is no terminal. The line is removed with the object. A step within a step has the line to itself, so they
/// end in reverse order.
class Progress
{
public:
    explicit Progress(std::string name);
    ~Progress();
    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    /// How much is done, 0 to 1; before the first call, and where it is negative, the bar moves to and fro. Throws Interrupted, so that
    /// long loops need call nothing else.
    void Set(double share);
    /// Replaces the name.
    void Say(std::string text);

private:
    void Draw();
    void TellTime(char* text, std::size_t size);

    Progress* const m_outer; // the step that this one is within
    std::atomic<bool> m_covered{false};
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::string m_name;
    std::atomic<double> m_share{-1.0};
    bool m_stop = false;
    // Of the thread that draws: since when the share has been known, and what it was then.
    std::chrono::steady_clock::time_point const m_begin = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point m_since;
    double m_first = -1.0;
    std::thread m_thread; // draws, so that calls into the library need not come back for it
};
