#include "gemm_kernel_choice.h"

#include <algorithm>
#include <cstdint>

namespace blac
{

namespace
{

// The AVX-512 kernel computes tiles of 16 x 14 from packed operands; the AVX2 one has a variant for small or thin products without packing.
// The packing costs about 0.009 ns per flop at 64^3 and 0.003 at 96^3, the halved time of the arithmetic gains about 0.009, so they meet
// near 72^3; when C is thinner than two tiles, the part of the tiles that is computed in vain and the packing of the long operand lose
// more.
constexpr std::int64_t kSmallVolume = 72 * 72 * 72;
constexpr int kThin = 32;

bool PackingPaysOff(int m, int n, int k)
{
    return std::min(m, n) > kThin && std::int64_t{m} * n * k > kSmallVolume;
}

} // namespace

kvo_gemm_kernel ChooseGemmKernel(KVOBasProcessor const& processor, int m, int n, int k)
{
    if (processor.choices.wideGemm && PackingPaysOff(m, n, k))
        return kvo_gemm_avx512;
    return processor.avx2 ? kvo_gemm_avx2 : kvo_gemm_baseline;
}

} // namespace blac
