! The solver's half of an exchange by record files: solves K u = f for a load on every unknown of a finite-element model, by conjugate
! gradients on the sparse kernel BLAC_SPARSE_UMV, and leaves two unformatted files behind. stiffness.rec holds K row by row as
! KVOSrvSparseMatrix::Import reads it (format 0); solution.rec a record with the number of unknowns, then f and u in a record each.
! read_records.cpp reads both.
!
! usage: solver_records DATA_FOLDER WORK_FOLDER
program solver_records
    use, intrinsic :: iso_c_binding, only: c_double, c_int
    use kvo_mtx
    use read_data
    implicit none
    save ! as the variables of a main program are anyway; without the word leak checkers count them

    character(1000) :: data_folder, work_folder
    integer(c_int) :: n, iterations, unit
    integer(c_int), allocatable :: rows(:), columns(:), row_starts(:), column_indices(:)
    real(c_double), allocatable :: lower(:), values(:), f(:), u(:), diagonal(:)

    if (command_argument_count() /= 2) error stop 'usage: solver_records DATA_FOLDER WORK_FOLDER'
    call get_command_argument(1, data_folder)
    call get_command_argument(2, work_folder)
    call read_symmetric(trim(data_folder)//'/bcsstk11.mtx', n, rows, columns, lower)
    call compress()

    allocate (f(n), u(n))
    f = 1
    call solve(1e-9_c_double)
    print '(i0, a, i0, a)', n, ' unknowns, solved in ', iterations, ' iterations'

    call write_stiffness(trim(work_folder)//'/stiffness.rec')
    open (newunit=unit, file=trim(work_folder)//'/solution.rec', form='unformatted', status='replace', action='write')
    write (unit) n
    write (unit) f
    write (unit) u
    close (unit)

contains

    ! Compressed rows of all of K, from its lower triangle. The kernel counts from 0, the offsets as well as the columns.
    subroutine compress()
        integer(c_int), allocatable :: next(:)
        integer :: e
        allocate (row_starts(n + 1), source=0_c_int)
        do e = 1, size(rows)
            row_starts(rows(e) + 1) = row_starts(rows(e) + 1) + 1
            if (rows(e) /= columns(e)) row_starts(columns(e) + 1) = row_starts(columns(e) + 1) + 1
        end do
        do e = 1, n
            row_starts(e + 1) = row_starts(e + 1) + row_starts(e)
        end do
        allocate (column_indices(row_starts(n + 1)), values(row_starts(n + 1)), diagonal(n), next(n))
        next = row_starts(1:n)
        do e = 1, size(rows)
            call place(rows(e), columns(e), lower(e), next)
            if (rows(e) /= columns(e)) call place(columns(e), rows(e), lower(e), next)
            if (rows(e) == columns(e)) diagonal(rows(e)) = lower(e)
        end do
    end subroutine compress

    subroutine place(row, column, value, next)
        integer(c_int), intent(in) :: row, column
        real(c_double), intent(in) :: value
        integer(c_int), intent(inout) :: next(:)
        next(row) = next(row) + 1
        column_indices(next(row)) = column - 1
        values(next(row)) = value
    end subroutine place

    ! Conjugate gradients, preconditioned by the diagonal, until the residual is `tolerance` of the load.
    subroutine solve(tolerance)
        real(c_double), intent(in) :: tolerance
        real(c_double) :: r(n), z(n), p(n), q(n), rz, rz_before, alpha
        u = 0
        r = f
        z = r/diagonal
        p = z
        rz = BLAC_DDOT(n, r, 1, z, 1)
        do iterations = 1, 20*n ! in exact arithmetic n would do
            call BLAC_SPARSE_UMV(values, p, row_starts, column_indices, q, n, n, 1)
            alpha = rz/BLAC_DDOT(n, p, 1, q, 1)
            call BLAC_DAXPY(n, alpha, p, 1, u, 1)
            call BLAC_DAXPY(n, -alpha, q, 1, r, 1)
            if (BLAC_DNRM2(n, r, 1) < tolerance*BLAC_DNRM2(n, f, 1)) return
            z = r/diagonal
            rz_before = rz
            rz = BLAC_DDOT(n, r, 1, z, 1)
            p = z + rz/rz_before*p
        end do
        error stop 'the iterations did not converge'
    end subroutine solve

    ! The number of rows, then a record a row: how many entries, their columns, their values, the diagonal first. Of a symmetric matrix each
    ! pair is written once: row i holds what stands on and to the right of the diagonal, which is column i of the file's lower triangle.
    subroutine write_stiffness(path)
        character(*), intent(in) :: path
        integer :: to, i, first, last
        open (newunit=to, file=path, form='unformatted', status='replace', action='write')
        write (to) n
        first = 1
        do i = 1, n
            last = first - 1
            do while (last < size(columns))
                if (columns(last + 1) /= i) exit
                last = last + 1
            end do
            if (last < first) error stop 'a row without an entry on its diagonal, or a file that is not ordered by columns'
            if (rows(first) /= i) error stop 'a column that does not begin with its diagonal'
            write (to) last - first + 1, rows(first:last), lower(first:last)
            first = last + 1
        end do
        close (to)
    end subroutine write_stiffness
end program solver_records
