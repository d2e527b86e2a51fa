! A Fortran solver that keeps its matrices in compressed rows asks the library KVOMtxModes for natural frequencies: the lowest ten of an ore
! car, beside references, and then all between the third and the eighth of them, of which none may be missing.
!
! usage: modes_from_fortran DATA_FOLDER
program modes_from_fortran
    use, intrinsic :: iso_c_binding, only: c_double, c_int, c_int64_t
    use kvo_mtx_modes
    use read_data
    implicit none
    save ! as the variables of a main program are anyway; without the word leak checkers count them

    integer(c_int), parameter :: wanted = 10
    real(c_double), parameter :: pi = acos(-1.0_c_double)
    character(1000) :: folder
    integer(c_int64_t) :: stiffness, mass
    integer(c_int) :: n, found, i
    real(c_double) :: lambda(wanted), residuals(wanted), between(wanted), between_residuals(wanted), difference
    real(c_double), allocatable :: modes(:, :), frequencies(:), references(:)
    logical :: ok

    if (command_argument_count() /= 1) error stop 'usage: modes_from_fortran DATA_FOLDER'
    call get_command_argument(1, folder)
    stiffness = matrix_of(trim(folder)//'/bcsstk11.mtx')
    mass = matrix_of(trim(folder)//'/bcsstm12.mtx')
    call read_frequencies(trim(folder)//'/reference/orecar.txt', references)
    n = KVOSRVMODESORDER(stiffness)
    allocate (modes(n, wanted))

    ! A tolerance of 0 is that of the library; a limit of 0 bytes is none.
    call require(KVOSRVMODESLOWEST(stiffness, mass, wanted, 0.0_c_double, 0_c_int64_t, lambda, residuals, modes))
    allocate (frequencies, source=sqrt(lambda)/(2*pi))
    difference = maxval(abs(frequencies/references(1:wanted) - 1))
    print '(a)', 'mode      frequency      reference   residual'
    do i = 1, wanted
        print '(i4, 2f15.9, es11.1)', i, frequencies(i), references(i), residuals(i)
    end do

    call require(KVOSRVMODESRANGE(stiffness, mass, 0.5*(lambda(2) + lambda(3)), 0.5*(lambda(8) + lambda(9)), wanted, 0.0_c_double, &
                                  0_c_int64_t, found, between, between_residuals, modes))
    print '(i0, a, f0.4, a, f0.4, a)', found, ' modes lie between ', frequencies(3), ' and ', frequencies(8), ' Hz'
    ok = difference < 1e-8 .and. found == 6
    if (ok) ok = maxval(abs(between(1:found)/lambda(3:8) - 1)) < 1e-8
    print '(a)', trim(merge('agrees with the references ', 'DIFFERS FROM THE REFERENCES', ok))
    call KVOSRVMODESRELEASE(stiffness)
    call KVOSRVMODESRELEASE(mass)
    if (.not. ok) error stop 1

contains

    ! The file holds the lower triangle column by column, which is the upper one row by row: a triangle is enough. Numbers are from 0.
    function matrix_of(path) result(handle)
        character(*), intent(in) :: path
        integer(c_int64_t) :: handle
        integer(c_int) :: order, row, entry
        integer(c_int), allocatable :: rows(:), columns(:), starts(:)
        real(c_double), allocatable :: values(:)
        call read_symmetric(path, order, rows, columns, values)
        allocate (starts(order + 1), source=0_c_int)
        do entry = 1, size(columns)
            starts(columns(entry) + 1) = entry ! ends where the next row starts
        end do
        do row = 1, order
            starts(row + 1) = max(starts(row), starts(row + 1)) ! of rows without entries, too
        end do
        if (any(columns(2:) < columns(:size(columns) - 1))) error stop 'the columns of the file do not ascend'
        call require(KVOSRVMODESMATRIX(order, starts, rows - 1, values, handle))
    end function matrix_of

    subroutine require(status)
        integer(c_int), intent(in) :: status
        character(500) :: text
        integer(c_int) :: length
        if (status == 0) return
        length = KVOSRVMODESERROR(text, len(text))
        print '(a, i0, 2a)', 'failure ', status, ': ', text(1:min(length, len(text)))
        error stop 1
    end subroutine require
end program modes_from_fortran
