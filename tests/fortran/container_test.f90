! Reads matrices from containers; C++ puts them in, see container_helper.cpp. Stops with an error at the first wrong result.
program container_test
    use, intrinsic :: iso_c_binding, only: c_double, c_int, c_int64_t
    use kvo_mtx
    implicit none

    interface
        subroutine enter_fresh_folder() bind(C)
        end subroutine enter_fresh_folder

        function leave_folder() bind(C) result(files_left)
            import :: c_int
            integer(c_int) :: files_left
        end function leave_folder

        ! Value (i, j) of the new matrix, 0-based, is id + i + 1000 j.
        subroutine add_matrix(container, id, rows, columns) bind(C)
            import :: c_int, c_int64_t
            integer(c_int64_t), value :: container
            integer(c_int), value :: id, rows, columns
        end subroutine add_matrix

        subroutine remove_matrix(container, id) bind(C)
            import :: c_int, c_int64_t
            integer(c_int64_t), value :: container
            integer(c_int), value :: id
        end subroutine remove_matrix
    end interface

    integer(c_int64_t), parameter :: no_container = 0
    integer(c_int64_t) :: first, second
    character(len=5) :: text
    real(c_double) :: untouched(2)

    call enter_fresh_folder()
    first = KVOSRVMATRIXCONTAINERCREATE()
    call check(KVOSRVMATRIXCONTAINERTRYCREATE(second) == 0, 'TRYCREATE')
    call check(first /= no_container .and. second /= no_container .and. first /= second, 'CREATE')
    call add_matrix(first, 5, 10, 4)
    call add_matrix(second, 5, 3, 70)

    call check_matrix(first, 5, 10, 4)
    call check_matrix(second, 5, 3, 70)

    call remove_matrix(first, 5)
    untouched = [3, 4]
    call check(KVOSRVMATRIXCONTAINERNUMROWS(first, 5) == 0, 'NUMROWS of a removed matrix')
    call check(KVOSRVMATRIXCONTAINERNUMCOLUMNS(first, 6) == 0, 'NUMCOLUMNS of an unknown matrix')
    call KVOSRVMATRIXCONTAINERGETVALUES(first, 5, untouched)
    call KVOSRVMATRIXCONTAINERGETVALUES(no_container, 5, untouched)
    call check(all(untouched == [3, 4]), 'GETVALUES of a matrix that is not there')

    call check(KVOSRVMATRIXCONTAINERTRYGETVALUES(first, 5, untouched) == -2, 'TRYGETVALUES of a removed matrix')
    call check(KVOSRVLASTERROR(text, len(text)) > len(text), 'LASTERROR, the length')
    call check(text == 'there', 'LASTERROR, the text')

    call KVOSRVMATRIXCONTAINERDELETE(first)
    call check_matrix(second, 5, 3, 70)
    call KVOSRVMATRIXCONTAINERDELETE(second)
    call KVOSRVMATRIXCONTAINERDELETE(no_container)
    call check(leave_folder() == 0, 'files after DELETE')

contains

    subroutine check(right, what)
        logical, intent(in) :: right
        character(*), intent(in) :: what
        if (.not. right) then
            print '(2a)', 'wrong: ', what
            error stop 1
        end if
    end subroutine check

    subroutine check_matrix(container, id, rows, columns)
        integer(c_int64_t), intent(in) :: container
        integer(c_int), intent(in) :: id, rows, columns
        real(c_double) :: values(rows, columns), guarded(rows*columns + 1)
        integer :: i, j
        call check(KVOSRVMATRIXCONTAINERNUMROWS(container, id) == rows, 'NUMROWS')
        call check(KVOSRVMATRIXCONTAINERNUMCOLUMNS(container, id) == columns, 'NUMCOLUMNS')
        guarded = -1
        call KVOSRVMATRIXCONTAINERGETVALUES(container, id, guarded)
        values = reshape(guarded, [rows, columns])
        do j = 1, columns
            do i = 1, rows
                call check(values(i, j) == id + (i - 1) + 1000*(j - 1), 'a value of GETVALUES')
            end do
        end do
        call check(guarded(rows*columns + 1) == -1, 'what follows the values of GETVALUES')
    end subroutine check_matrix
end program container_test
