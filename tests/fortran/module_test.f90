! Calls the library from Fortran through the module kvo_mtx; stops with an error at the first wrong result. C++ puts matrices into
! containers, see container_helper.cpp.
program module_test
    use, intrinsic :: iso_c_binding, only: c_double, c_f_pointer, c_f_procpointer, c_funloc, c_funptr, &
                                           c_int, c_int64_t, c_loc, c_ptr
    use kvo_mtx
    implicit none

    interface
        ! Value (i, j) of the new matrix, 0-based, is id + i + 1000 j.
        subroutine add_matrix(container, id, rows, columns) bind(C)
            import :: c_int, c_int64_t
            integer(c_int64_t), value :: container
            integer(c_int), value :: id, rows, columns
        end subroutine add_matrix
    end interface

    real(c_double), parameter :: eps = epsilon(1.0_c_double)

    call products()
    call products_in_tasks()
    call sparse_assembly()
    call containers()

contains

    subroutine check(right, what)
        logical, intent(in) :: right
        character(*), intent(in) :: what
        if (.not. right) then
            print '(2a)', 'wrong: ', what
            error stop 1
        end if
    end subroutine check

    subroutine products()
        real(c_double) :: a(5, 4), b(6, 4), c(7, 6), x(4)
        call random_number(a)
        call random_number(b)
        call random_number(x)
        c = -1
        call BLAC_DGEMM2('n', 't', 5_c_int, 6_c_int, 4_c_int, 2.0_c_double, a, 5_c_int, b, 6_c_int, 1.0_c_double, c, 7_c_int)
        call check(all(abs(c(1:5, :) - 2*matmul(a, transpose(b)) + 1) <= 100*eps) .and. all(c(6:7, :) == -1), 'DGEMM2')
        call check(abs(BLAC_DDOT(4_c_int, x, 1_c_int, x, 1_c_int) - BLAC_DNRM2(4_c_int, x, 1_c_int)**2) < 100*eps, 'DDOT or DNRM2')
    end subroutine products

    ! A host's function: runs the tasks from the last to the first, and counts them in its context.
    subroutine run_backwards(context, tasks, task, data) bind(C)
        type(c_ptr), value :: context, data
        integer(c_int), value :: tasks
        type(c_funptr), value :: task
        procedure(KVOPARALLELTASK), pointer :: run_task
        integer(c_int), pointer :: counted
        integer(c_int) :: index
        call c_f_procpointer(task, run_task)
        call c_f_pointer(context, counted)
        do index = tasks - 1, 0, -1
            call run_task(data, index)
        end do
        counted = counted + tasks
    end subroutine run_backwards

    subroutine products_in_tasks()
        integer(c_int), parameter :: n = 40000, nvec = 3, each = 5
        integer(c_int), target :: counted
        integer(c_int) :: i
        integer(c_int), allocatable :: ia(:), ja(:)
        real(c_double), allocatable :: a(:), x(:, :), y(:, :), expected(:, :)
        allocate (ia(n + 1), ja(each*n), a(each*n), x(n, nvec), y(n, nvec), expected(n, nvec))
        call random_number(a)
        call random_number(x)
        ia = [(each*i, i=0, n)]
        ja = [(modulo(i*7919, n), i=1, each*n)]
        call BLAC_SPARSE_UMV(a, x, ia, ja, expected, n, n, nvec)
        ! Indices are counted from 0.
        call check(abs(expected(2, 3) - dot_product(a(6:10), x(ja(6:10) + 1, 3))) < 100*eps, 'SPARSE_UMV')
        counted = 0
        call check(KVOSRVPARALLELBEGIN(c_funloc(run_backwards), c_loc(counted), 2_c_int) == 0, 'PARALLELBEGIN')
        call BLAC_SPARSE_UMV(a, x, ia, ja, y, n, n, nvec)
        call check(counted > 1 .and. all(y == expected), 'SPARSE_UMV in tasks')
        call check(KVOSRVPARALLELEND() == 0, 'PARALLELEND')
        call check(KVOSRVPARALLELEND() == -2, 'PARALLELEND without a beginning')
    end subroutine products_in_tasks

    ! Of 4 entries two are summed: row 0: (1, 5 + 2), (2, 6); row 1: (0, 1).
    subroutine sparse_assembly()
        integer(c_int), parameter :: n = 4, row(n) = [0, 1, 0, 0], column(n) = [1, 0, 2, 1]
        real(c_double), parameter :: first(n) = [5, 1, 6, 2], more(n) = [1, 2, 3, 4]
        integer(c_int64_t), parameter :: none = 0
        integer(c_int64_t) :: matrix, places, others
        integer(c_int) :: rows, columns, entries, length, ia(3), ja(3)
        real(c_double) :: a(3)
        character(len=200) :: text
        call check(KVOSRVSPARSEASSEMBLE(2_c_int, 3_c_int, n, row, column, first, matrix) == 0, 'SPARSEASSEMBLE')
        call check(KVOSRVSPARSESIZES(matrix, rows, columns, entries) == 0, 'SPARSESIZES')
        call check(all([rows, columns, entries] == [2, 3, 3]), 'the sizes')
        call check(KVOSRVSPARSEROWS(matrix, ia, ja) == 0, 'SPARSEROWS')
        call check(all([ia, ja] == [0, 2, 3, 1, 2, 0]), 'the rows')
        call check_values(matrix, [7.0_c_double, 6.0_c_double, 1.0_c_double], 'SPARSEASSEMBLE')
        call check(KVOSRVSPARSEPLACES(matrix, n, row, column, places) == 0, 'SPARSEPLACES')
        call check(KVOSRVSPARSEADDVALUES(matrix, places, more) == 0, 'SPARSEADDVALUES')
        call check_values(matrix, [12.0_c_double, 9.0_c_double, 3.0_c_double], 'SPARSEADDVALUES')
        call check(KVOSRVSPARSECLEARVALUES(matrix) == 0, 'SPARSECLEARVALUES')
        call check_values(matrix, [0.0_c_double, 0.0_c_double, 0.0_c_double], 'SPARSECLEARVALUES')

        call check(KVOSRVSPARSEPLACES(matrix, n, column, row, others) == 206, 'SPARSEPLACES of what is not stored')
        length = KVOSRVLASTERROR(text, len(text))
        call check(index(text, 'row 2, column 0, where entry 2') > 0, 'LASTERROR, the entry')
        call check(KVOSRVSPARSEADDVALUES(matrix, others, a) == -2, 'SPARSEADDVALUES without places')
        call check(KVOSRVSPARSECLEARVALUES(none) == -2, 'SPARSECLEARVALUES without a matrix')
        call KVOSRVSPARSERELEASE(matrix)
        call check(KVOSRVSPARSEASSEMBLE(2_c_int, 3_c_int, n, -row, column, first, matrix) == 206, 'a negative row')
        call KVOSRVSPARSERELEASE(matrix)
        call KVOSRVSPARSEPLACESRELEASE(places)
    end subroutine sparse_assembly

    subroutine check_values(matrix, expected, what)
        integer(c_int64_t), intent(in) :: matrix
        real(c_double), intent(in) :: expected(:)
        character(*), intent(in) :: what
        real(c_double) :: values(size(expected))
        call check(KVOSRVSPARSEVALUES(matrix, values) == 0, 'SPARSEVALUES')
        call check(all(values == expected), what//', the values')
    end subroutine check_values

    subroutine containers()
        integer(c_int64_t), parameter :: none = 0
        integer(c_int64_t) :: first, second
        character(len=5) :: text
        real(c_double) :: untouched(2)
        first = KVOSRVMATRIXCONTAINERCREATE()
        call check(KVOSRVMATRIXCONTAINERTRYCREATE(second) == 0, 'TRYCREATE')
        call check(first /= none .and. second /= none .and. first /= second, 'CREATE')
        call add_matrix(first, 5_c_int, 10_c_int, 4_c_int)
        call add_matrix(second, 5_c_int, 3_c_int, 70_c_int)
        call check_matrix(first, 5_c_int, 10_c_int, 4_c_int)
        call check_matrix(second, 5_c_int, 3_c_int, 70_c_int)

        untouched = [3, 4]
        call check(KVOSRVMATRIXCONTAINERNUMCOLUMNS(first, 6_c_int) == 0, 'NUMCOLUMNS of an unknown matrix')
        call KVOSRVMATRIXCONTAINERGETVALUES(none, 5_c_int, untouched)
        call check(KVOSRVMATRIXCONTAINERTRYGETVALUES(first, 6_c_int, untouched) == -2, 'TRYGETVALUES of an unknown matrix')
        call check(all(untouched == [3, 4]), 'GETVALUES of a matrix that is not there')
        call check(KVOSRVLASTERROR(text, len(text)) > len(text), 'LASTERROR, the length')
        call check(text == 'there', 'LASTERROR, the text')

        call KVOSRVMATRIXCONTAINERDELETE(first)
        call check_matrix(second, 5_c_int, 3_c_int, 70_c_int)
        call KVOSRVMATRIXCONTAINERDELETE(second)
        call KVOSRVMATRIXCONTAINERDELETE(none)
    end subroutine containers

    subroutine check_matrix(container, id, rows, columns)
        integer(c_int64_t), intent(in) :: container
        integer(c_int), intent(in) :: id, rows, columns
        real(c_double) :: guarded(rows*columns + 1)
        integer :: i, j
        call check(KVOSRVMATRIXCONTAINERNUMROWS(container, id) == rows, 'NUMROWS')
        call check(KVOSRVMATRIXCONTAINERNUMCOLUMNS(container, id) == columns, 'NUMCOLUMNS')
        guarded = -1
        call KVOSRVMATRIXCONTAINERGETVALUES(container, id, guarded)
        call check(all(guarded == [((real(id + i + 1000*j, c_double), i=0, rows - 1), j=0, columns - 1), -1.0_c_double]), &
                   'GETVALUES')
    end subroutine check_matrix
end program module_test
