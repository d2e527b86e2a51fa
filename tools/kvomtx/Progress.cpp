#include "Progress.h"

#include "Interrupt.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <unistd.h>
#include <utility>

using namespace std::chrono_literals;

namespace
{

constexpr int kWidth = 30;

std::string Bar(double share, int tick)
{
    std::string bar(kWidth, ' ');
    if (share >= 0.0) {
        std::fill_n(bar.begin(), std::lround(std::min(share, 1.0) * kWidth), '#');
        return "[" + bar + "] " + std::to_string(static_cast<int>(100.0 * std::min(share, 1.0))) + "%";
    }
    constexpr int kBlock = 4;
    constexpr int kWay = kWidth - kBlock;
    int const place = tick % (2 * kWay);
    std::fill_n(bar.begin() + (place < kWay ? place : 2 * kWay - place), kBlock, '#');
    return "[" + bar + "]";
}

} // namespace

Progress::Progress(std::string name) : m_name(std::move(name))
{
    if (isatty(STDERR_FILENO))
        m_thread = std::thread([this] { Draw(); });
}

Progress::~Progress()
{
    if (!m_thread.joinable())
        return;
    {
        std::scoped_lock const lock(m_mutex);
        m_stop = true;
    }
    m_wake.notify_one();
    m_thread.join();
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
    constexpr char kClear[] = "\r\033[K";
    for (int tick = 0; !m_stop; ++tick) {
        std::fprintf(stderr, "%s%s %s", kClear, Bar(m_share.load(std::memory_order_relaxed), tick).c_str(), m_name.c_str());
        std::fflush(stderr);
        m_wake.wait_for(lock, 100ms, [this] { return m_stop; });
    }
    std::fputs(kClear, stderr);
    std::fflush(stderr);
}
