#include "KVOSrvParallel.h"

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
