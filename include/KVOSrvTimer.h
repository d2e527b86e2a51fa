#pragma once

#include "KVOExport.h"
#include "mem_Allocator.h"
#include "omi_Singleton.h"
#include "omi_Timer.h"

/// The process's timer, which the solver reads through KVOSRVGETCPUTIME and KVOSRVGETWALLTIME.
///
/// One object in the process, however many libraries use it: omi_Singleton<KVOSrvTimer>::Instance() makes it on first
/// use, mtx_finalize() destroys it. Not locked: the host's main thread sets it up.
class KVO_EXPORT KVOSrvTimer : public omi_Singleton<KVOSrvTimer>, public mem_AllocationOperators
{
public:
    KVOSrvTimer() noexcept;
    /// Frees the timer.
    ~KVOSrvTimer();
    KVOSrvTimer(KVOSrvTimer const&) = delete;
    KVOSrvTimer& operator=(KVOSrvTimer const&) = delete;

    /// Makes and starts a new timer, which both entry points read from then on. An earlier one is deliberately not
    /// freed: its storage is lost. @throws mem_OutOfMemory
    void CreateTimer();

    /// The timer that was made last, null before the first CreateTimer(); it belongs to this object.
    omi_Timer const* Timer() const noexcept { return m_timer; }

private:
    omi_Timer* m_timer;
};

extern template class omi_SingletonBase<KVOSrvTimer>;
extern template class omi_Singleton<KVOSrvTimer>;
