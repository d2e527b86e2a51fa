! Modes from Fortran through the module kvo_mtx_modes; stops with an error at the first wrong result.
!
! usage: modes_test FILE.mtx FILE.sim (written and read again)
program modes_test
    use, intrinsic :: iso_c_binding, only: c_char, c_double, c_int, c_int64_t, c_null_char
    use kvo_mtx_modes
    implicit none
    save ! as the variables of a main program are anyway; without the word leak checkers count them

    interface
        ! Also what a C++ host hands over: a handle is the address of its matrix.
        subroutine store_matrix(matrix, database, market) bind(C)
            import :: c_char, c_int64_t
            integer(c_int64_t), value :: matrix
            character(kind=c_char), intent(in) :: database(*), market(*)
        end subroutine store_matrix
    end interface

    integer(c_int), parameter :: n = 30
    real(c_double), parameter :: pi = acos(-1.0_c_double)
    real(c_double) :: mass_of(n), exact(n)
    integer(c_int64_t) :: stiffness, mass, whole, stored, market, nothing
    integer :: i
    character(200) :: market_file, database

    ! A chain of 30 equal masses and springs, fixed at both ends: eigenvalues 4 k / m sin(j pi / 62)^2.
    call get_command_argument(1, market_file)
    call get_command_argument(2, database)
    mass_of = 3
    exact = [(4*5.0_c_double/3*sin(i*pi/(2*(n + 1)))**2, i=1, n)]
    call make_matrices()
    call lowest()
    call range()
    call refusals()
    call KVOSRVMODESRELEASE(stiffness)
    call KVOSRVMODESRELEASE(mass)
    call KVOSRVMODESRELEASE(whole)
    call KVOSRVMODESRELEASE(stored)
    call KVOSRVMODESRELEASE(market)
    call KVOSRVMODESRELEASE(0_c_int64_t)

