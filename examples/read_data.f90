! Reads the models of data/: symmetric matrices in Matrix Market files, and the reference frequencies beside them. A file that is none ends
! the program.
module read_data
    use, intrinsic :: iso_c_binding, only: c_double, c_int
    use, intrinsic :: iso_fortran_env, only: error_unit
    implicit none
    private
    public :: read_symmetric, read_frequencies

contains

    ! The lower triangle by its entries, 1-based, in the order of the file.
    subroutine read_symmetric(path, n, rows, columns, values)
        character(*), intent(in) :: path
        integer(c_int), intent(out) :: n
        integer(c_int), allocatable, intent(out) :: rows(:), columns(:)
        real(c_double), allocatable, intent(out) :: values(:)
        character(*), parameter :: banner = '%%MatrixMarket matrix coordinate real symmetric'
        character(200) :: line
        integer :: unit, status, entries, width, k

        open (newunit=unit, file=path, status='old', action='read', iostat=status)
        if (status /= 0) call stop_at(path, 'cannot be opened')
        read (unit, '(a)', iostat=status) line
        if (status /= 0 .or. line(1:len(banner)) /= banner) call stop_at(path, 'is no symmetric matrix of real entries')
        do while (line(1:1) == '%' .and. status == 0)
            read (unit, '(a)', iostat=status) line
        end do
        if (status == 0) read (line, *, iostat=status) n, width, entries
        if (status /= 0) call stop_at(path, 'does not tell the size of its matrix')
        if (n < 1 .or. width /= n .or. entries < 0) call stop_at(path, 'does not hold a square matrix')

        allocate (rows(entries), columns(entries), values(entries))
        do k = 1, entries
            read (unit, *, iostat=status) rows(k), columns(k), values(k)
            if (status /= 0) call stop_at(path, 'ends before its last entry')
            if (columns(k) < 1 .or. rows(k) < columns(k) .or. rows(k) > n) call stop_at(path, 'has an entry outside its triangle')
        end do
        close (unit)
    end subroutine read_symmetric

    ! The second number of each line; lines that start with # are comments.
    subroutine read_frequencies(path, frequencies)
        character(*), intent(in) :: path
        real(c_double), allocatable, intent(out) :: frequencies(:)
        character(200) :: line
        real(c_double) :: lambda, frequency
        integer :: unit, status

        allocate (frequencies(0))
        open (newunit=unit, file=path, status='old', action='read', iostat=status)
        if (status /= 0) call stop_at(path, 'cannot be opened')
        do
            read (unit, '(a)', iostat=status) line
            if (status /= 0) exit
            if (line(1:1) == '#') cycle
            read (line, *, iostat=status) lambda, frequency
            if (status /= 0) call stop_at(path, 'has a line without "lambda frequency"')
            frequencies = [frequencies, frequency]
        end do
        close (unit)
        if (size(frequencies) == 0) call stop_at(path, 'holds no frequencies')
    end subroutine read_frequencies

    subroutine stop_at(path, what)
        character(*), intent(in) :: path, what
        write (error_unit, '(3a)') trim(path), ': ', what
        stop 1
    end subroutine stop_at
end module read_data
