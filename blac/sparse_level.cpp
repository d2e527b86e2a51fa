// Which instructions the sparse kernels use: what the processor has, or what was asked for.

#include "KVOBasProcessor.h"
#include "KVOFortran.h"
#include "sparse_kernels.h"

#include <algorithm>
#include <array>
#include <atomic>

namespace
{

constexpr std::array<blac::SparseKernels const*, 3> kKernels{&blac::sparseKernelsBaseline, &blac::sparseKernelsAvx2,
                                                             &blac::sparseKernelsAvx512};

int BestLevel()
{
    KVOBasProcessor const& processor = KVOBasProcessor::This();
    return processor.avx512 ? 2 : processor.avx2 ? 1 : 0;
}

// Atomic, so that a host whose threads multiply different matrices may do so from the first call on.
std::atomic<int>& Level()
{
    static std::atomic<int> level = BestLevel();
    return level;
}

} // namespace

blac::SparseKernels const& blac::SparseKernelsInForce()
{
    return *kKernels[static_cast<std::size_t>(Level().load(std::memory_order_relaxed))];
}

extern "C" void BLAC_SPARSE_LEVEL(int const* request, int* inForce)
{
    int const best = BestLevel();
    *inForce = *request < 0 ? best : std::min(*request, best);
    Level().store(*inForce, std::memory_order_relaxed);
}
