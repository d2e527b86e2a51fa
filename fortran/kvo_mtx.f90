!> The Fortran-callable entry points of the library, with explicit interfaces; KVOFortran.h declares the same for C, with the manual.
!!
!! A character argument is one character; only BLAC_ILAENV takes lengths, those of its name and options. Complex arrays are ordinary
!! complex arrays here and interleaved doubles in C. A Fortran LOGICAL (tryrac) and the result of BLAC_LSAME are integers, 0 or 1.
!! The interfaces follow the header's order; a test compiles them as C prototypes together with it.
module kvo_mtx
    use, intrinsic :: iso_c_binding, only: c_char, c_double, c_double_complex, c_float, c_funptr, c_int, c_int64_t, c_ptr, c_size_t
    implicit none
    private :: c_char, c_double, c_double_complex, c_float, c_funptr, c_int, c_int64_t, c_ptr, c_size_t

    ! What KVOSRVPARALLELBEGIN takes by c_funloc, and what that is given: see c_f_procpointer. Doxygen cannot describe abstract interfaces.
    !> @cond
    abstract interface
        subroutine KVOPARALLELRUN(context, tasks, task, data) bind(C)
            import
            type(c_ptr), value :: context, data
            integer(c_int), value :: tasks
            type(c_funptr), value :: task
        end subroutine KVOPARALLELRUN

        subroutine KVOPARALLELTASK(data, index) bind(C)
            import
            type(c_ptr), value :: data
            integer(c_int), value :: index
        end subroutine KVOPARALLELTASK
    end interface
    !> @endcond

    interface
        ! Timers and sort.
        subroutine KVOSRVGETCPUTIME(t) bind(C, name="KVOSRVGETCPUTIME")
            import
            real(c_double), intent(out) :: t
        end subroutine KVOSRVGETCPUTIME

        subroutine KVOSRVGETWALLTIME(t) bind(C, name="KVOSRVGETWALLTIME")
            import
            real(c_double), intent(out) :: t
        end subroutine KVOSRVGETWALLTIME

        subroutine KVOSRVSORT13(keys, columns, tags, nrow, n, status) bind(C, name="KVOSRVSORT13")
            import
            integer(c_int), intent(in) :: nrow, n
            integer(c_int), intent(inout) :: tags(*)
            integer(c_int), intent(out) :: status
            real(c_double), intent(inout) :: keys(*), columns(nrow, *)
        end subroutine KVOSRVSORT13

        ! Constants, environment and error handler.
        function BLAC_HDMCON(index) bind(C, name="BLAC_HDMCON") result(r)
            import
            integer(c_int), intent(in) :: index
            real(c_double) :: r
        end function BLAC_HDMCON

        subroutine BLAC_XERBLA(name, info) bind(C, name="BLAC_XERBLA")
            import
            character(kind=c_char), intent(in) :: name(6)
            integer(c_int), intent(in) :: info
        end subroutine BLAC_XERBLA

        function BLAC_ILAENV(ispec, name, opts, n1, n2, n3, n4, name_length, opts_length) bind(C, name="BLAC_ILAENV") result(r)
            import
            character(kind=c_char), intent(in) :: name(*), opts(*)
            integer(c_int), intent(in) :: ispec, n1, n2, n3, n4
            integer(c_size_t), value :: name_length, opts_length
            integer(c_int) :: r
        end function BLAC_ILAENV

        function BLAC_LSAME(ca, cb) bind(C, name="BLAC_LSAME") result(r)
            import
            character(kind=c_char), intent(in) :: ca, cb
            integer(c_int) :: r
        end function BLAC_LSAME

        function BLAC_DLAMCH(cmach) bind(C, name="BLAC_DLAMCH") result(r)
            import
            character(kind=c_char), intent(in) :: cmach
            real(c_double) :: r
        end function BLAC_DLAMCH

        function BLAC_IEEECK(ispec, zero, one) bind(C, name="BLAC_IEEECK") result(r)
            import
            integer(c_int), intent(in) :: ispec
            real(c_float), intent(in) :: zero, one
            integer(c_int) :: r
        end function BLAC_IEEECK

        ! BLAS, level 1: vectors.
        function BLAC_DASUM(n, x, incx) bind(C, name="BLAC_DASUM") result(r)
            import
            integer(c_int), intent(in) :: n, incx
            real(c_double), intent(in) :: x(*)
            real(c_double) :: r
        end function BLAC_DASUM

        subroutine BLAC_DAXPY(n, alpha, x, incx, y, incy) bind(C, name="BLAC_DAXPY")
            import
            integer(c_int), intent(in) :: n, incx, incy
            real(c_double), intent(in) :: alpha, x(*)
            real(c_double), intent(inout) :: y(*)
        end subroutine BLAC_DAXPY

        subroutine BLAC_DCOPY(n, x, incx, y, incy) bind(C, name="BLAC_DCOPY")
            import
            integer(c_int), intent(in) :: n, incx, incy
            real(c_double), intent(in) :: x(*)
            real(c_double), intent(inout) :: y(*)
        end subroutine BLAC_DCOPY

        function BLAC_DDOT(n, x, incx, y, incy) bind(C, name="BLAC_DDOT") result(r)
            import
            integer(c_int), intent(in) :: n, incx, incy
            real(c_double), intent(in) :: x(*), y(*)
            real(c_double) :: r
        end function BLAC_DDOT

        function BLAC_DNRM2(n, x, incx) bind(C, name="BLAC_DNRM2") result(r)
            import
            integer(c_int), intent(in) :: n, incx
            real(c_double), intent(in) :: x(*)
            real(c_double) :: r
        end function BLAC_DNRM2

        subroutine BLAC_DROT(n, x, incx, y, incy, c, s) bind(C, name="BLAC_DROT")
            import
            integer(c_int), intent(in) :: n, incx, incy
            real(c_double), intent(in) :: c, s
            real(c_double), intent(inout) :: x(*), y(*)
        end subroutine BLAC_DROT

        subroutine BLAC_DSCAL(n, alpha, x, incx) bind(C, name="BLAC_DSCAL")
            import
            integer(c_int), intent(in) :: n, incx
            real(c_double), intent(in) :: alpha
            real(c_double), intent(inout) :: x(*)
        end subroutine BLAC_DSCAL

        subroutine BLAC_DSWAP(n, x, incx, y, incy) bind(C, name="BLAC_DSWAP")
            import
            integer(c_int), intent(in) :: n, incx, incy
            real(c_double), intent(inout) :: x(*), y(*)
        end subroutine BLAC_DSWAP

        function BLAC_IDAMAX(n, x, incx) bind(C, name="BLAC_IDAMAX") result(r)
            import
            integer(c_int), intent(in) :: n, incx
            real(c_double), intent(in) :: x(*)
            integer(c_int) :: r
        end function BLAC_IDAMAX

        ! BLAS, level 2: matrix and vector.
        subroutine BLAC_DGEMV(trans, m, n, alpha, a, lda, x, incx, beta, y, incy) bind(C, name="BLAC_DGEMV")
            import
            character(kind=c_char), intent(in) :: trans
            integer(c_int), intent(in) :: m, n, lda, incx, incy
            real(c_double), intent(in) :: alpha, a(lda, *), x(*), beta
            real(c_double), intent(inout) :: y(*)
        end subroutine BLAC_DGEMV

        subroutine BLAC_DSYMV(uplo, n, alpha, a, lda, x, incx, beta, y, incy) bind(C, name="BLAC_DSYMV")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, lda, incx, incy
            real(c_double), intent(in) :: alpha, a(lda, *), x(*), beta
            real(c_double), intent(inout) :: y(*)
        end subroutine BLAC_DSYMV

        subroutine BLAC_DSPMV(uplo, n, alpha, ap, x, incx, beta, y, incy) bind(C, name="BLAC_DSPMV")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, incx, incy
            real(c_double), intent(in) :: alpha, ap(*), x(*), beta
            real(c_double), intent(inout) :: y(*)
        end subroutine BLAC_DSPMV

        subroutine BLAC_DGER(m, n, alpha, x, incx, y, incy, a, lda) bind(C, name="BLAC_DGER")
            import
            integer(c_int), intent(in) :: m, n, incx, incy, lda
            real(c_double), intent(in) :: alpha, x(*), y(*)
            real(c_double), intent(inout) :: a(lda, *)
        end subroutine BLAC_DGER

        subroutine BLAC_DSYR(uplo, n, alpha, x, incx, a, lda) bind(C, name="BLAC_DSYR")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, incx, lda
            real(c_double), intent(in) :: alpha, x(*)
            real(c_double), intent(inout) :: a(lda, *)
        end subroutine BLAC_DSYR

        subroutine BLAC_DSYR2(uplo, n, alpha, x, incx, y, incy, a, lda) bind(C, name="BLAC_DSYR2")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, incx, incy, lda
            real(c_double), intent(in) :: alpha, x(*), y(*)
            real(c_double), intent(inout) :: a(lda, *)
        end subroutine BLAC_DSYR2

        subroutine BLAC_DSPR(uplo, n, alpha, x, incx, ap) bind(C, name="BLAC_DSPR")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, incx
            real(c_double), intent(in) :: alpha, x(*)
            real(c_double), intent(inout) :: ap(*)
        end subroutine BLAC_DSPR

        subroutine BLAC_DSPR2(uplo, n, alpha, x, incx, y, incy, ap) bind(C, name="BLAC_DSPR2")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, incx, incy
            real(c_double), intent(in) :: alpha, x(*), y(*)
            real(c_double), intent(inout) :: ap(*)
        end subroutine BLAC_DSPR2

        subroutine BLAC_DTPMV(uplo, trans, diag, n, ap, x, incx) bind(C, name="BLAC_DTPMV")
            import
            character(kind=c_char), intent(in) :: uplo, trans, diag
            integer(c_int), intent(in) :: n, incx
            real(c_double), intent(in) :: ap(*)
            real(c_double), intent(inout) :: x(*)
        end subroutine BLAC_DTPMV

        subroutine BLAC_DTPSV(uplo, trans, diag, n, ap, x, incx) bind(C, name="BLAC_DTPSV")
            import
            character(kind=c_char), intent(in) :: uplo, trans, diag
            integer(c_int), intent(in) :: n, incx
            real(c_double), intent(in) :: ap(*)
            real(c_double), intent(inout) :: x(*)
        end subroutine BLAC_DTPSV

        subroutine BLAC_DTRMV(uplo, trans, diag, n, a, lda, x, incx) bind(C, name="BLAC_DTRMV")
            import
            character(kind=c_char), intent(in) :: uplo, trans, diag
            integer(c_int), intent(in) :: n, lda, incx
            real(c_double), intent(in) :: a(lda, *)
            real(c_double), intent(inout) :: x(*)
        end subroutine BLAC_DTRMV

        subroutine BLAC_DTRSV(uplo, trans, diag, n, a, lda, x, incx) bind(C, name="BLAC_DTRSV")
            import
            character(kind=c_char), intent(in) :: uplo, trans, diag
            integer(c_int), intent(in) :: n, lda, incx
            real(c_double), intent(in) :: a(lda, *)
            real(c_double), intent(inout) :: x(*)
        end subroutine BLAC_DTRSV

        ! BLAS, level 3: matrices.
        subroutine BLAC_DGEMM(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc) bind(C, name="BLAC_DGEMM")
            import
            character(kind=c_char), intent(in) :: transa, transb
            integer(c_int), intent(in) :: m, n, k, lda, ldb, ldc
            real(c_double), intent(in) :: alpha, a(lda, *), b(ldb, *), beta
            real(c_double), intent(inout) :: c(ldc, *)
        end subroutine BLAC_DGEMM

        subroutine BLAC_DGEMM2(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc) bind(C, name="BLAC_DGEMM2")
            import
            character(kind=c_char), intent(in) :: transa, transb
            integer(c_int), intent(in) :: m, n, k, lda, ldb, ldc
            real(c_double), intent(in) :: alpha, a(lda, *), b(ldb, *), beta
            real(c_double), intent(inout) :: c(ldc, *)
        end subroutine BLAC_DGEMM2

        subroutine BLAC_DSYMM(side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc) bind(C, name="BLAC_DSYMM")
            import
            character(kind=c_char), intent(in) :: side, uplo
            integer(c_int), intent(in) :: m, n, lda, ldb, ldc
            real(c_double), intent(in) :: alpha, a(lda, *), b(ldb, *), beta
            real(c_double), intent(inout) :: c(ldc, *)
        end subroutine BLAC_DSYMM

        subroutine BLAC_DSYRK(uplo, trans, n, k, alpha, a, lda, beta, c, ldc) bind(C, name="BLAC_DSYRK")
            import
            character(kind=c_char), intent(in) :: uplo, trans
            integer(c_int), intent(in) :: n, k, lda, ldc
            real(c_double), intent(in) :: alpha, a(lda, *), beta
            real(c_double), intent(inout) :: c(ldc, *)
        end subroutine BLAC_DSYRK

        subroutine BLAC_DSYR2K(uplo, trans, n, k, alpha, a, lda, b, ldb, beta, c, ldc) bind(C, name="BLAC_DSYR2K")
            import
            character(kind=c_char), intent(in) :: uplo, trans
            integer(c_int), intent(in) :: n, k, lda, ldb, ldc
            real(c_double), intent(in) :: alpha, a(lda, *), b(ldb, *), beta
            real(c_double), intent(inout) :: c(ldc, *)
        end subroutine BLAC_DSYR2K

        subroutine BLAC_DTRMM(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb) bind(C, name="BLAC_DTRMM")
            import
            character(kind=c_char), intent(in) :: side, uplo, transa, diag
            integer(c_int), intent(in) :: m, n, lda, ldb
            real(c_double), intent(in) :: alpha, a(lda, *)
            real(c_double), intent(inout) :: b(ldb, *)
        end subroutine BLAC_DTRMM

        subroutine BLAC_DTRSM(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb) bind(C, name="BLAC_DTRSM")
            import
            character(kind=c_char), intent(in) :: side, uplo, transa, diag
            integer(c_int), intent(in) :: m, n, lda, ldb
            real(c_double), intent(in) :: alpha, a(lda, *)
            real(c_double), intent(inout) :: b(ldb, *)
        end subroutine BLAC_DTRSM

        ! LAPACK: linear systems.
        subroutine BLAC_DGELSS(m, n, nrhs, a, lda, b, ldb, s, rcond, rank, work, lwork, info) bind(C, name="BLAC_DGELSS")
            import
            integer(c_int), intent(in) :: m, n, nrhs, lda, ldb, lwork
            integer(c_int), intent(out) :: rank, info
            real(c_double), intent(in) :: rcond
            real(c_double), intent(inout) :: a(lda, *), b(ldb, *), s(*), work(*)
        end subroutine BLAC_DGELSS

        subroutine BLAC_DGESV(n, nrhs, a, lda, ipiv, b, ldb, info) bind(C, name="BLAC_DGESV")
            import
            integer(c_int), intent(in) :: n, nrhs, lda, ldb
            integer(c_int), intent(inout) :: ipiv(*)
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: a(lda, *), b(ldb, *)
        end subroutine BLAC_DGESV

        subroutine BLAC_DGETRF(m, n, a, lda, ipiv, info) bind(C, name="BLAC_DGETRF")
            import
            integer(c_int), intent(in) :: m, n, lda
            integer(c_int), intent(inout) :: ipiv(*)
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: a(lda, *)
        end subroutine BLAC_DGETRF

        subroutine BLAC_DGETRS(trans, n, nrhs, a, lda, ipiv, b, ldb, info) bind(C, name="BLAC_DGETRS")
            import
            character(kind=c_char), intent(in) :: trans
            integer(c_int), intent(in) :: n, nrhs, lda, ipiv(*), ldb
            integer(c_int), intent(out) :: info
            real(c_double), intent(in) :: a(lda, *)
            real(c_double), intent(inout) :: b(ldb, *)
        end subroutine BLAC_DGETRS

        subroutine BLAC_DPOTRF(uplo, n, a, lda, info) bind(C, name="BLAC_DPOTRF")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, lda
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: a(lda, *)
        end subroutine BLAC_DPOTRF

        subroutine BLAC_DPPSV(uplo, n, nrhs, ap, b, ldb, info) bind(C, name="BLAC_DPPSV")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, nrhs, ldb
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: ap(*), b(ldb, *)
        end subroutine BLAC_DPPSV

        subroutine BLAC_DPPTRF(uplo, n, ap, info) bind(C, name="BLAC_DPPTRF")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: ap(*)
        end subroutine BLAC_DPPTRF

        subroutine BLAC_DPPTRI(uplo, n, ap, info) bind(C, name="BLAC_DPPTRI")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: ap(*)
        end subroutine BLAC_DPPTRI

        subroutine BLAC_DPPTRS(uplo, n, nrhs, ap, b, ldb, info) bind(C, name="BLAC_DPPTRS")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, nrhs, ldb
            integer(c_int), intent(out) :: info
            real(c_double), intent(in) :: ap(*)
            real(c_double), intent(inout) :: b(ldb, *)
        end subroutine BLAC_DPPTRS

        subroutine BLAC_DSYTRF(uplo, n, a, lda, ipiv, work, lwork, info) bind(C, name="BLAC_DSYTRF")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, lda, lwork
            integer(c_int), intent(inout) :: ipiv(*)
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: a(lda, *), work(*)
        end subroutine BLAC_DSYTRF

        subroutine BLAC_DSYTRS(uplo, n, nrhs, a, lda, ipiv, b, ldb, info) bind(C, name="BLAC_DSYTRS")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, nrhs, lda, ipiv(*), ldb
            integer(c_int), intent(out) :: info
            real(c_double), intent(in) :: a(lda, *)
            real(c_double), intent(inout) :: b(ldb, *)
        end subroutine BLAC_DSYTRS

        subroutine BLAC_DTPTRI(uplo, diag, n, ap, info) bind(C, name="BLAC_DTPTRI")
            import
            character(kind=c_char), intent(in) :: uplo, diag
            integer(c_int), intent(in) :: n
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: ap(*)
        end subroutine BLAC_DTPTRI

        ! LAPACK: eigenproblems.
        subroutine BLAC_DGEEV(jobvl, jobvr, n, a, lda, wr, wi, vl, ldvl, vr, ldvr, work, lwork, info) bind(C, name="BLAC_DGEEV")
            import
            character(kind=c_char), intent(in) :: jobvl, jobvr
            integer(c_int), intent(in) :: n, lda, ldvl, ldvr, lwork
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: a(lda, *), wr(*), wi(*), vl(ldvl, *), vr(ldvr, *), work(*)
        end subroutine BLAC_DGEEV

        subroutine BLAC_ZGEEV(jobvl, jobvr, n, a, lda, w, vl, ldvl, vr, ldvr, work, lwork, rwork, info) bind(C, name="BLAC_ZGEEV")
            import
            character(kind=c_char), intent(in) :: jobvl, jobvr
            integer(c_int), intent(in) :: n, lda, ldvl, ldvr, lwork
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: rwork(*)
            complex(c_double_complex), intent(inout) :: a(lda, *), w(*), vl(ldvl, *), vr(ldvr, *), work(*)
        end subroutine BLAC_ZGEEV

        subroutine BLAC_DORMTR(side, uplo, trans, m, n, a, lda, tau, c, ldc, work, lwork, info) bind(C, name="BLAC_DORMTR")
            import
            character(kind=c_char), intent(in) :: side, uplo, trans
            integer(c_int), intent(in) :: m, n, lda, ldc, lwork
            integer(c_int), intent(out) :: info
            real(c_double), intent(in) :: a(lda, *), tau(*)
            real(c_double), intent(inout) :: c(ldc, *), work(*)
        end subroutine BLAC_DORMTR

        subroutine BLAC_DSPEVX(jobz, range, uplo, n, ap, vl, vu, il, iu, abstol, m, w, z, ldz, work, iwork, ifail, info) &
            bind(C, name="BLAC_DSPEVX")
            import
            character(kind=c_char), intent(in) :: jobz, range, uplo
            integer(c_int), intent(in) :: n, il, iu, ldz
            integer(c_int), intent(inout) :: iwork(*), ifail(*)
            integer(c_int), intent(out) :: m, info
            real(c_double), intent(in) :: vl, vu, abstol
            real(c_double), intent(inout) :: ap(*), w(*), z(ldz, *), work(*)
        end subroutine BLAC_DSPEVX

        subroutine BLAC_DSTEMR(jobz, range, n, d, e, vl, vu, il, iu, m, w, z, ldz, nzc, isuppz, tryrac, work, lwork, iwork, &
            liwork, info) &
            bind(C, name="BLAC_DSTEMR")
            import
            character(kind=c_char), intent(in) :: jobz, range
            integer(c_int), intent(in) :: n, il, iu, ldz, nzc, lwork, liwork
            integer(c_int), intent(inout) :: isuppz(*), tryrac, iwork(*)
            integer(c_int), intent(out) :: m, info
            real(c_double), intent(in) :: vl, vu
            real(c_double), intent(inout) :: d(*), e(*), w(*), z(ldz, *), work(*)
        end subroutine BLAC_DSTEMR

        subroutine BLAC_DSTEVR(jobz, range, n, d, e, vl, vu, il, iu, abstol, m, w, z, ldz, isuppz, work, lwork, iwork, liwork, &
            info) &
            bind(C, name="BLAC_DSTEVR")
            import
            character(kind=c_char), intent(in) :: jobz, range
            integer(c_int), intent(in) :: n, il, iu, ldz, lwork, liwork
            integer(c_int), intent(inout) :: isuppz(*), iwork(*)
            integer(c_int), intent(out) :: m, info
            real(c_double), intent(in) :: vl, vu, abstol
            real(c_double), intent(inout) :: d(*), e(*), w(*), z(ldz, *), work(*)
        end subroutine BLAC_DSTEVR

        subroutine BLAC_DSYEV(jobz, uplo, n, a, lda, w, work, lwork, info) bind(C, name="BLAC_DSYEV")
            import
            character(kind=c_char), intent(in) :: jobz, uplo
            integer(c_int), intent(in) :: n, lda, lwork
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: a(lda, *), w(*), work(*)
        end subroutine BLAC_DSYEV

        subroutine BLAC_DSYEVX(jobz, range, uplo, n, a, lda, vl, vu, il, iu, abstol, m, w, z, ldz, work, lwork, iwork, ifail, &
            info) &
            bind(C, name="BLAC_DSYEVX")
            import
            character(kind=c_char), intent(in) :: jobz, range, uplo
            integer(c_int), intent(in) :: n, lda, il, iu, ldz, lwork
            integer(c_int), intent(inout) :: iwork(*), ifail(*)
            integer(c_int), intent(out) :: m, info
            real(c_double), intent(in) :: vl, vu, abstol
            real(c_double), intent(inout) :: a(lda, *), w(*), z(ldz, *), work(*)
        end subroutine BLAC_DSYEVX

        subroutine BLAC_DSYGST(itype, uplo, n, a, lda, b, ldb, info) bind(C, name="BLAC_DSYGST")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: itype, n, lda, ldb
            integer(c_int), intent(out) :: info
            real(c_double), intent(in) :: b(ldb, *)
            real(c_double), intent(inout) :: a(lda, *)
        end subroutine BLAC_DSYGST

        subroutine BLAC_DSYGV(itype, jobz, uplo, n, a, lda, b, ldb, w, work, lwork, info) bind(C, name="BLAC_DSYGV")
            import
            character(kind=c_char), intent(in) :: jobz, uplo
            integer(c_int), intent(in) :: itype, n, lda, ldb, lwork
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: a(lda, *), b(ldb, *), w(*), work(*)
        end subroutine BLAC_DSYGV

        subroutine BLAC_DSYTRD(uplo, n, a, lda, d, e, tau, work, lwork, info) bind(C, name="BLAC_DSYTRD")
            import
            character(kind=c_char), intent(in) :: uplo
            integer(c_int), intent(in) :: n, lda, lwork
            integer(c_int), intent(out) :: info
            real(c_double), intent(inout) :: a(lda, *), d(*), e(*), tau(*), work(*)
        end subroutine BLAC_DSYTRD

        ! Sparse matrices; indices are 0-based, see the header.
        subroutine BLAC_SPARSE_UMV(a, x, ia, ja, y, n, m, nvec) bind(C, name="BLAC_SPARSE_UMV")
            import
            integer(c_int), intent(in) :: ia(*), ja(*), n, m, nvec
            real(c_double), intent(in) :: a(*), x(m, *)
            real(c_double), intent(inout) :: y(n, *)
        end subroutine BLAC_SPARSE_UMV

        subroutine BLAC_SPARSE_UMTV(a, x, ia, ja, y, n, m, nvec) bind(C, name="BLAC_SPARSE_UMTV")
            import
            integer(c_int), intent(in) :: ia(*), ja(*), n, m, nvec
            real(c_double), intent(in) :: a(*), x(n, *)
            real(c_double), intent(inout) :: y(m, *)
        end subroutine BLAC_SPARSE_UMTV

        subroutine BLAC_SPARSE_SPARSE_UMTV(a, x, ia, ja, y, nIndex, m, nvec, index) bind(C, name="BLAC_SPARSE_SPARSE_UMTV")
            import
            integer(c_int), intent(in) :: ia(*), ja(*), nIndex, m, nvec, index(*)
            real(c_double), intent(in) :: a(*), x(nIndex, *)
            real(c_double), intent(inout) :: y(m, *)
        end subroutine BLAC_SPARSE_SPARSE_UMTV

        subroutine BLAC_SPARSE_LEVEL(request, inForce) bind(C, name="BLAC_SPARSE_LEVEL")
            import
            integer(c_int), intent(in) :: request
            integer(c_int), intent(out) :: inForce
        end subroutine BLAC_SPARSE_LEVEL

        ! Sparse assembly; indices are 0-based, see the header.
        function KVOSRVSPARSEASSEMBLE(rows, columns, count, row, column, values, handle) &
            bind(C, name="KVOSRVSPARSEASSEMBLE") result(status)
            import
            integer(c_int), intent(in) :: rows, columns, count, row(*), column(*)
            real(c_double), intent(in) :: values(*)
            integer(c_int64_t), intent(out) :: handle
            integer(c_int) :: status
        end function KVOSRVSPARSEASSEMBLE

        function KVOSRVSPARSESIZES(handle, rows, columns, entries) bind(C, name="KVOSRVSPARSESIZES") result(status)
            import
            integer(c_int64_t), value :: handle
            integer(c_int), intent(inout) :: rows, columns, entries
            integer(c_int) :: status
        end function KVOSRVSPARSESIZES

        function KVOSRVSPARSEROWS(handle, rowStart, columns) bind(C, name="KVOSRVSPARSEROWS") result(status)
            import
            integer(c_int64_t), value :: handle
            integer(c_int), intent(inout) :: rowStart(*), columns(*)
            integer(c_int) :: status
        end function KVOSRVSPARSEROWS

        function KVOSRVSPARSEVALUES(handle, values) bind(C, name="KVOSRVSPARSEVALUES") result(status)
            import
            integer(c_int64_t), value :: handle
            real(c_double), intent(inout) :: values(*)
            integer(c_int) :: status
        end function KVOSRVSPARSEVALUES

        subroutine KVOSRVSPARSERELEASE(handle) bind(C, name="KVOSRVSPARSERELEASE")
            import
            integer(c_int64_t), value :: handle
        end subroutine KVOSRVSPARSERELEASE

        function KVOSRVSPARSEPLACES(handle, count, row, column, places) bind(C, name="KVOSRVSPARSEPLACES") result(status)
            import
            integer(c_int64_t), value :: handle
            integer(c_int), intent(in) :: count, row(*), column(*)
            integer(c_int64_t), intent(out) :: places
            integer(c_int) :: status
        end function KVOSRVSPARSEPLACES

        subroutine KVOSRVSPARSEPLACESRELEASE(places) bind(C, name="KVOSRVSPARSEPLACESRELEASE")
            import
            integer(c_int64_t), value :: places
        end subroutine KVOSRVSPARSEPLACESRELEASE

        function KVOSRVSPARSECLEARVALUES(handle) bind(C, name="KVOSRVSPARSECLEARVALUES") result(status)
            import
            integer(c_int64_t), value :: handle
            integer(c_int) :: status
        end function KVOSRVSPARSECLEARVALUES

        function KVOSRVSPARSEADDVALUES(handle, places, values) bind(C, name="KVOSRVSPARSEADDVALUES") result(status)
            import
            integer(c_int64_t), value :: handle, places
            real(c_double), intent(in) :: values(*)
            integer(c_int) :: status
        end function KVOSRVSPARSEADDVALUES

        ! Threads of the host.
        function KVOSRVPARALLELBEGIN(run, context, threads) bind(C, name="KVOSRVPARALLELBEGIN") result(status)
            import
            type(c_funptr), value :: run
            type(c_ptr), value :: context
            integer(c_int), intent(in) :: threads
            integer(c_int) :: status
        end function KVOSRVPARALLELBEGIN

        function KVOSRVPARALLELEND() bind(C, name="KVOSRVPARALLELEND") result(status)
            import
            integer(c_int) :: status
        end function KVOSRVPARALLELEND

        ! Matrix containers.
        function KVOSRVMATRIXCONTAINERCREATE() bind(C, name="KVOSRVMATRIXCONTAINERCREATE") result(handle)
            import
            integer(c_int64_t) :: handle
        end function KVOSRVMATRIXCONTAINERCREATE

        function KVOSRVMATRIXCONTAINERTRYCREATE(handle) bind(C, name="KVOSRVMATRIXCONTAINERTRYCREATE") result(status)
            import
            integer(c_int64_t), intent(out) :: handle
            integer(c_int) :: status
        end function KVOSRVMATRIXCONTAINERTRYCREATE

        function KVOSRVMATRIXCONTAINERNUMROWS(handle, id) bind(C, name="KVOSRVMATRIXCONTAINERNUMROWS") result(r)
            import
            integer(c_int64_t), value :: handle
            integer(c_int), intent(in) :: id
            integer(c_int) :: r
        end function KVOSRVMATRIXCONTAINERNUMROWS

        function KVOSRVMATRIXCONTAINERNUMCOLUMNS(handle, id) bind(C, name="KVOSRVMATRIXCONTAINERNUMCOLUMNS") result(r)
            import
            integer(c_int64_t), value :: handle
            integer(c_int), intent(in) :: id
            integer(c_int) :: r
        end function KVOSRVMATRIXCONTAINERNUMCOLUMNS

        subroutine KVOSRVMATRIXCONTAINERGETVALUES(handle, id, values) bind(C, name="KVOSRVMATRIXCONTAINERGETVALUES")
            import
            integer(c_int64_t), value :: handle
            integer(c_int), intent(in) :: id
            real(c_double), intent(inout) :: values(*)
        end subroutine KVOSRVMATRIXCONTAINERGETVALUES

        function KVOSRVMATRIXCONTAINERTRYGETVALUES(handle, id, values) bind(C, name="KVOSRVMATRIXCONTAINERTRYGETVALUES") result(r)
            import
            integer(c_int64_t), value :: handle
            integer(c_int), intent(in) :: id
            real(c_double), intent(inout) :: values(*)
            integer(c_int) :: r
        end function KVOSRVMATRIXCONTAINERTRYGETVALUES

        subroutine KVOSRVMATRIXCONTAINERDELETE(handle) bind(C, name="KVOSRVMATRIXCONTAINERDELETE")
            import
            integer(c_int64_t), value :: handle
        end subroutine KVOSRVMATRIXCONTAINERDELETE

        function KVOSRVLASTERROR(text, length) bind(C, name="KVOSRVLASTERROR") result(whole)
            import
            character(kind=c_char), intent(inout) :: text(*)
            integer(c_int), intent(in) :: length
            integer(c_int) :: whole
        end function KVOSRVLASTERROR
    end interface

end module kvo_mtx
