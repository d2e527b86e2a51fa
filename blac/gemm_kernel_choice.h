#pragma once

#include "KVOBasProcessor.h"
#include "builtin_gemm_kernels.h"

namespace blac
{

/// The fastest way to a product of m x k with k x n; a function of its arguments alone.
kvo_gemm_plan PlanGemm(KVOBasProcessor const& processor, int m, int n, int k);

} // namespace blac
