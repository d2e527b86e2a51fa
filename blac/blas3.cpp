// Forwards to BLAS, level 3: products of matrices.

#include "KVOFortran.h"
#include "provider.h"

using blac::kLength1;

extern "C" void BLAC_DGEMM(char const* transa, char const* transb, int const* m, int const* n, int const* k, double const* alpha,
                           double const* a, int const* lda, double const* b, int const* ldb, double const* beta, double* c, int const* ldc)
{
    dgemm_(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc, kLength1, kLength1);
}

extern "C" void BLAC_DSYMM(char const* side, char const* uplo, int const* m, int const* n, double const* alpha, double const* a,
                           int const* lda, double const* b, int const* ldb, double const* beta, double* c, int const* ldc)
{
    dsymm_(side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc, kLength1, kLength1);
}

extern "C" void BLAC_DSYRK(char const* uplo, char const* trans, int const* n, int const* k, double const* alpha, double const* a,
                           int const* lda, double const* beta, double* c, int const* ldc)
{
    dsyrk_(uplo, trans, n, k, alpha, a, lda, beta, c, ldc, kLength1, kLength1);
}

extern "C" void BLAC_DSYR2K(char const* uplo, char const* trans, int const* n, int const* k, double const* alpha, double const* a,
                            int const* lda, double const* b, int const* ldb, double const* beta, double* c, int const* ldc)
{
    dsyr2k_(uplo, trans, n, k, alpha, a, lda, b, ldb, beta, c, ldc, kLength1, kLength1);
}

extern "C" void BLAC_DTRMM(char const* side, char const* uplo, char const* transa, char const* diag, int const* m, int const* n,
                           double const* alpha, double const* a, int const* lda, double* b, int const* ldb)
{
    dtrmm_(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb, kLength1, kLength1, kLength1, kLength1);
}

extern "C" void BLAC_DTRSM(char const* side, char const* uplo, char const* transa, char const* diag, int const* m, int const* n,
                           double const* alpha, double const* a, int const* lda, double* b, int const* ldb)
{
    dtrsm_(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb, kLength1, kLength1, kLength1, kLength1);
}
