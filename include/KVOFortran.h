#pragma once

#include "KVOExport.h"

#include <stddef.h>
#include <stdint.h>

/// @file
/// The Fortran-callable entry points, as C prototypes; the Fortran module kvo_mtx declares the same for Fortran.
///
/// Conventions. Every argument but a handle is passed by reference: inputs point to const, outputs do not.
/// Integers are 32-bit, reals 64-bit, matrices are stored by columns. A character argument is one character, of which
/// only the first is read, and takes no hidden length; the one exception is BLAC_ILAENV. No entry point keeps a
/// pointer, and but for those of containers and of sparse assembly none allocates for its caller or throws by itself.
///
/// BLAC_<ROUTINE> takes the arguments of the BLAS or LAPACK routine of that name, in its order, and forwards them
/// unchanged to the provider that is loaded: shapes, workspace sizes and results are those of the routine's own
/// documentation (LAPACK Users' Guide, 3rd edition, and the comments of the reference source). Arguments are checked by
/// the provider, which reports to its XERBLA; the reference XERBLA stops the process. `info` is 0 on success, -i when
/// argument i is wrong, and otherwise what the routine states.
/// They are as thread-safe as the provider is.

#ifdef __cplusplus
extern "C" {
#endif

/// @name Timers and sort
/// @{

/// Gives the processor time of the process in seconds since the process's timer was started
/// (KVOSrvTimer::CreateTimer()).
/// @param[out] t  seconds; without a timer NaN, and a line on the error stream
KVO_EXPORT void KVOSRVGETCPUTIME(double* t);

/// Gives the elapsed time in seconds since the process's timer was started; otherwise as KVOSRVGETCPUTIME.
KVO_EXPORT void KVOSRVGETWALLTIME(double* t);

/// Sorts `keys` ascending, in place; tag k and column k go where key k goes. Not stable; the places of NaN keys are
/// unspecified.
///
/// @param[in,out] keys     `n` keys
/// @param[in,out] columns  `nrow` x `n`, leading dimension `nrow`; not touched when `nrow` is 0 or less
/// @param[in,out] tags     `n` integers
/// @param         nrow     entries carried per key
/// @param         n        number of keys; 0 or less sorts nothing
/// @param[out]    status   0; -1 when the stack of pending ranges was exhausted: the items are then all there, but only
/// partly sorted
/// @complexity O(n log n) comparisons on average, no allocation
KVO_EXPORT void KVOSRVSORT13(double* keys, double* columns, int* tags, int const* nrow, int const* n, int* status);

/// @}
/// @name Constants, environment and error handler
/// @{

/// Machine and mathematical constants by number; any other number gives the NaN of number 1.
///
/// | index | value |
/// |---|---|
/// | 1 | quiet NaN with every mantissa bit set |
/// | 2 | 2^1022 |
/// | 3, 4 | largest double, smallest normalized double |
/// | 5 | machine epsilon, 2^-52 |
/// | 6 | unit round-off, one unit in the last place above 2^-53 |
/// | 7, 8 | radix 2, mantissa digits 53 |
/// | 9, 10 | largest and smallest safe exponent of exp, 709 and -708 |
/// | 11 | largest 32-bit integer |
/// | 12, 13, 14 | pi, e, Euler's constant |
/// | 15, 16 | radians per degree, degrees per radian |
KVO_EXPORT double BLAC_HDMCON(int const* index);

/// XERBLA: reports that argument `info` of routine `name` is wrong, through the provider's error handler.
/// @param name  6 characters, padded with blanks, not terminated
KVO_EXPORT void BLAC_XERBLA(char const* name, int const* info);

/// ILAENV: block sizes and tuning values. The only entry point that takes hidden lengths, those of `name` and `opts`,
/// since both vary.
KVO_EXPORT int BLAC_ILAENV(int const* ispec, char const* name, char const* opts, int const* n1, int const* n2,
                           int const* n3, int const* n4, size_t nameLength, size_t optsLength);

/// LSAME: not 0 when both characters are the same letter, whatever their case.
KVO_EXPORT int BLAC_LSAME(char const* ca, char const* cb);

/// DLAMCH: machine parameter `cmach` ('E' epsilon, 'S' safe minimum, 'B' base, 'P', 'N', 'R', 'M', 'U', 'L', 'O').
KVO_EXPORT double BLAC_DLAMCH(char const* cmach);

/// IEEECK: 1 when infinities (`ispec` 0) or also NaNs (`ispec` 1) are safe in arithmetic. The constants 0 and 1 are
/// single precision.
KVO_EXPORT int BLAC_IEEECK(int const* ispec, float const* zero, float const* one);

/// @}
/// @name BLAS, level 1: vectors
/// @{

/// DASUM: sum of |x_i|.
KVO_EXPORT double BLAC_DASUM(int const* n, double const* x, int const* incx);
/// DAXPY: y := alpha x + y.
KVO_EXPORT void BLAC_DAXPY(int const* n, double const* alpha, double const* x, int const* incx, double* y,
                           int const* incy);
/// DCOPY: y := x.
KVO_EXPORT void BLAC_DCOPY(int const* n, double const* x, int const* incx, double* y, int const* incy);
/// DDOT: x^T y.
KVO_EXPORT double BLAC_DDOT(int const* n, double const* x, int const* incx, double const* y, int const* incy);
/// DNRM2: Euclidean norm of x, without needless overflow.
KVO_EXPORT double BLAC_DNRM2(int const* n, double const* x, int const* incx);
/// DROT: plane rotation (x, y) := (c x + s y, c y - s x).
KVO_EXPORT void BLAC_DROT(int const* n, double* x, int const* incx, double* y, int const* incy, double const* c,
                          double const* s);
/// DSCAL: x := alpha x.
KVO_EXPORT void BLAC_DSCAL(int const* n, double const* alpha, double* x, int const* incx);
/// DSWAP: x <-> y.
KVO_EXPORT void BLAC_DSWAP(int const* n, double* x, int const* incx, double* y, int const* incy);
/// IDAMAX: 1-based position of the first entry of largest |x_i|, 0 when `n` < 1.
KVO_EXPORT int BLAC_IDAMAX(int const* n, double const* x, int const* incx);

/// @}
/// @name BLAS, level 2: matrix and vector
/// @{

/// DGEMV: y := alpha op(A) x + beta y, A m x n.
KVO_EXPORT void BLAC_DGEMV(char const* trans, int const* m, int const* n, double const* alpha, double const* a,
                           int const* lda, double const* x, int const* incx, double const* beta, double* y,
                           int const* incy);
/// DSYMV: y := alpha A x + beta y, A symmetric.
KVO_EXPORT void BLAC_DSYMV(char const* uplo, int const* n, double const* alpha, double const* a, int const* lda,
                           double const* x, int const* incx, double const* beta, double* y, int const* incy);
/// DSPMV: y := alpha A x + beta y, A symmetric, packed.
KVO_EXPORT void BLAC_DSPMV(char const* uplo, int const* n, double const* alpha, double const* ap, double const* x,
                           int const* incx, double const* beta, double* y, int const* incy);
/// DGER: A := alpha x y^T + A.
KVO_EXPORT void BLAC_DGER(int const* m, int const* n, double const* alpha, double const* x, int const* incx,
                          double const* y, int const* incy, double* a, int const* lda);
/// DSYR: A := alpha x x^T + A, one triangle.
KVO_EXPORT void BLAC_DSYR(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx,
                          double* a, int const* lda);
/// DSYR2: A := alpha (x y^T + y x^T) + A, one triangle.
KVO_EXPORT void BLAC_DSYR2(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx,
                           double const* y, int const* incy, double* a, int const* lda);
/// DSPR: A := alpha x x^T + A, packed.
KVO_EXPORT void BLAC_DSPR(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx,
                          double* ap);
/// DSPR2: A := alpha (x y^T + y x^T) + A, packed.
KVO_EXPORT void BLAC_DSPR2(char const* uplo, int const* n, double const* alpha, double const* x, int const* incx,
                           double const* y, int const* incy, double* ap);
/// DTPMV: x := op(A) x, A triangular, packed.
KVO_EXPORT void BLAC_DTPMV(char const* uplo, char const* trans, char const* diag, int const* n, double const* ap,
                           double* x, int const* incx);
/// DTPSV: x := op(A)^-1 x, A triangular, packed; singularity is not tested.
KVO_EXPORT void BLAC_DTPSV(char const* uplo, char const* trans, char const* diag, int const* n, double const* ap,
                           double* x, int const* incx);
/// DTRMV: x := op(A) x, A triangular.
KVO_EXPORT void BLAC_DTRMV(char const* uplo, char const* trans, char const* diag, int const* n, double const* a,
                           int const* lda, double* x, int const* incx);
/// DTRSV: x := op(A)^-1 x, A triangular; singularity is not tested.
KVO_EXPORT void BLAC_DTRSV(char const* uplo, char const* trans, char const* diag, int const* n, double const* a,
                           int const* lda, double* x, int const* incx);

/// @}
/// @name BLAS, level 3: matrices
/// @{

/// DGEMM: C := alpha op(A) op(B) + beta C, C m x n, the inner dimension k; by the provider.
KVO_EXPORT void BLAC_DGEMM(char const* transa, char const* transb, int const* m, int const* n, int const* k,
                           double const* alpha, double const* a, int const* lda, double const* b, int const* ldb,
                           double const* beta, double* c, int const* ldc);
/// DGEMM by the product that is built into the library: the same arguments and the checks of the reference routine,
/// which report to the provider's XERBLA as "DGEMM "; the values do not depend on the provider, only on the processor.
/// One thread.
/// C may not overlap A or B; with beta = 0 C is written without being read.
KVO_EXPORT void BLAC_DGEMM2(char const* transa, char const* transb, int const* m, int const* n, int const* k,
                            double const* alpha, double const* a, int const* lda, double const* b, int const* ldb,
                            double const* beta, double* c, int const* ldc);
/// DSYMM: C := alpha A B + beta C or alpha B A + beta C, A symmetric.
KVO_EXPORT void BLAC_DSYMM(char const* side, char const* uplo, int const* m, int const* n, double const* alpha,
                           double const* a, int const* lda, double const* b, int const* ldb, double const* beta,
                           double* c, int const* ldc);
/// DSYRK: C := alpha A A^T + beta C or alpha A^T A + beta C, one triangle of C.
KVO_EXPORT void BLAC_DSYRK(char const* uplo, char const* trans, int const* n, int const* k, double const* alpha,
                           double const* a, int const* lda, double const* beta, double* c, int const* ldc);
/// DSYR2K: C := alpha (A B^T + B A^T) + beta C or alpha (A^T B + B^T A) + beta C, one triangle of C.
KVO_EXPORT void BLAC_DSYR2K(char const* uplo, char const* trans, int const* n, int const* k, double const* alpha,
                            double const* a, int const* lda, double const* b, int const* ldb, double const* beta,
                            double* c, int const* ldc);
/// DTRMM: B := alpha op(A) B or alpha B op(A), A triangular.
KVO_EXPORT void BLAC_DTRMM(char const* side, char const* uplo, char const* transa, char const* diag, int const* m,
                           int const* n, double const* alpha, double const* a, int const* lda, double* b,
                           int const* ldb);
/// DTRSM: B := alpha op(A)^-1 B or alpha B op(A)^-1, A triangular; singularity is not tested.
KVO_EXPORT void BLAC_DTRSM(char const* side, char const* uplo, char const* transa, char const* diag, int const* m,
                           int const* n, double const* alpha, double const* a, int const* lda, double* b,
                           int const* ldb);

/// @}
/// @name LAPACK: linear systems
/// @{

/// DGELSS: minimum-norm least squares by singular values; B m x nrhs in, solutions in its first n rows out.
KVO_EXPORT void BLAC_DGELSS(int const* m, int const* n, int const* nrhs, double* a, int const* lda, double* b,
                            int const* ldb, double* s, double const* rcond, int* rank, double* work, int const* lwork,
                            int* info);
/// DGESV: solves A X = B by LU factorization with row pivoting.
KVO_EXPORT void BLAC_DGESV(int const* n, int const* nrhs, double* a, int const* lda, int* ipiv, double* b,
                           int const* ldb, int* info);
/// DGETRF: LU factorization with row pivoting; info = i > 0: U(i,i) is zero.
KVO_EXPORT void BLAC_DGETRF(int const* m, int const* n, double* a, int const* lda, int* ipiv, int* info);
/// DGETRS: solves with the factors of DGETRF.
KVO_EXPORT void BLAC_DGETRS(char const* trans, int const* n, int const* nrhs, double const* a, int const* lda,
                            int const* ipiv, double* b, int const* ldb, int* info);
/// DPOTRF: Cholesky factorization; info = i > 0: the leading minor of order i is not positive definite.
KVO_EXPORT void BLAC_DPOTRF(char const* uplo, int const* n, double* a, int const* lda, int* info);
/// DPPSV: solves A X = B by Cholesky factorization, packed.
KVO_EXPORT void BLAC_DPPSV(char const* uplo, int const* n, int const* nrhs, double* ap, double* b, int const* ldb,
                           int* info);
/// DPPTRF: Cholesky factorization, packed.
KVO_EXPORT void BLAC_DPPTRF(char const* uplo, int const* n, double* ap, int* info);
/// DPPTRI: inverse from the factor of DPPTRF, packed.
KVO_EXPORT void BLAC_DPPTRI(char const* uplo, int const* n, double* ap, int* info);
/// DPPTRS: solves with the factor of DPPTRF, packed.
KVO_EXPORT void BLAC_DPPTRS(char const* uplo, int const* n, int const* nrhs, double const* ap, double* b,
                            int const* ldb, int* info);
/// DSYTRF: Bunch-Kaufman factorization of a symmetric indefinite matrix; info = i > 0: D(i,i) is zero.
KVO_EXPORT void BLAC_DSYTRF(char const* uplo, int const* n, double* a, int const* lda, int* ipiv, double* work,
                            int const* lwork, int* info);
/// DSYTRS: solves with the factors of DSYTRF.
KVO_EXPORT void BLAC_DSYTRS(char const* uplo, int const* n, int const* nrhs, double const* a, int const* lda,
                            int const* ipiv, double* b, int const* ldb, int* info);
/// DTPTRI: inverse of a triangular matrix, packed.
KVO_EXPORT void BLAC_DTPTRI(char const* uplo, char const* diag, int const* n, double* ap, int* info);

/// @}
/// @name LAPACK: eigenproblems
/// @{

/// DGEEV: eigenvalues and optionally left and right eigenvectors of a general matrix.
KVO_EXPORT void BLAC_DGEEV(char const* jobvl, char const* jobvr, int const* n, double* a, int const* lda, double* wr,
                           double* wi, double* vl, int const* ldvl, double* vr, int const* ldvr, double* work,
                           int const* lwork, int* info);
/// ZGEEV: the same for a complex matrix. `a`, `w`, `vl`, `vr` and `work` are complex: real and imaginary parts in turn,
/// leading dimensions and `lwork` count complex entries; `rwork` is real, 2 n.
KVO_EXPORT void BLAC_ZGEEV(char const* jobvl, char const* jobvr, int const* n, double* a, int const* lda, double* w,
                           double* vl, int const* ldvl, double* vr, int const* ldvr, double* work, int const* lwork,
                           double* rwork, int* info);
/// DORMTR: multiplies C by the orthogonal matrix of DSYTRD. `a` is as before on return, but the provider may write to
/// it in between.
KVO_EXPORT void BLAC_DORMTR(char const* side, char const* uplo, char const* trans, int const* m, int const* n,
                            double const* a, int const* lda, double const* tau, double* c, int const* ldc, double* work,
                            int const* lwork, int* info);
/// DSPEVX: selected eigenvalues and vectors of a symmetric matrix, packed.
KVO_EXPORT void BLAC_DSPEVX(char const* jobz, char const* range, char const* uplo, int const* n, double* ap,
                            double const* vl, double const* vu, int const* il, int const* iu, double const* abstol,
                            int* m, double* w, double* z, int const* ldz, double* work, int* iwork, int* ifail,
                            int* info);
/// DSTEMR: selected eigenvalues and vectors of a symmetric tridiagonal matrix (relatively robust representations).
/// `tryrac` is a Fortran LOGICAL, 0 or 1: in whether high relative accuracy is asked for, out whether it was reached.
KVO_EXPORT void BLAC_DSTEMR(char const* jobz, char const* range, int const* n, double* d, double* e, double const* vl,
                            double const* vu, int const* il, int const* iu, int* m, double* w, double* z,
                            int const* ldz, int const* nzc, int* isuppz, int* tryrac, double* work, int const* lwork,
                            int* iwork, int const* liwork, int* info);
/// DSTEVR: selected eigenvalues and vectors of a symmetric tridiagonal matrix.
KVO_EXPORT void BLAC_DSTEVR(char const* jobz, char const* range, int const* n, double* d, double* e, double const* vl,
                            double const* vu, int const* il, int const* iu, double const* abstol, int* m, double* w,
                            double* z, int const* ldz, int* isuppz, double* work, int const* lwork, int* iwork,
                            int const* liwork, int* info);
/// DSYEV: all eigenvalues and optionally vectors of a symmetric matrix.
KVO_EXPORT void BLAC_DSYEV(char const* jobz, char const* uplo, int const* n, double* a, int const* lda, double* w,
                           double* work, int const* lwork, int* info);
/// DSYEVX: selected eigenvalues and vectors of a symmetric matrix.
KVO_EXPORT void BLAC_DSYEVX(char const* jobz, char const* range, char const* uplo, int const* n, double* a,
                            int const* lda, double const* vl, double const* vu, int const* il, int const* iu,
                            double const* abstol, int* m, double* w, double* z, int const* ldz, double* work,
                            int const* lwork, int* iwork, int* ifail, int* info);
/// DSYGST: reduces a symmetric-definite generalized eigenproblem to the standard form, with the Cholesky factor of B
/// from DPOTRF.
KVO_EXPORT void BLAC_DSYGST(int const* itype, char const* uplo, int const* n, double* a, int const* lda,
                            double const* b, int const* ldb, int* info);
/// DSYGV: all eigenvalues and optionally vectors of A x = lambda B x (`itype` 1), A B x = lambda x (2), B A x = lambda
/// x (3);
/// info = n + i: the leading minor of order i of B is not positive definite.
KVO_EXPORT void BLAC_DSYGV(int const* itype, char const* jobz, char const* uplo, int const* n, double* a,
                           int const* lda, double* b, int const* ldb, double* w, double* work, int const* lwork,
                           int* info);
/// DSYTRD: reduces a symmetric matrix to tridiagonal form by an orthogonal similarity.
KVO_EXPORT void BLAC_DSYTRD(char const* uplo, int const* n, double* a, int const* lda, double* d, double* e,
                            double* tau, double* work, int const* lwork, int* info);

/// @}
/// @name Sparse matrices
///
/// Products of a matrix A of compressed rows with `nvec` vectors, stored by columns without gaps. The arrays of A are
/// 0-based also for Fortran: the entries of row i = 0 ... n - 1 are a[k], in column ja[k], for k from ia[i] to ia[i +
/// 1] - 1; `ia` is read as unsigned. Columns may stand in any order and more than once. Nothing is checked; x and y may
/// not overlap. No scratch memory.
///
/// Where the host lends threads (KVOSrvParallel, which see) the first product is cut by rows, the other two by groups
/// of vectors.
///
/// Every sum is formed as the plain loop does it, by ascending k and rounded after each product and each sum, whatever
/// the processor and however the vectors are grouped: nine vectors at once give the bits of nine calls with one.
/// @{

/// y := A x, y(i, j) = sum over k of a[k] x(ja[k], j).
/// @param x     `m` x `nvec`
/// @param[out] y  `n` x `nvec`; assigned
/// @param n,m   rows and columns of A
/// @param nvec  0 touches nothing
KVO_EXPORT void BLAC_SPARSE_UMV(double const* a, double const* x, int const* ia, int const* ja, double* y, int const* n,
                                int const* m, int const* nvec);
/// y := A^T x: y is set to 0, then y(ja[k], j) += a[k] x(i, j) row after row, by ascending k.
/// @param x     `n` x `nvec`
/// @param[out] y  `m` x `nvec`
KVO_EXPORT void BLAC_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                                 int const* n, int const* m, int const* nvec);
/// y := B^T x as BLAC_SPARSE_UMTV, where row l of B is row index[l] of A.
/// @param x       `nIndex` x `nvec`
/// @param[out] y  `m` x `nvec`
/// @param index   `nIndex` row numbers, 0-based, in any order and also repeated
KVO_EXPORT void BLAC_SPARSE_SPARSE_UMTV(double const* a, double const* x, int const* ia, int const* ja, double* y,
                                        int const* nIndex, int const* m, int const* nvec, int const* index);
