#include "Progress.h"

#include "Interrupt.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

using namespace std::chrono_literals;

namespace
{

constexpr int kWidth = 30;

constexpr char kClear[] = "\r\033[K";

Progress* s_innermost = nullptr; // steps begin and end in the main thread

// What is longer than a row of the terminal would stay when the line is cleared.
void CutToRow(char* line)
{
    winsize terminal{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &terminal) != 0 || terminal.ws_col == 0 || std::strlen(line) < terminal.ws_col)
        return;
    char* end = line + terminal.ws_col - 1;
    while (end > line && (static_cast<unsigned char>(*end) & 0xC0) == 0x80) // within a character of UTF-8
        --end;
    *end = '\0';
}

// Allocates nothing, as an exception in the drawing thread would end the process.
void DrawBar(double share, int tick, char const* time, char const* name)
{
    char bar[kWidth + 1] = {}, percent[8] = "", line[512];
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
    std::snprintf(line, sizeof line, "[%s]%s%s %s", bar, percent, time, name);
    CutToRow(line);
    std::fprintf(stderr, "%s%s", kClear, line);
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

// By the rate since the share is known; a step without shares tells how long it has lasted.
void Progress::TellTime(char* text, std::size_t size)
{
    using Seconds = std::chrono::duration<double>;
    constexpr double kEnough = 0.02, kSeconds = 3.0, kLong = 10.0;
    text[0] = '\0';
    auto const now = std::chrono::steady_clock::now();
    double const share = m_share.load(std::memory_order_relaxed);
    if (share < 0.0) {
        m_first = -1.0;
        double const passed = Seconds(now - m_begin).count();
        if (passed >= kLong)
            std::snprintf(text, size, " %d:%02d", static_cast<int>(passed / 60.0), static_cast<int>(std::fmod(passed, 60.0)));
        return;
    }
    if (m_first < 0.0 || share < m_first) {
        m_first = share;
        m_since = now;
    }
    double const passed = Seconds(now - m_since).count(), gained = share - m_first;
    if (passed < kSeconds || gained < kEnough)
        return;
    double const left = passed * std::max(0.0, 1.0 - share) / gained;
    if (left < 90.0)
        std::snprintf(text, size, ", about %.0f s left,", left);
    else if (left < 5400.0)
        std::snprintf(text, size, ", about %.0f min left,", left / 60.0);
    else
        std::snprintf(text, size, ", about %.1f h left,", left / 3600.0);
}

void Progress::Draw()
{
    std::unique_lock lock(m_mutex);
    if (m_wake.wait_for(lock, 1s, [this] { return m_stop; }))
        return;
    for (int tick = 0; !m_stop; ++tick) {
        char time[64];
        TellTime(time, sizeof time);
        if (!m_covered)
            DrawBar(m_share.load(std::memory_order_relaxed), tick, time, m_name.c_str());
        m_wake.wait_for(lock, 100ms, [this] { return m_stop; });
    }
    std::fputs(kClear, stderr);
    std::fflush(stderr);
}
