! A place to stop, shared by the Fortran examples: each stop is a call of
! arraylens_break() on a line marked "arraylens-break: NAME".
module arraylens_stop
    use, intrinsic :: iso_c_binding, only: c_int
    implicit none
contains
    ! bind(C) keeps the symbol name plain.
    subroutine arraylens_break(stop_number) bind(C, name='arraylens_break')
        integer(c_int), value :: stop_number
        integer, save, volatile :: stops = 0
        stops = stops + stop_number
    end subroutine
end module arraylens_stop
