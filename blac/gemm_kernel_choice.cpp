#include "gemm_kernel_choice.h"

#include <algorithm>
#include <cstdint>

namespace blac
{

namespace
{

// The AVX-512 kernel computes tiles of 16 x 14 from packed operands; the AVX2 one has a variant for small or thin products without packing.
// Where the units are 512 bits wide, the packing costs about 0.009 ns per flop at 64^3 and 0.003 at 96^3, the halved time of the arithmetic
// gains about 0.009, so they meet near 72^3; when C is thinner than two tiles, the part of the tiles that is computed in vain and the
// packing of the long operand lose more.
constexpr std::int64_t kSmallVolume = 72 * 72 * 72;
constexpr int kThin = 32;
// In halves it gains only once the AVX2 kernel packs, too (0.99 of the provider's rate at 2048, where that one has 0.95; figures in
// docs/measurements.md), and the order of additions is then the same.
constexpr int kUnpacked = 200;

bool Packs(int m, int n, int k)
{
    return std::min({m, n, k}) > kUnpacked;
}

bool WideKernelPaysOff(KVOBasProcessor const& processor, int m, int n, int k)
{
    if (processor.vectorBytes < 64)
        return Packs(m, n, k);
    return std::min(m, n) > kThin && std::int64_t{m} * n * k > kSmallVolume;
}

} // namespace

kvo_gemm_plan PlanGemm(KVOBasProcessor const& processor, int m, int n, int k)
{
    // The rest of the cache is for the panels of the other operand and for C, which pass by: more of it gains nothing (0.99 of the
    // provider's rate with 0.66 and with 0.94 of the cache), less loses.
    auto const packedBytes = static_cast<int>(processor.l2Bytes / 3 * 2);
    if (processor.avx512 && WideKernelPaysOff(processor, m, n, k))
        return {kvo_gemm_avx512, packedBytes};
    return {processor.avx2 ? kvo_gemm_avx2 : kvo_gemm_baseline, Packs(m, n, k) ? packedBytes : 0};
}

} // namespace blac
