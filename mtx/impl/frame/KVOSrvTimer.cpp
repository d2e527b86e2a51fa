#include "KVOSrvTimer.h"

#include "KVOFortran.h"
#include "aio_ostream.h"

#include <limits>
#include <type_traits>

template class omi_SingletonBase<KVOSrvTimer>;
template class omi_Singleton<KVOSrvTimer>;

// The destructor gives back storage without running the timer's own destructor.
static_assert(std::is_trivially_destructible_v<omi_Timer>);

KVOSrvTimer::KVOSrvTimer() noexcept : m_timer(nullptr) {}

KVOSrvTimer::~KVOSrvTimer()
{
    mem_Free(m_timer);
    m_timer = nullptr;
}

void KVOSrvTimer::CreateTimer()
{
    m_timer = new omi_Timer; // Deliberate: an earlier timer is not freed; the caller may still hold it.
    m_timer->Start();
}

namespace
{

// Without CreateTimer() there is no time to give: NaN shows in every result that uses it, where 0 would pass for a time.
double Read(double (omi_Timer::*time)() const noexcept, char const* entryPoint)
{
    omi_Timer const* const timer = omi_Singleton<KVOSrvTimer>::Instance().Timer();
    if (timer != nullptr)
        return (timer->*time)();
    (aio_cerr << entryPoint << ": no timer was created.").put('\n').flush();
    return std::numeric_limits<double>::quiet_NaN();
}

} // namespace

extern "C" void KVOSRVGETCPUTIME(double* t)
{
    *t = Read(&omi_Timer::GetTotalCpuTime, "KVOSRVGETCPUTIME");
}

extern "C" void KVOSRVGETWALLTIME(double* t)
{
    *t = Read(&omi_Timer::GetElapsedTime, "KVOSRVGETWALLTIME");
}
