! The state of one chunk of a structured hydrodynamics mesh, kept the way
! codes of that kind keep it: a module variable of a derived type whose
! fields are allocatable arrays with halo bounds (x_min-2:x_max+2), and a
! derived type for the state of one cell of a material table.
module definitions_module
    use, intrinsic :: iso_fortran_env, only: int32, real32, real64
    implicit none

    type field_type
        real(real64), allocatable :: density0(:, :)
        real(real64), allocatable :: energy0(:, :)
        real(real64), allocatable :: pressure(:, :)
        integer :: x_min, x_max, y_min, y_max
    end type field_type

    type chunk_type
        integer :: task
        type(field_type) :: field
    end type chunk_type

    type cell_state
        integer(int32) :: material
        real(real64) :: density
        real(real64) :: energy
        real(real32) :: pressure
        real(real64) :: mass_fraction(2) ! of the two materials
    end type cell_state

    type(chunk_type) :: chunk
    integer :: step = 0 ! hydro cycles done
    real(real64), parameter :: gamma = 1.4_real64
end module definitions_module
