#pragma once

#include "builtin_gemm_kernels.h"

namespace blac
{

/// What of the processor, and of the operating system's support for it, bears on the choice of a kernel.
struct ProcessorAbilities {
    bool avx2;      ///< AVX2, FMA and BMI2
    bool avx512;    ///< AVX-512 F, CD, BW, DQ and VL
    bool narrowFpu; ///< 512-bit instructions run as two halves
};

/// Abilities of the processor that runs this.
ProcessorAbilities ThisProcessor();

/// The fastest kernel for a product of m x k with k x n; a function of its arguments alone.
kvo_gemm_kernel ChooseGemmKernel(ProcessorAbilities const& processor, int m, int n, int k);

} // namespace blac
