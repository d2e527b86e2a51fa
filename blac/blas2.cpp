// Forwards to BLAS, level 2: matrices and vectors.

#include "KVOFortran.h"
#include "provider.h"

using blac::kLength1;

extern "C" void BLAC_DGEMV(char const* trans, int const* m, int const* n, double const* alpha, double const* a, int const* lda,
                           double const* x, int const* incx, double const* beta, double* y, int const* incy)
{
    dgemv_(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, kLength1);
}

extern "C" void BLAC_DSYMV(char const* uplo, int const* n, double const* alpha, double const* a, int const* lda, double const* x,
                           int const* incx, double const* beta, double* y, int const* incy)
{
    dsymv_(uplo, n, alpha, a, lda, x, incx, beta, y, incy, kLength1);
}

extern "C" void BLAC_DSPMV(char const* uplo, int const* n, double const* alpha, double const* ap, double const* x, int const* incx,
                           double const* beta, double* y, int const* incy)
{
    dspmv_(uplo, n, alpha, ap, x, incx, beta, y, incy, kLength1);
}

extern "C" void BLAC_DGER(int const* m, int const* n, double const* alpha, double const* x, int const* incx, double const* y,
                          int const* incy, double* a, int const* lda)
{
    dger_(m, n, alpha, x, incx, y, incy, a, lda);
}

extern "C" void BLAC_DSYR(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx, double* a, int const* lda)
{
    dsyr_(uplo, n, alpha, x, incx, a, lda, kLength1);
}

extern "C" void BLAC_DSYR2(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx, double const* y,
                           int const* incy, double* a, int const* lda)
{
    dsyr2_(uplo, n, alpha, x, incx, y, incy, a, lda, kLength1);
}

extern "C" void BLAC_DSPR(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx, double* ap)
{
    dspr_(uplo, n, alpha, x, incx, ap, kLength1);
}

extern "C" void BLAC_DSPR2(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx, double const* y,
                           int const* incy, double* ap)
{
    dspr2_(uplo, n, alpha, x, incx, y, incy, ap, kLength1);
}

extern "C" void BLAC_DTPMV(char const* uplo, char const* trans, char const* diag, int const* n, double const* ap, double* x,
                           int const* incx)
{
    dtpmv_(uplo, trans, diag, n, ap, x, incx, kLength1, kLength1, kLength1);
}

extern "C" void BLAC_DTPSV(char const* uplo, char const* trans, char const* diag, int const* n, double const* ap, double* x,
                           int const* incx)
{
    dtpsv_(uplo, trans, diag, n, ap, x, incx, kLength1, kLength1, kLength1);
}

extern "C" void BLAC_DTRMV(char const* uplo, char const* trans, char const* diag, int const* n, double const* a, int const* lda, double* x,
                           int const* incx)
{
    dtrmv_(uplo, trans, diag, n, a, lda, x, incx, kLength1, kLength1, kLength1);
}

extern "C" void BLAC_DTRSV(char const* uplo, char const* trans, char const* diag, int const* n, double const* a, int const* lda, double* x,
                           int const* incx)
{
    dtrsv_(uplo, trans, diag, n, a, lda, x, incx, kLength1, kLength1, kLength1);
}
