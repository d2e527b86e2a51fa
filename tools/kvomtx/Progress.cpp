#include "Progress.h"

#include "Interrupt.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <system_error>
#include <unistd.h>
#include <utility>

using namespace std::chrono_literals;

namespace
{

constexpr int kWidth = 30;

constexpr char kClear[] = "\r\033[K";

Progress* s_innermost = nullptr; // steps begin and end in the main thread

// Allocates nothing, as an exception in the drawing thread would end the process.
void DrawBar(double share, int tick, char const* name)
{
    char bar[kWidth + 1] = {}, percent[8] = "";
    std::fill_n(bar, kWidth, ' ');
    if (share >= 0.0) {
        std::fill_n(bar, std::lround(std::min(share, 1.0) * kWidth), '#');
        std::snprintf(percent, sizeof percent, " %d%%", static_cast<int>(100.0 * std::min(share, 1.0)));
    } else {
        constexpr int kBlock = 4;
        constexpr int kWay = kWidth - kBlock;
        int const place = tick % (2 * kWay);
        std::fill_n(bar + (place < kWay ? place : 2 * kWay - place), kBlock, '#');
    }
    std::fprintf(stderr, "%s[%s]%s %s", kClear, bar, percent, name);
    std::fflush(stderr);
}

} // namespace

Progress::Progress(std::string name) : m_outer(s_innermost), m_name(std::move(name))
{
    if (isatty(STDERR_FILENO)) {
        try {
            m_thread = std::thread([this] { Draw(); });
        } catch (std::system_error const&) {
            // No thread, no bar.
        }
    }
    if (m_outer != nullptr)
        m_outer->m_covered = true;
    s_innermost = this;
}

Progress::~Progress()
{
    if (m_thread.joinable()) {
        {
            std::scoped_lock const lock(m_mutex);
            m_stop = true;
        }
        m_wake.notify_one();
        m_thread.join();
    }
    s_innermost = m_outer;
    if (m_outer != nullptr)
        m_outer->m_covered = false;
}

void Progress::Set(double share)
{
    CheckInterrupt();
    m_share.store(share, std::memory_order_relaxed);
}

void Progress::Say(std::string text)
{
    std::scoped_lock const lock(m_mutex);
    m_name = std::move(text);
}

void Progress::Draw()
{
    std::unique_lock lock(m_mutex);
    if (m_wake.wait_for(lock, 1s, [this] { return m_stop; }))
        return;
    for (int tick = 0; !m_stop; ++tick) {
        if (!m_covered)
            DrawBar(m_share.load(std::memory_order_relaxed), tick, m_name.c_str());
        m_wake.wait_for(lock, 100ms, [this] { return m_stop; });
    }
    std::fputs(kClear, stderr);
    std::fflush(stderr);
}
