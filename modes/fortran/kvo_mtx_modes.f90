!> The Fortran-callable entry points of the modes library, with explicit interfaces; KVOModesFortran.h declares the same for C, with the
!! manual. The interfaces follow the header's order; a test compiles them as C prototypes together with it.
module kvo_mtx_modes
    use, intrinsic :: iso_c_binding, only: c_char, c_double, c_int, c_int64_t
    implicit none
    private :: c_char, c_double, c_int, c_int64_t

    interface
        function KVOSRVMODESMATRIX(order, rowstart, columns, values, handle) bind(C, name="KVOSRVMODESMATRIX") result(r)
            import
            integer(c_int), intent(in) :: order, rowstart(*), columns(*)
            real(c_double), intent(in) :: values(*)
            integer(c_int64_t), intent(out) :: handle
            integer(c_int) :: r
        end function KVOSRVMODESMATRIX

        function KVOSRVMODESREAD(path, length, number, handle) bind(C, name="KVOSRVMODESREAD") result(r)
            import
            character(kind=c_char), intent(in) :: path(*)
            integer(c_int), intent(in) :: length, number
            integer(c_int64_t), intent(out) :: handle
            integer(c_int) :: r
        end function KVOSRVMODESREAD

        function KVOSRVMODESORDER(handle) bind(C, name="KVOSRVMODESORDER") result(r)
            import
            integer(c_int64_t), value :: handle
            integer(c_int) :: r
        end function KVOSRVMODESORDER

        subroutine KVOSRVMODESRELEASE(handle) bind(C, name="KVOSRVMODESRELEASE")
            import
            integer(c_int64_t), value :: handle
        end subroutine KVOSRVMODESRELEASE

        function KVOSRVMODESLOWEST(stiffness, mass, count, tolerance, memory, eigenvalues, residuals, modes) &
            bind(C, name="KVOSRVMODESLOWEST") result(r)
            import
            integer(c_int64_t), value :: stiffness, mass
            integer(c_int), intent(in) :: count
            real(c_double), intent(in) :: tolerance
            integer(c_int64_t), intent(in) :: memory
            real(c_double), intent(inout) :: eigenvalues(*), residuals(*), modes(*)
            integer(c_int) :: r
        end function KVOSRVMODESLOWEST

        function KVOSRVMODESRANGE(stiffness, mass, from, to, room, tolerance, memory, found, eigenvalues, residuals, modes) &
            bind(C, name="KVOSRVMODESRANGE") result(r)
            import
            integer(c_int64_t), value :: stiffness, mass
            real(c_double), intent(in) :: from, to, tolerance
            integer(c_int), intent(in) :: room
            integer(c_int64_t), intent(in) :: memory
            integer(c_int), intent(inout) :: found
            real(c_double), intent(inout) :: eigenvalues(*), residuals(*), modes(*)
            integer(c_int) :: r
        end function KVOSRVMODESRANGE

        function KVOSRVMODESERROR(text, length) bind(C, name="KVOSRVMODESERROR") result(whole)
            import
            character(kind=c_char), intent(inout) :: text(*)
            integer(c_int), intent(in) :: length
            integer(c_int) :: whole
        end function KVOSRVMODESERROR
    end interface

end module kvo_mtx_modes
