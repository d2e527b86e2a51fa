! A Fortran program of somebody else: it compiles the installed module source and links with the installed libraries.
program fortran_consumer
    use, intrinsic :: iso_c_binding, only: c_double, c_int
    use kvo_mtx
    implicit none
    real(c_double) :: x(3) = [1.0_c_double, 2.0_c_double, 3.0_c_double], y(3) = [4.0_c_double, 5.0_c_double, 6.0_c_double]

    if (blac_ddot(3_c_int, x, 1_c_int, y, 1_c_int) /= 32.0_c_double) error stop "BLAC_DDOT is wrong"
    print '(a)', "fortran_consumer: ok"
end program fortran_consumer
