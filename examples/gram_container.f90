! The Gram matrix of many snapshots from Fortran: the solver writes its displacements into a matrix of a container, out of core, some time
! steps at a time, has G = X^T X formed there, reads it back, and learns from its eigenvalues how many shapes the motion is made of.
! Matrices are known by numbers; what the container's Fortran entry points leave to C++ is in gram_container_host.cpp.
!
! The container's file lies in the working directory and goes with the container. usage: gram_container
program gram_container
    use, intrinsic :: iso_c_binding, only: c_bool, c_double, c_int, c_int64_t
    use kvo_mtx
    implicit none
    save ! as the variables of a main program are anyway; without the word leak checkers count them

    interface
        function host_start() bind(C) result(done)
            import :: c_bool
            logical(c_bool) :: done
        end function host_start

        subroutine host_end() bind(C)
        end subroutine host_end

        function host_create(container, id, rows, columns, block_rows, block_columns) bind(C) result(done)
            import :: c_bool, c_int, c_int64_t
            integer(c_int64_t), value :: container
            integer(c_int), value :: id, rows, columns, block_rows, block_columns
            logical(c_bool) :: done
        end function host_create

        function host_set_columns(container, id, first, count, values) bind(C) result(done)
            import :: c_bool, c_double, c_int, c_int64_t
            integer(c_int64_t), value :: container
            integer(c_int), value :: id, first, count
            real(c_double), intent(in) :: values(*)
            logical(c_bool) :: done
        end function host_set_columns

        function host_gram(container, id, gram_id) bind(C) result(done)
            import :: c_bool, c_int, c_int64_t
            integer(c_int64_t), value :: container
            integer(c_int), value :: id, gram_id
            logical(c_bool) :: done
        end function host_gram
    end interface

    integer(c_int), parameter :: snapshots_id = 1, gram_id = 2
    integer(c_int), parameter :: unknowns = 20000, snapshots = 200, block = 50, shapes = 4
    real(c_double), parameter :: pi = acos(-1.0_c_double)
    integer(c_int64_t) :: container
    integer(c_int) :: first, i, j, status
    real(c_double), allocatable :: x(:, :), y(:), gram(:, :), energies(:), work(:)
    real(c_double) :: start, written, formed, difference, best(1)
    logical :: ok

    if (.not. host_start()) error stop 1
    container = KVOSRVMATRIXCONTAINERCREATE()
    allocate (x(unknowns, block), y(unknowns))

    ! Blocks as wide as what is written at a time, so that each is written once.
    call KVOSRVGETWALLTIME(start)
    if (.not. host_create(container, snapshots_id, unknowns, snapshots, 2000, block)) error stop 1
    do first = 1, snapshots, block
        do j = 1, block
            call snapshot(first + j - 1, x(:, j))
        end do
        if (.not. host_set_columns(container, snapshots_id, first, block, x)) error stop 1
    end do
    call KVOSRVGETWALLTIME(written)
    if (.not. host_gram(container, snapshots_id, gram_id)) error stop 1
    call KVOSRVGETWALLTIME(formed)
    print '(i0, a, i0, a, f0.3, a, f0.3, a)', snapshots, ' snapshots of ', unknowns, ' unknowns: made and written in ', &
        written - start, ' s, X^T X formed in ', formed - written, ' s'

    if (KVOSRVMATRIXCONTAINERNUMROWS(container, gram_id) /= snapshots) error stop 'the Gram matrix has a wrong size'
    if (KVOSRVMATRIXCONTAINERNUMCOLUMNS(container, gram_id) /= snapshots) error stop 'the Gram matrix has a wrong size'
    allocate (gram(snapshots, snapshots), energies(snapshots))
    call KVOSRVMATRIXCONTAINERGETVALUES(container, gram_id, gram)
    call KVOSRVMATRIXCONTAINERDELETE(container)
    call host_end()

    ! Entries of G against sums of snapshots computed anew.
    difference = 0
    do i = 1, snapshots, 29
        call snapshot(i, x(:, 1))
        do j = 1, snapshots, 17
            call snapshot(j, y)
            difference = max(difference, abs(gram(i, j) - sum(x(:, 1)*y)))
        end do
    end do
    difference = difference/maxval(abs(gram))
    print '(a, es8.1, a)', 'sampled entries differ from their sums by', difference, ' of the largest'

    ! The eigenvalues of G, ascending, are the squared sizes of the orthogonal shapes that make up the snapshots.
    call BLAC_DSYEV('N', 'L', snapshots, gram, snapshots, energies, best, -1, status) ! asks for the work space
    allocate (work(nint(best(1))))
    call BLAC_DSYEV('N', 'L', snapshots, gram, snapshots, energies, work, size(work), status)
    if (status /= 0) error stop 'DSYEV failed'
    print '(a)', 'shape   share of the energy'
    do i = 1, shapes + 1
        print '(i5, es12.3)', i, energies(snapshots - i + 1)/sum(energies)
    end do

    ! The motion is made of that many shapes: what is behind them is rounding.
    ok = difference < 1e-12 .and. energies(snapshots - shapes + 1) > 1e-9*sum(energies) .and. &
        abs(energies(snapshots - shapes)) < 1e-12*sum(energies)
    print '(a)', trim(merge('as expected    ', 'NOT AS EXPECTED', ok))
    if (.not. ok) error stop 1

contains

    ! The displacements at time step j: harmonics of a string that die away, the higher the faster. Stands for what a solver computes.
    subroutine snapshot(step, u)
        integer(c_int), intent(in) :: step
        real(c_double), intent(out) :: u(:)
        integer :: k, point
        u = 0
        do k = 1, shapes
            u = u + exp(-0.01_c_double*k*step)*sin(k*pi*[(point, point=1, unknowns)]/(unknowns + 1))
        end do
    end subroutine snapshot
end program gram_container