/// Chooses the instructions of the three products for the whole process, to compare or to time them; results do not
/// depend on it.
/// @param request  0 baseline (SSE2), 1 AVX2, 2 AVX-512; what the processor lacks is replaced by the best that it has,
///                 which a negative request also gives and which is in force from the start
/// @param[out] inForce  the level from now on
KVO_EXPORT void BLAC_SPARSE_LEVEL(int const* request, int* inForce);

/// @}
/// @name Sparse assembly
///
/// From the entries of an element loop to compressed rows, and new values for the same pattern without sorting:
/// KVOSrvSparseMatrix and KVOSrvSparsePlaces, which see. Numbers of rows and columns are 0-based also for Fortran.
///
/// A handle is the address of the object: C++ may hand over one of its own, which stays its own, and that of a matrix
/// serves the entry points of the modes library, too. What can fail answers a status, 0; an error number of
/// docs/errors.md; -1 when memory is exhausted; -2 for the handle 0. Matrices are as they were after a status other
/// than 0, which KVOSRVLASTERROR explains. Half storage is refused, number 201.
/// @{

/// Makes a matrix of `rows` x `columns` of unordered entries; those of one place are summed in their order, and the
/// matrix is enlarged to hold all.
/// @param count        how many entries; 0 or fewer: none
/// @param row,column   0-based place of each entry
/// @param values       value of each entry
/// @param[out] handle  of the matrix, which KVOSRVSPARSERELEASE ends; 0 unless the status is 0
KVO_EXPORT int KVOSRVSPARSEASSEMBLE(int const* rows, int const* columns, int const* count, int const* row,
                                    int const* column, double const* values, int64_t* handle);
