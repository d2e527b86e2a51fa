#include "KVOSrvParallel.h"

#include "FortranStatus.h"
#include "KVOFortran.h"
#include "mem_Allocator.h"
#include "tasks.h"

#include <algorithm>
#include <thread>

namespace
{

// A host that does not tell is taken to have some: unequal tasks cost it little, one task all.
int CountOf(int threads)
{
    return std::min(threads > 0 ? threads : std::max(static_cast<int>(std::thread::hardware_concurrency()), 2), blac::kMostThreads);
}

// What callers without objects have begun, the last one first.
struct Begun : mem_AllocationOperators {
    Begun(KVOSrvParallel::Run run, void* context, int threads, Begun* outer) noexcept : parallel(run, context, threads), former(outer) {}

    KVOSrvParallel parallel;
    Begun* former;
};
thread_local Begun* s_begun = nullptr;

} // namespace

KVOSrvParallel::KVOSrvParallel(Run run, void* context, int threads) noexcept
{
    blac::HostThreads const former = blac::ExchangeHostThreads({run, context, CountOf(threads)});
    m_formerRun = former.run;
    m_formerContext = former.context;
    m_formerThreads = former.count;
}

KVOSrvParallel::~KVOSrvParallel()
{
    blac::ExchangeHostThreads({m_formerRun, m_formerContext, m_formerThreads});
}

extern "C" int KVOSRVPARALLELBEGIN(void (*run)(void* context, int tasks, void (*task)(void* data, int index), void* data), void* context,
                                   int const* threads)
{
    return FortranStatus::Of([&] {
        s_begun = new Begun(run, context, *threads, s_begun);
        return FortranStatus::kOk;
    });
}

extern "C" int KVOSRVPARALLELEND()
{
    if (s_begun == nullptr)
        return FortranStatus::Failed(FortranStatus::kNotThere, "KVOSRVPARALLELEND: this thread has begun nothing.");
    Begun* const last = s_begun;
    s_begun = last->former;
    delete last;
    return FortranStatus::kOk;
}
