#pragma once

#include <cstddef>
#include <type_traits>

/// The BLAS and LAPACK provider: the one place that knows its names and its calling convention.
///
/// Fortran's: lower-case names with an underscore, arguments by reference, 32-bit integers, and behind them the length of every character
/// argument as a std::size_t, in order. The reference routines read one character only, and providers written in C take no lengths at all,
/// but one that a Fortran compiler built may keep other things in the place of a length that was not passed; an unused one costs a push.

extern "C" {

// Environment and error handler.
int ilaenv_(int const* ispec, char const* name, char const* opts, int const* n1, int const* n2, int const* n3, int const* n4, std::size_t,
            std::size_t);
int lsame_(char const* ca, char const* cb, std::size_t, std::size_t);
double dlamch_(char const* cmach, std::size_t);
int ieeeck_(int const* ispec, float const* zero, float const* one);
void xerbla_(char const* name, int const* info, std::size_t);

// BLAS, level 1.
double dasum_(int const* n, double const* x, int const* incx);
void daxpy_(int const* n, double const* alpha, double const* x, int const* incx, double* y, int const* incy);
void dcopy_(int const* n, double const* x, int const* incx, double* y, int const* incy);
double ddot_(int const* n, double const* x, int const* incx, double const* y, int const* incy);
double dnrm2_(int const* n, double const* x, int const* incx);
void drot_(int const* n, double* x, int const* incx, double* y, int const* incy, double const* c, double const* s);
void dscal_(int const* n, double const* alpha, double* x, int const* incx);
void dswap_(int const* n, double* x, int const* incx, double* y, int const* incy);
int idamax_(int const* n, double const* x, int const* incx);

// BLAS, level 2.
void dgemv_(char const* trans, int const* m, int const* n, double const* alpha, double const* a, int const* lda, double const* x,
            int const* incx, double const* beta, double* y, int const* incy, std::size_t);
void dsymv_(char const* uplo, int const* n, double const* alpha, double const* a, int const* lda, double const* x, int const* incx,
            double const* beta, double* y, int const* incy, std::size_t);
void dspmv_(char const* uplo, int const* n, double const* alpha, double const* ap, double const* x, int const* incx, double const* beta,
            double* y, int const* incy, std::size_t);
void dger_(int const* m, int const* n, double const* alpha, double const* x, int const* incx, double const* y, int const* incy, double* a,
           int const* lda);
void dsyr_(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx, double* a, int const* lda, std::size_t);
void dsyr2_(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx, double const* y, int const* incy,
            double* a, int const* lda, std::size_t);
void dspr_(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx, double* ap, std::size_t);
void dspr2_(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx, double const* y, int const* incy,
            double* ap, std::size_t);
void dtpmv_(char const* uplo, char const* trans, char const* diag, int const* n, double const* ap, double* x, int const* incx, std::size_t,
            std::size_t, std::size_t);
void dtpsv_(char const* uplo, char const* trans, char const* diag, int const* n, double const* ap, double* x, int const* incx, std::size_t,
            std::size_t, std::size_t);
void dtrmv_(char const* uplo, char const* trans, char const* diag, int const* n, double const* a, int const* lda, double* x,
            int const* incx, std::size_t, std::size_t, std::size_t);
void dtrsv_(char const* uplo, char const* trans, char const* diag, int const* n, double const* a, int const* lda, double* x,
            int const* incx, std::size_t, std::size_t, std::size_t);

// BLAS, level 3.
void dgemm_(char const* transa, char const* transb, int const* m, int const* n, int const* k, double const* alpha, double const* a,
            int const* lda, double const* b, int const* ldb, double const* beta, double* c, int const* ldc, std::size_t, std::size_t);
void dsymm_(char const* side, char const* uplo, int const* m, int const* n, double const* alpha, double const* a, int const* lda,
            double const* b, int const* ldb, double const* beta, double* c, int const* ldc, std::size_t, std::size_t);
void dsyrk_(char const* uplo, char const* trans, int const* n, int const* k, double const* alpha, double const* a, int const* lda,
            double const* beta, double* c, int const* ldc, std::size_t, std::size_t);
void dsyr2k_(char const* uplo, char const* trans, int const* n, int const* k, double const* alpha, double const* a, int const* lda,
             double const* b, int const* ldb, double const* beta, double* c, int const* ldc, std::size_t, std::size_t);
void dtrmm_(char const* side, char const* uplo, char const* transa, char const* diag, int const* m, int const* n, double const* alpha,
            double const* a, int const* lda, double* b, int const* ldb, std::size_t, std::size_t, std::size_t, std::size_t);
void dtrsm_(char const* side, char const* uplo, char const* transa, char const* diag, int const* m, int const* n, double const* alpha,
            double const* a, int const* lda, double* b, int const* ldb, std::size_t, std::size_t, std::size_t, std::size_t);

// LAPACK: linear systems.
void dgelss_(int const* m, int const* n, int const* nrhs, double* a, int const* lda, double* b, int const* ldb, double* s,
             double const* rcond, int* rank, double* work, int const* lwork, int* info);
void dgesv_(int const* n, int const* nrhs, double* a, int const* lda, int* ipiv, double* b, int const* ldb, int* info);
void dgetrf_(int const* m, int const* n, double* a, int const* lda, int* ipiv, int* info);
void dgetrs_(char const* trans, int const* n, int const* nrhs, double const* a, int const* lda, int const* ipiv, double* b, int const* ldb,
             int* info, std::size_t);
void dpotrf_(char const* uplo, int const* n, double* a, int const* lda, int* info, std::size_t);
void dppsv_(char const* uplo, int const* n, int const* nrhs, double* ap, double* b, int const* ldb, int* info, std::size_t);
void dpptrf_(char const* uplo, int const* n, double* ap, int* info, std::size_t);
void dpptri_(char const* uplo, int const* n, double* ap, int* info, std::size_t);
void dpptrs_(char const* uplo, int const* n, int const* nrhs, double const* ap, double* b, int const* ldb, int* info, std::size_t);
void dsytrf_(char const* uplo, int const* n, double* a, int const* lda, int* ipiv, double* work, int const* lwork, int* info, std::size_t);
void dsytrs_(char const* uplo, int const* n, int const* nrhs, double const* a, int const* lda, int const* ipiv, double* b, int const* ldb,
             int* info, std::size_t);
void dtptri_(char const* uplo, char const* diag, int const* n, double* ap, int* info, std::size_t, std::size_t);

// LAPACK: eigenproblems.
void dgeev_(char const* jobvl, char const* jobvr, int const* n, double* a, int const* lda, double* wr, double* wi, double* vl,
            int const* ldvl, double* vr, int const* ldvr, double* work, int const* lwork, int* info, std::size_t, std::size_t);
void zgeev_(char const* jobvl, char const* jobvr, int const* n, double* a, int const* lda, double* w, double* vl, int const* ldvl,
            double* vr, int const* ldvr, double* work, int const* lwork, double* rwork, int* info, std::size_t, std::size_t);
void dormtr_(char const* side, char const* uplo, char const* trans, int const* m, int const* n, double const* a, int const* lda,
             double const* tau, double* c, int const* ldc, double* work, int const* lwork, int* info, std::size_t, std::size_t,
             std::size_t);
void dspevx_(char const* jobz, char const* range, char const* uplo, int const* n, double* ap, double const* vl, double const* vu,
             int const* il, int const* iu, double const* abstol, int* m, double* w, double* z, int const* ldz, double* work, int* iwork,
             int* ifail, int* info, std::size_t, std::size_t, std::size_t);
void dstemr_(char const* jobz, char const* range, int const* n, double* d, double* e, double const* vl, double const* vu, int const* il,
             int const* iu, int* m, double* w, double* z, int const* ldz, int const* nzc, int* isuppz, int* tryrac, double* work,
             int const* lwork, int* iwork, int const* liwork, int* info, std::size_t, std::size_t);
void dstevr_(char const* jobz, char const* range, int const* n, double* d, double* e, double const* vl, double const* vu, int const* il,
             int const* iu, double const* abstol, int* m, double* w, double* z, int const* ldz, int* isuppz, double* work, int const* lwork,
             int* iwork, int const* liwork, int* info, std::size_t, std::size_t);
void dsyev_(char const* jobz, char const* uplo, int const* n, double* a, int const* lda, double* w, double* work, int const* lwork,
            int* info, std::size_t, std::size_t);
void dsyevx_(char const* jobz, char const* range, char const* uplo, int const* n, double* a, int const* lda, double const* vl,
             double const* vu, int const* il, int const* iu, double const* abstol, int* m, double* w, double* z, int const* ldz,
             double* work, int const* lwork, int* iwork, int* ifail, int* info, std::size_t, std::size_t, std::size_t);
void dsygst_(int const* itype, char const* uplo, int const* n, double* a, int const* lda, double const* b, int const* ldb, int* info,
             std::size_t);
void dsygv_(int const* itype, char const* jobz, char const* uplo, int const* n, double* a, int const* lda, double* b, int const* ldb,
            double* w, double* work, int const* lwork, int* info, std::size_t, std::size_t);
void dsytrd_(char const* uplo, int const* n, double* a, int const* lda, double* d, double* e, double* tau, double* work, int const* lwork,
             int* info, std::size_t);

} // extern "C"

