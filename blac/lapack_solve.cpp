// Forwards to LAPACK: factors, linear systems, least squares.

#include "KVOFortran.h"
#include "provider.h"

using blac::kLength1;

extern "C" void BLAC_DGELSS(int const* m, int const* n, int const* nrhs, double* a, int const* lda, double* b, int const* ldb, double* s,
                            double const* rcond, int* rank, double* work, int const* lwork, int* info)
{
    dgelss_(m, n, nrhs, a, lda, b, ldb, s, rcond, rank, work, lwork, info);
}

extern "C" void BLAC_DGESV(int const* n, int const* nrhs, double* a, int const* lda, int* ipiv, double* b, int const* ldb, int* info)
{
    dgesv_(n, nrhs, a, lda, ipiv, b, ldb, info);
}

extern "C" void BLAC_DGETRF(int const* m, int const* n, double* a, int const* lda, int* ipiv, int* info)
{
    dgetrf_(m, n, a, lda, ipiv, info);
}

extern "C" void BLAC_DGETRS(char const* trans, int const* n, int const* nrhs, double const* a, int const* lda, int const* ipiv, double* b,
                            int const* ldb, int* info)
{
    dgetrs_(trans, n, nrhs, a, lda, ipiv, b, ldb, info, kLength1);
}

extern "C" void BLAC_DPOTRF(char const* uplo, int const* n, double* a, int const* lda, int* info)
{
    dpotrf_(uplo, n, a, lda, info, kLength1);
}

extern "C" void BLAC_DPPSV(char const* uplo, int const* n, int const* nrhs, double* ap, double* b, int const* ldb, int* info)
{
    dppsv_(uplo, n, nrhs, ap, b, ldb, info, kLength1);
}

extern "C" void BLAC_DPPTRF(char const* uplo, int const* n, double* ap, int* info)
{
    dpptrf_(uplo, n, ap, info, kLength1);
}

extern "C" void BLAC_DPPTRI(char const* uplo, int const* n, double* ap, int* info)
{
    dpptri_(uplo, n, ap, info, kLength1);
}

extern "C" void BLAC_DPPTRS(char const* uplo, int const* n, int const* nrhs, double const* ap, double* b, int const* ldb, int* info)
{
    dpptrs_(uplo, n, nrhs, ap, b, ldb, info, kLength1);
}

extern "C" void BLAC_DSYTRF(char const* uplo, int const* n, double* a, int const* lda, int* ipiv, double* work, int const* lwork, int* info)
{
    dsytrf_(uplo, n, a, lda, ipiv, work, lwork, info, kLength1);
}

extern "C" void BLAC_DSYTRS(char const* uplo, int const* n, int const* nrhs, double const* a, int const* lda, int const* ipiv, double* b,
                            int const* ldb, int* info)
{
    dsytrs_(uplo, n, nrhs, a, lda, ipiv, b, ldb, info, kLength1);
}

extern "C" void BLAC_DTPTRI(char const* uplo, char const* diag, int const* n, double* ap, int* info)
{
    dtptri_(uplo, diag, n, ap, info, kLength1, kLength1);
}
