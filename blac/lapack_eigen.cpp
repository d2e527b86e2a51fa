// Forwards to LAPACK: eigenvalues and what leads to them.

#include "KVOFortran.h"
#include "provider.h"

using blac::kLength1;

extern "C" void BLAC_DGEEV(char const* jobvl, char const* jobvr, int const* n, double* a, int const* lda, double* wr, double* wi,
                           double* vl, int const* ldvl, double* vr, int const* ldvr, double* work, int const* lwork, int* info)
{
    dgeev_(jobvl, jobvr, n, a, lda, wr, wi, vl, ldvl, vr, ldvr, work, lwork, info, kLength1, kLength1);
}

extern "C" void BLAC_ZGEEV(char const* jobvl, char const* jobvr, int const* n, double* a, int const* lda, double* w, double* vl,
                           int const* ldvl, double* vr, int const* ldvr, double* work, int const* lwork, double* rwork, int* info)
{
    zgeev_(jobvl, jobvr, n, a, lda, w, vl, ldvl, vr, ldvr, work, lwork, rwork, info, kLength1, kLength1);
}

extern "C" void BLAC_DORMTR(char const* side, char const* uplo, char const* trans, int const* m, int const* n, double const* a,
                            int const* lda, double const* tau, double* c, int const* ldc, double* work, int const* lwork, int* info)
{
    dormtr_(side, uplo, trans, m, n, a, lda, tau, c, ldc, work, lwork, info, kLength1, kLength1, kLength1);
}

extern "C" void BLAC_DSPEVX(char const* jobz, char const* range, char const* uplo, int const* n, double* ap, double const* vl,
                            double const* vu, int const* il, int const* iu, double const* abstol, int* m, double* w, double* z,
                            int const* ldz, double* work, int* iwork, int* ifail, int* info)
{
    dspevx_(jobz, range, uplo, n, ap, vl, vu, il, iu, abstol, m, w, z, ldz, work, iwork, ifail, info, kLength1, kLength1, kLength1);
}

extern "C" void BLAC_DSTEMR(char const* jobz, char const* range, int const* n, double* d, double* e, double const* vl, double const* vu,
                            int const* il, int const* iu, int* m, double* w, double* z, int const* ldz, int const* nzc, int* isuppz,
                            int* tryrac, double* work, int const* lwork, int* iwork, int const* liwork, int* info)
{
    dstemr_(jobz, range, n, d, e, vl, vu, il, iu, m, w, z, ldz, nzc, isuppz, tryrac, work, lwork, iwork, liwork, info, kLength1, kLength1);
}

extern "C" void BLAC_DSTEVR(char const* jobz, char const* range, int const* n, double* d, double* e, double const* vl, double const* vu,
                            int const* il, int const* iu, double const* abstol, int* m, double* w, double* z, int const* ldz, int* isuppz,
                            double* work, int const* lwork, int* iwork, int const* liwork, int* info)
{
    dstevr_(jobz, range, n, d, e, vl, vu, il, iu, abstol, m, w, z, ldz, isuppz, work, lwork, iwork, liwork, info, kLength1, kLength1);
}

extern "C" void BLAC_DSYEV(char const* jobz, char const* uplo, int const* n, double* a, int const* lda, double* w, double* work,
                           int const* lwork, int* info)
{
    dsyev_(jobz, uplo, n, a, lda, w, work, lwork, info, kLength1, kLength1);
}

extern "C" void BLAC_DSYEVX(char const* jobz, char const* range, char const* uplo, int const* n, double* a, int const* lda,
                            double const* vl, double const* vu, int const* il, int const* iu, double const* abstol, int* m, double* w,
                            double* z, int const* ldz, double* work, int const* lwork, int* iwork, int* ifail, int* info)
{
    dsyevx_(jobz, range, uplo, n, a, lda, vl, vu, il, iu, abstol, m, w, z, ldz, work, lwork, iwork, ifail, info, kLength1, kLength1,
            kLength1);
}

extern "C" void BLAC_DSYGST(int const* itype, char const* uplo, int const* n, double* a, int const* lda, double const* b, int const* ldb,
                            int* info)
{
    dsygst_(itype, uplo, n, a, lda, b, ldb, info, kLength1);
}

extern "C" void BLAC_DSYGV(int const* itype, char const* jobz, char const* uplo, int const* n, double* a, int const* lda, double* b,
                           int const* ldb, double* w, double* work, int const* lwork, int* info)
{
    dsygv_(itype, jobz, uplo, n, a, lda, b, ldb, w, work, lwork, info, kLength1, kLength1);
}

extern "C" void BLAC_DSYTRD(char const* uplo, int const* n, double* a, int const* lda, double* d, double* e, double* tau, double* work,
                            int const* lwork, int* info)
{
    dsytrd_(uplo, n, a, lda, d, e, tau, work, lwork, info, kLength1);
}