namespace blac
{

/// The hidden length of a character argument that is one character.
inline constexpr std::size_t kLength1 = 1;

template<class Routine>
inline constexpr bool takesLengthPerCharacter = false;

template<class Result, class... Arguments>
inline constexpr bool takesLengthPerCharacter<Result(Arguments...)> = (std::is_same_v<Arguments, char const*> + ... + 0) ==
                                                                      (std::is_same_v<Arguments, std::size_t> + ... + 0);

template<class... Routines>
consteval bool TakeLengthPerCharacter(Routines*...)
{
    return (takesLengthPerCharacter<Routines> && ...);
}

// Every routine takes a length for each of its character arguments; none is excepted.
static_assert(TakeLengthPerCharacter(ilaenv_, lsame_, dlamch_, ieeeck_, xerbla_, dasum_, daxpy_, dcopy_, ddot_, dnrm2_, drot_, dscal_,
                                     dswap_, idamax_, dgemv_, dsymv_, dspmv_, dger_, dsyr_, dsyr2_, dspr_, dspr2_, dtpmv_, dtpsv_, dtrmv_,
                                     dtrsv_, dgemm_, dsymm_, dsyrk_, dsyr2k_, dtrmm_, dtrsm_, dgelss_, dgesv_, dgetrf_, dgetrs_, dpotrf_,
                                     dppsv_, dpptrf_, dpptri_, dpptrs_, dsytrf_, dsytrs_, dtptri_, dgeev_, zgeev_, dormtr_, dspevx_,
                                     dstemr_, dstevr_, dsyev_, dsyevx_, dsygst_, dsygv_, dsytrd_));

} // namespace blac