/// Gives the sizes of a matrix and the number of its stored entries.
KVO_EXPORT int KVOSRVSPARSESIZES(int64_t handle, int* rows, int* columns, int* entries);
/// Copies the pattern of a matrix, as BLAC_SPARSE_UMV takes it.
/// @param[out] rowStart  rows + 1 offsets, from 0
/// @param[out] columns   column of each stored entry, 0-based, ascending within a row
KVO_EXPORT int KVOSRVSPARSEROWS(int64_t handle, int* rowStart, int* columns);
/// Copies the stored values of a matrix, in the order of its pattern.
/// @param[out] values  as many as there are stored entries
KVO_EXPORT int KVOSRVSPARSEVALUES(int64_t handle, double* values);
/// Ends a matrix; the handle 0 does nothing.
KVO_EXPORT void KVOSRVSPARSERELEASE(int64_t handle);

/// Finds the places of entries in a matrix. 206: the matrix stores nothing at the place of an entry, which the text
/// names.
/// @param row,column   0-based place of each of the `count` entries, in any order, also repeatedly
/// @param[out] places  handle of the places, which KVOSRVSPARSEPLACESRELEASE ends; 0 unless the status is 0
KVO_EXPORT int KVOSRVSPARSEPLACES(int64_t handle, int const* count, int const* row, int const* column, int64_t* places);
/// Ends places; the handle 0 does nothing.
KVO_EXPORT void KVOSRVSPARSEPLACESRELEASE(int64_t places);
/// Sets all stored values to -0.0, the number that changes none that is added to it.
KVO_EXPORT int KVOSRVSPARSECLEARVALUES(int64_t handle);
/// Adds values[k] at the k-th of the places. 206: they were found in another pattern.
/// @param values  as many as the places
KVO_EXPORT int KVOSRVSPARSEADDVALUES(int64_t handle, int64_t places, double const* values);

