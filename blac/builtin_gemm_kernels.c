#include "builtin_gemm_kernels.h"

/* Before the kernel library's header, which asks the system for POSIX alone. */
#include <pthread.h>
#include <stdlib.h>
#include <sys/mman.h>

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

/* The packed operands in pages of 2 MiB where the system grants them on request: the 2000 pages of 4 KiB that they fill otherwise are more
   than many a translation buffer reaches. A wish: failure changes nothing. */
static void* AllocateLargePages(size_t bytes)
{
    size_t const largePage = (size_t)2 << 20, rounded = (bytes + largePage - 1) / largePage * largePage;
    void* const memory = aligned_alloc(largePage, rounded);
    if (memory != NULL)
        madvise(memory, rounded, MADV_HUGEPAGE);
    return memory;
}

/* The pools of the kernel library take their blocks from there. What they hold from their own start goes back first. */
static void UseLargePages(void)
{
    bli_init();
    for (dim_t kind = 0; kind < 2; ++kind) { /* of packed blocks, of packed panels */
        pool_t* const pool = bli_pba_pool(kind, bli_pba_query());
        siz_t const places = bli_pool_block_ptrs_len(pool), bytes = bli_pool_block_size(pool), alignment = bli_pool_align_size(pool),
                    offset = bli_pool_offset_size(pool);
        bli_pool_finalize(pool);
        bli_pool_init(0, places, bytes, alignment, offset, AllocateLargePages, free, pool);
    }
}

/* The kernel's context with as many rows to a packed block as fit. The inner dimension is cut into blocks of the library's size for the
   kernel, 256 for all of them, the last one of AVX-512 not longer, as it would be: the order of the additions, and so the bits, depend on
   that, but not on how rows and columns are cut. */
static cntx_t WithBlocks(cntx_t const* library, int packedBytes)
{
    cntx_t context = *library;
    blksz_t* const sizes = context.blkszs;
    dim_t const tile = sizes[BLIS_MR].v[BLIS_DOUBLE], inner = sizes[BLIS_KC].v[BLIS_DOUBLE];
    dim_t const tiles = packedBytes / ((dim_t)sizeof(double) * inner * tile);
    sizes[BLIS_KC].e[BLIS_DOUBLE] = inner;
    sizes[BLIS_MC].v[BLIS_DOUBLE] = sizes[BLIS_MC].e[BLIS_DOUBLE] = tile * (tiles > 1 ? tiles : 1);
    return context;
}

void kvo_builtin_dgemm(struct kvo_gemm_plan plan, int transposeA, int transposeB, int m, int n, int k, double alpha, double const* a,
                       int lda, double const* b, int ldb, double beta, double* c, int ldc)
{
    static pthread_once_t s_once = PTHREAD_ONCE_INIT;
    pthread_once(&s_once, UseLargePages);
    rntm_t runtime = BLIS_RNTM_INITIALIZER;
    bli_rntm_set_num_threads(1, &runtime);
    cntx_t* context = bli_gks_lookup_nat_cntx(ContextOf(plan.kernel));
    cntx_t own; /* several KiB: a copy for each call, but not for the small products */
    if (plan.packedBytes != 0) {
        own = WithBlocks(context, plan.packedBytes);
        context = &own;
    }
    /* The casts: the interface has no const, the operands are only read. */
    bli_dgemm_ex(transposeA ? BLIS_TRANSPOSE : BLIS_NO_TRANSPOSE, transposeB ? BLIS_TRANSPOSE : BLIS_NO_TRANSPOSE, m, n, k, &alpha,
                 (double*)a, 1, lda, (double*)b, 1, ldb, &beta, c, 1, ldc, context, &runtime);
}