contains

    subroutine check(right, what)
        logical, intent(in) :: right
        character(*), intent(in) :: what
        character(200) :: text
        if (.not. right) then
            i = KVOSRVMODESERROR(text, len(text))
            print '(4a)', 'wrong: ', what, '; last failure: ', trim(text)
            error stop 1
        end if
    end subroutine check

    ! The stiffness by its lower triangle, by all of it with the springs added one by one, from a database and from a file.
    subroutine make_matrices()
        integer(c_int) :: j
        call check(KVOSRVMODESMATRIX(n, [0, (2*j - 1, j=1, n)], [0, (j - 1, j, j=1, n - 1)], &
                                     [10.0_c_double, (-5.0_c_double, 10.0_c_double, j=1, n - 1)], stiffness) == 0, 'half a matrix')
        call check(KVOSRVMODESMATRIX(n, [(4*j, j=0, n)], [(j, max(j - 1, 0), min(j + 1, n - 1), j, j=0, n - 1)], &
                                     [(spring(j), j=0, n - 1)], whole) == 0, 'a whole matrix')
        call check(KVOSRVMODESMATRIX(n, [(j, j=0, n)], [(j, j=0, n - 1)], mass_of, mass) == 0, 'a diagonal matrix')
        call store_matrix(whole, trim(database)//c_null_char, trim(market_file)//c_null_char)
        call check(KVOSRVMODESREAD(database, len(database), 0_c_int, stored) == 0, 'a matrix of a database')
        call check(KVOSRVMODESREAD(market_file, len(market_file), -1_c_int, market) == 0, 'a Matrix Market file')
        call check(KVOSRVMODESORDER(market) == n, 'ORDER')
        call check(KVOSRVMODESORDER(0_c_int64_t) == 0, 'ORDER of no matrix')
    end subroutine make_matrices

    subroutine lowest()
        integer(c_int), parameter :: count = 7
        integer(c_int64_t) :: from(4)
        real(c_double) :: lambda(count), residuals(count), x(n, count), sine
        integer :: k
        from = [stiffness, whole, stored, market]
        do k = 1, size(from)
            call check(KVOSRVMODESLOWEST(from(k), mass, count, 0.0_c_double, 0_c_int64_t, lambda, residuals, x) == 0, 'LOWEST')
            call check(maxval(abs(lambda/exact(1:count) - 1)) < 1e-10, 'the lowest eigenvalues')
            call check(maxval(residuals) < 1e-10, 'residuals')
            ! A mode of the chain is a sine; of length 1 by the mass.
            call check(abs(3*dot_product(x(:, 2), x(:, 2)) - 1) < 1e-10, 'the length of mode 2')
            sine = dot_product(x(:, 2), [(sin(2*i*pi/(n + 1)), i=1, n)])
            call check(abs(abs(sine)/sqrt((n + 1)/6.0_c_double) - 1) < 1e-10, 'mode 2')
        end do
    end subroutine lowest

    subroutine range()
        integer(c_int) :: found
        real(c_double) :: lambda(5), residuals(5), x(n, 5)
        call check(KVOSRVMODESRANGE(stiffness, mass, exact(4) - 1e-3_c_double, exact(7) + 1e-3_c_double, 5_c_int, 0.0_c_double, &
                                    0_c_int64_t, found, lambda, residuals, x) == 0, 'RANGE')
        call check(found == 4 .and. maxval(abs(lambda(1:4)/exact(4:7) - 1)) < 1e-10, 'eigenvalues of a range')
        lambda = -1
        call check(KVOSRVMODESRANGE(stiffness, mass, exact(4) - 1e-3_c_double, exact(9) + 1e-3_c_double, 5_c_int, 0.0_c_double, &
                                    0_c_int64_t, found, lambda, residuals, x) == -3, 'RANGE with too little room')
        call check(found == 6 .and. all(lambda == -1), 'what there is no room for')
    end subroutine range

    subroutine refusals()
        real(c_double) :: lambda(2), residuals(2), x(n, 2)
        character(200) :: text
        integer :: length
        call check(KVOSRVMODESLOWEST(0_c_int64_t, mass, 1_c_int, 0.0_c_double, 0_c_int64_t, lambda, residuals, x) == -2, 'handle 0')
        call check(KVOSRVMODESLOWEST(stiffness, mass, 0_c_int, 0.0_c_double, 0_c_int64_t, lambda, residuals, x) == 206, 'no modes')
        call check(KVOSRVMODESLOWEST(stiffness, mass, n + 1, 0.0_c_double, 0_c_int64_t, lambda, residuals, x) == 600, 'n + 1 modes')
        length = KVOSRVMODESERROR(text, len(text))
        call check(index(text, '30 unknowns with mass') > 0 .and. length == len_trim(text), 'the text of a failure')
        call check(KVOSRVMODESMATRIX(2_c_int, [0, 2, 4], [0, 1, 0, 1], [1.0_c_double, 2.0_c_double, 3.0_c_double, 4.0_c_double], &
                                     nothing) == 206, 'a matrix that is not symmetric')
        length = KVOSRVMODESERROR(text, 5_c_int)
        call check(length > 5 .and. text(1:5) == 'kvo_m', 'a text that is cut')
        call check(KVOSRVMODESMATRIX(2_c_int, [0, 1, 2], [0, 2], [1.0_c_double, 1.0_c_double], nothing) == 206, 'a column too far')
        call check(KVOSRVMODESREAD(database, len(database), 3_c_int, nothing) == -2, 'a matrix that is not there')
        call check(nothing == 0, 'the handle of a matrix that is not there')
        call check(KVOSRVMODESREAD('none.mtx', 8_c_int, -1_c_int, nothing) == 202, 'a file that is not there')
    end subroutine refusals

    ! Entries of row j: its two springs at the diagonal, apart, and the neighbours; an end's other spring adds nothing but a zero.
    function spring(j) result(entries)
        integer(c_int), intent(in) :: j
        real(c_double) :: entries(4)
        entries = [5, -5, -5, 5]
        if (j == 0) entries(2) = 0
        if (j == n - 1) entries(3) = 0
    end function spring
end program modes_test