/// @}
/// @name Threads of the host
///
/// KVOSrvParallel, which see, for callers without objects.
/// @{

/// From now on the calling thread's operations are cut into tasks, which `run` runs, up to KVOSRVPARALLELEND; nests.
/// @param run      calls task(data, index) once for each index from 0 to tasks - 1, on whatever threads it likes, and
///                 returns when all calls have; from Fortran c_funloc of a procedure with the interface KVOPARALLELRUN.
///                 Null: nothing is cut
/// @param context  handed to `run`
/// @param threads  how many threads `run` has; 0: as many as there are processors
/// @return 0; -1 when memory is exhausted, nothing is begun then
KVO_EXPORT int KVOSRVPARALLELBEGIN(void (*run)(void* context, int tasks, void (*task)(void* data, int index),
                                               void* data),
                                   void* context, int const* threads);
/// Ends what the calling thread has begun last. A thread ends all that it has begun. @return 0; -2 when there was
/// nothing to end
KVO_EXPORT int KVOSRVPARALLELEND(void);

/// @}
/// @name Matrix containers
///
/// A container (KVOSrvMatrixContainer, which see) holds database matrices by id, in a file of its own in the working
/// directory. C++ creates and removes its matrices; these entry points make the container, read the matrices and delete
/// the container. Its handle is its address: C++ may make one, too, with `new`. Handle 0 is no container.
///
/// Asked for a matrix that is not there (unknown or removed, or no container), they write a line to the error stream
/// and answer as stated. Where the database fails, KVOSimException leaves through the caller, which only C++ can catch.
/// The entry points with TRY in their name do the same and answer a status instead, which a Fortran caller can look at:
/// 0; an error number of docs/errors.md; -1 when memory is exhausted; -2 when there is no such matrix. Nothing leaves
/// them, nothing is written to the error stream, and KVOSRVLASTERROR tells why.
/// @{

