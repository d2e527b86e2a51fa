#include "omi_Timer.h"

#include <ctime>

namespace
{

double Seconds(clockid_t clock) noexcept
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

} // namespace

void omi_Timer::Start() noexcept
{
    m_started = true;
    m_cpuAtStart = Seconds(CLOCK_PROCESS_CPUTIME_ID);
    m_wallAtStart = Seconds(CLOCK_MONOTONIC);
}

double omi_Timer::GetTotalCpuTime() const noexcept
{
    return m_started ? Seconds(CLOCK_PROCESS_CPUTIME_ID) - m_cpuAtStart : 0.0;
}

double omi_Timer::GetElapsedTime() const noexcept
{
    return m_started ? Seconds(CLOCK_MONOTONIC) - m_wallAtStart : 0.0;
}
