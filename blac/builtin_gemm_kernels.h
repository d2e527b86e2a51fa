#pragma once

/// The seam to the kernel library of the built-in product. A replacement supplies this one function, in an object of its own (see
/// cmake/KVOBuiltinGemm.cmake), and no other symbol.

#ifdef __cplusplus
extern "C" {
#endif

/// Instruction sets that the product is available in.
enum kvo_gemm_kernel { kvo_gemm_baseline, kvo_gemm_avx2, kvo_gemm_avx512 };

/// How a product is computed.
struct kvo_gemm_plan {
    enum kvo_gemm_kernel kernel; /// the processor must support it; the bits of the result depend on it, and on nothing else of the plan
    int packedBytes;             /// of the second-level cache, for the packed block that is read again and again; 0 where nothing is packed
};

/// C := alpha op(A) op(B) + beta C on the calling thread; op(X) is X^T where the flag is not 0. Arguments are not checked; C is not read
/// when beta is 0, A and B are not when alpha is 0.
void kvo_builtin_dgemm(struct kvo_gemm_plan plan, int transposeA, int transposeB, int m, int n, int k, double alpha, double const* a,
                       int lda, double const* b, int ldb, double beta, double* c, int ldc);

#ifdef __cplusplus
}
#endif
