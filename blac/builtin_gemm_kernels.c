#include "builtin_gemm_kernels.h"

#include <blis.h>

/* Takes the place of the kernel library's own: nothing in the host's environment (its choice of architecture, of packing) reaches the
   built-in product. Defined here, the library's member with the call of getenv is not linked. */
gint_t bli_env_get_var(char const* name, gint_t fallback)
{
    (void)name;
    return fallback;
}

/* Contexts by what they need, not by the processor's name: those named after AMD's processors are compiled for exactly these. */
static arch_t ContextOf(enum kvo_gemm_kernel kernel)
{
    switch (kernel) {
    case kvo_gemm_avx512:
        return BLIS_ARCH_SKX;
    case kvo_gemm_avx2:
        return BLIS_ARCH_HASWELL;
    default:
        return BLIS_ARCH_GENERIC;
    }
}

void kvo_builtin_dgemm(enum kvo_gemm_kernel kernel, int transposeA, int transposeB, int m, int n, int k, double alpha, double const* a,
                       int lda, double const* b, int ldb, double beta, double* c, int ldc)
{
    bli_init();
    rntm_t runtime = BLIS_RNTM_INITIALIZER;
    bli_rntm_set_num_threads(1, &runtime);
    /* The casts: the interface has no const, the operands are only read. */
    bli_dgemm_ex(transposeA ? BLIS_TRANSPOSE : BLIS_NO_TRANSPOSE, transposeB ? BLIS_TRANSPOSE : BLIS_NO_TRANSPOSE, m, n, k, &alpha,
                 (double*)a, 1, lda, (double*)b, 1, ldb, &beta, c, 1, ldc, bli_gks_lookup_nat_cntx(ContextOf(kernel)), &runtime);
}