/// Makes an empty container. @return its handle; KVOSRVMATRIXCONTAINERDELETE ends it
KVO_EXPORT int64_t KVOSRVMATRIXCONTAINERCREATE(void);
/// The same with a status. @param[out] handle  0 unless the status is 0
KVO_EXPORT int KVOSRVMATRIXCONTAINERTRYCREATE(int64_t* handle);
/// The rows of the matrix `id`; 0 when there is none.
KVO_EXPORT int KVOSRVMATRIXCONTAINERNUMROWS(int64_t handle, int const* id);
/// The columns of the matrix `id`; 0 when there is none.
KVO_EXPORT int KVOSRVMATRIXCONTAINERNUMCOLUMNS(int64_t handle, int const* id);
/// Reads the whole matrix `id`. @param[out] values  rows x columns, without gaps; not touched when there is no such
/// matrix
KVO_EXPORT void KVOSRVMATRIXCONTAINERGETVALUES(int64_t handle, int const* id, double* values);
/// The same with a status. @param[out] values  not all set unless the status is 0
KVO_EXPORT int KVOSRVMATRIXCONTAINERTRYGETVALUES(int64_t handle, int const* id, double* values);
/// Deletes the container with its matrices and its file; the handle 0 does nothing.
KVO_EXPORT void KVOSRVMATRIXCONTAINERDELETE(int64_t handle);

/// The message of the last status other than 0 that an entry point gave in this thread; empty before the first.
/// @param[out] text  `length` characters, cut or padded with blanks
/// @return the characters of the whole message, 1023 at most
KVO_EXPORT int KVOSRVLASTERROR(char* text, int const* length);

/// @}

#ifdef __cplusplus
} // extern "C"
#endif
