! Static condensation: half of the unknowns of this model have no mass, and DSYGV refuses a singular mass matrix. Without mass an unknown
! follows the others at once, u_s = -K_ss^-1 K_sm u_m, so the basis V = [1; -K_ss^-1 K_sm] loses nothing: the pair V^T K V, V^T M V of half
! the size has exactly the finite frequencies of the model. They are printed beside references.
!
! usage: condensation DATA_FOLDER
program condensation
    use, intrinsic :: iso_c_binding, only: c_double, c_int
    use kvo_mtx
    use read_data
    implicit none
    save ! as the variables of a main program are anyway; without the word leak checkers count them

    real(c_double), parameter :: pi = acos(-1.0_c_double)
    character(1000) :: folder
    integer(c_int) :: n, masters, slaves, status, i
    integer(c_int), allocatable :: order(:)
    real(c_double), allocatable :: k(:, :), m(:, :), keys(:), v(:, :), k_reduced(:, :), m_reduced(:, :), lambda(:), modes(:, :)
    real(c_double), allocatable :: inertia(:), frequencies(:), references(:)
    real(c_double) :: difference, residual
    logical :: ok

    if (command_argument_count() /= 1) error stop 'usage: condensation DATA_FOLDER'
    call get_command_argument(1, folder)
    call read_full(trim(folder)//'/bcsstk01.mtx', k)
    call read_full(trim(folder)//'/bcsstm01.mtx', m)
    call read_frequencies(trim(folder)//'/reference/bcsst01.txt', references)
    n = size(k, 1)

    ! Unknowns with mass first: KVOSRVSORT13 orders the columns of K by keys and tells by the tags where each came from; the rows of K, and M,
    ! then follow in that order.
    allocate (keys, source=[(-m(i, i), i=1, n)])
    allocate (order, source=[(i, i=1, n)])
    call KVOSRVSORT13(keys, k, order, n, n, status)
    if (status /= 0) error stop 'KVOSRVSORT13 failed'
    k = k(order, :)
    m = m(order, order)
    masters = count(keys < 0)
    slaves = n - masters
    print '(i0, a, i0, a)', n, ' unknowns, ', slaves, ' of them without mass'

    call make_basis()
    call project(k, k_reduced)
    call project(m, m_reduced)
    call solve()

    ! Back to the full model, which has to be solved as well; matmul, not the library's products, as the witness.
    allocate (modes, source=matmul(v, k_reduced))
    allocate (inertia(n))
    residual = 0
    do i = 1, masters
        inertia = lambda(i)*matmul(m, modes(:, i))
        residual = max(residual, norm2(matmul(k, modes(:, i)) - inertia)/norm2(inertia))
    end do

    allocate (frequencies, source=sqrt(lambda)/(2*pi))
    difference = maxval(abs(frequencies(1:size(references))/references - 1))
    print '(a)', 'mode      frequency      reference   relative difference'
    do i = 1, size(references)
        print '(i4, 2f15.9, es12.1)', i, frequencies(i), references(i), abs(frequencies(i)/references(i) - 1)
    end do
    ok = difference < 1e-8 .and. residual < 1e-10
    print '(a, es8.1, 2a)', 'largest residual of the expanded modes', residual, '; ', &
        trim(merge('agrees with the references ', 'DIFFERS FROM THE REFERENCES', ok))
    if (.not. ok) error stop 1

contains

    subroutine read_full(path, a)
        character(*), intent(in) :: path
        real(c_double), allocatable, intent(out) :: a(:, :)
        integer(c_int), allocatable :: rows(:), columns(:)
        real(c_double), allocatable :: values(:)
        integer(c_int) :: order_of_a, e
        call read_symmetric(path, order_of_a, rows, columns, values)
        allocate (a(order_of_a, order_of_a), source=0.0_c_double)
        do e = 1, size(values)
            a(rows(e), columns(e)) = values(e)
            a(columns(e), rows(e)) = values(e)
        end do
    end subroutine read_full

    ! K_ss is positive definite: by its Cholesky factor L, K_ss^-1 = L^-T L^-1.
    subroutine make_basis()
        real(c_double), allocatable :: factor(:, :), follow(:, :)
        allocate (factor, source=k(masters + 1:n, masters + 1:n))
        allocate (follow, source=k(masters + 1:n, 1:masters))
        call BLAC_DPOTRF('L', slaves, factor, slaves, status)
        if (status /= 0) error stop 'the stiffness of the massless unknowns is not positive definite'
        call BLAC_DTRSM('L', 'L', 'N', 'N', slaves, masters, -1.0_c_double, factor, slaves, follow, slaves)
        call BLAC_DTRSM('L', 'L', 'T', 'N', slaves, masters, 1.0_c_double, factor, slaves, follow, slaves)
        allocate (v(n, masters), source=0.0_c_double)
        do i = 1, masters
            v(i, i) = 1
        end do
        v(masters + 1:n, :) = follow
    end subroutine make_basis

    ! V^T A V of a symmetric A, of which DSYMM reads the lower triangle only.
    subroutine project(a, reduced)
        real(c_double), intent(in) :: a(n, n)
        real(c_double), allocatable, intent(out) :: reduced(:, :)
        real(c_double), allocatable :: av(:, :)
        allocate (av(n, masters), reduced(masters, masters))
        call BLAC_DSYMM('L', 'L', n, masters, 1.0_c_double, a, n, v, n, 0.0_c_double, av, n)
        call BLAC_DGEMM('T', 'N', masters, masters, n, 1.0_c_double, v, n, av, n, 0.0_c_double, reduced, masters)
    end subroutine project

    ! The eigenvectors replace k_reduced, the factor of the mass m_reduced.
    subroutine solve()
        real(c_double) :: best(1)
        real(c_double), allocatable :: work(:)
        allocate (lambda(masters))
        call BLAC_DSYGV(1, 'V', 'L', masters, k_reduced, masters, m_reduced, masters, lambda, best, -1, status) ! asks for the work space
        allocate (work(nint(best(1))))
        call BLAC_DSYGV(1, 'V', 'L', masters, k_reduced, masters, m_reduced, masters, lambda, work, size(work), status)
        if (status /= 0) error stop 'DSYGV failed'
    end subroutine solve
end program condensation
