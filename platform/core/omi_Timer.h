#pragma once

#include "KVOExport.h"
#include "mem_Allocator.h"

/// A stopwatch for the processor time of the process and for wall time.
///
/// Trivially destructible: owners may give its storage back without running a destructor.
class KVO_EXPORT omi_Timer : public mem_AllocationOperators
{
public:
    /// Makes now the zero of both times.
    void Start() noexcept;
    /// Seconds of processor time, user and system, all threads, since Start(); 0 before it.
    double GetTotalCpuTime() const noexcept;
    /// Seconds of wall time since Start(), from a clock that never goes back; 0 before it.
    double GetElapsedTime() const noexcept;

private:
    bool m_started = false;
    double m_cpuAtStart = 0.0;
    double m_wallAtStart = 0.0;
};
