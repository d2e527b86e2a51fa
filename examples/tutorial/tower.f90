! The same tower from Fortran: assembled in compressed rows, stored as a text file, its modes found. The modes of the database that the C++
! program has made come out alike.
!
! usage: tower_fortran DATABASE MATRIX_MARKET_FILE
program tower
    use, intrinsic :: iso_c_binding, only: c_double, c_int, c_int64_t
    use kvo_mtx_modes
    implicit none
    integer(c_int), parameter :: n = 1000, wanted = 5
    real(c_double), parameter :: m = 2e5_c_double, k = 4e8_c_double, pi = acos(-1.0_c_double)
    integer(c_int64_t) :: stiffness, mass, stored(2)
    integer(c_int) :: starts(n + 1), columns(2*n), diagonal(n), i
    real(c_double) :: values(2*n), lambda(wanted), again(wanted), residuals(wanted), modes(n, wanted)
    character(1000) :: database, file

    if (command_argument_count() /= 2) error stop 'usage: tower_fortran DATABASE MATRIX_MARKET_FILE'
    call get_command_argument(1, database)
    call get_command_argument(2, file)

    ! 1. Assemble: the upper triangle row by row, all numbers from 0; row i holds 2 k and, but for the last, -k.
    do i = 1, n
        starts(i) = 2*(i - 1)
        columns(2*i - 1:2*i) = [i - 1, i]
        values(2*i - 1:2*i) = [2*k, -k]
    end do
    values(2*n - 1) = k ! the top has no spring above
    starts(n + 1) = 2*n - 1
    diagonal = [(i - 1, i=1, n)]
    call require(KVOSRVMODESMATRIX(n, starts, columns, values, stiffness))
    call require(KVOSRVMODESMATRIX(n, [(i, i=0, n)], diagonal, spread(m, 1, n), mass))

    ! 2. Store: as text that the program reads, in the lower triangle.
    open (10, file=trim(file))
    write (10, '(a)') '%%MatrixMarket matrix coordinate real symmetric'
    write (10, *) n, n, 2*n - 1
    do i = 1, n
        write (10, '(2i6, es24.16)') i, i, values(2*i - 1)
        if (i < n) write (10, '(2i6, es24.16)') i + 1, i, values(2*i)
    end do
    close (10)

    ! 3. Modes: the tolerance of the library (0), no limit of memory (0 bytes).
    call require(KVOSRVMODESLOWEST(stiffness, mass, wanted, 0.0_c_double, 0_c_int64_t, lambda, residuals, modes))

    ! 4. Look: frequencies, and those of matrices 0 and 1 of the database.
    call require(KVOSRVMODESREAD(trim(database), len_trim(database), 0_c_int, stored(1)))
    call require(KVOSRVMODESREAD(trim(database), len_trim(database), 1_c_int, stored(2)))
    call require(KVOSRVMODESLOWEST(stored(1), stored(2), wanted, 0.0_c_double, 0_c_int64_t, again, residuals, modes))
    print '(i0, a, f8.6, a)', (i, ': ', sqrt(lambda(i))/(2*pi), ' Hz', i=1, wanted)
    call KVOSRVMODESRELEASE(stiffness)
    call KVOSRVMODESRELEASE(mass)
    call KVOSRVMODESRELEASE(stored(1))
    call KVOSRVMODESRELEASE(stored(2))
    if (maxval(abs(lambda/again - 1)) > 1e-8) error stop 'the database holds another tower'

contains

    subroutine require(status)
        integer(c_int), intent(in) :: status
        character(500) :: text
        integer(c_int) :: length
        if (status == 0) return
        length = KVOSRVMODESERROR(text, len(text))
        print '(2a)', 'failure: ', text(1:min(length, len(text)))
        error stop 1
    end subroutine require
end program tower
