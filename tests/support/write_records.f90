! Writes the record file of a symmetric matrix: write_records PATH N. A record with N, then one a row i: how many entries it has, their
! columns, their values; the diagonal first, then entries to the right of it. The value at (i, j) is (1000 i + j) / 7; the first row is full,
! row i has mod(i, 4) entries beside the diagonal.
program write_records
    use, intrinsic :: iso_fortran_env, only: int32, real64
    implicit none
    character(len=4096) :: path, number
    integer(int32) :: n, i, j, last

    call get_command_argument(1, path)
    call get_command_argument(2, number)
    read (number, *) n
    open (unit=10, file=trim(path), access='sequential', form='unformatted', status='replace', action='write')
    write (10) n
    do i = 1, n
        last = min(n, i + mod(i, 4))
        if (i == 1) last = n
        write (10) last - i + 1, (j, j = i, last), ((1000.0_real64 * i + j) / 7.0_real64, j = i, last)
    end do
    close (10)
end program write_records
