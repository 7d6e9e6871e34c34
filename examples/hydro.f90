! Arrays as Fortran codes hold them: a module variable of derived type with
! allocatable fields (definitions.f90), named by its plain name in a routine
! that uses the module and in the main program that reaches it through
! another module; a pointer array associated with a strided section; and an
! array of derived types, one component across it (cells%density).
! The program writes its reference values, then stops three times, each at
! a call of arraylens_break() on a line marked "arraylens-break: NAME":
!   1. ideal_gas - in ideal_gas(), which uses definitions_module;
!   2. restrict  - in restrict(), with the pointer array `coarse` and the
!                  assumed-shape array of structures `cells`;
!   3. main      - in the main program, which uses the module only through
!                  ideal_gas_module.

! The driver's clock: its own `step`, beside the one of definitions_module.
module timestep_module
    use, intrinsic :: iso_fortran_env, only: real64
    implicit none
    integer :: step = 0
    real(real64) :: dt = 1.0e-3_real64
    real(real64) :: time = 0
contains
    subroutine advance()
        step = step + 1
        time = time + dt
    end subroutine advance
end module timestep_module

module ideal_gas_module
    use, intrinsic :: iso_fortran_env, only: int64, real64
    use definitions_module
    use reference_values
    use arraylens_stop
    implicit none
contains
    ! p = (gamma - 1) rho e over the chunk's cells, halo included.
    subroutine ideal_gas()
        integer :: j, k
        do k = chunk%field%y_min - 2, chunk%field%y_max + 2
            do j = chunk%field%x_min - 2, chunk%field%x_max + 2
                chunk%field%pressure(j, k) = (gamma - 1.0_real64)*chunk%field%density0(j, k)* &
                                             chunk%field%energy0(j, k)
            end do
        end do
        call ref_line('stop=ideal_gas')
        call write_chunk()
        call arraylens_break(1) ! arraylens-break: ideal_gas
    end subroutine ideal_gas

    subroutine write_chunk()
        integer(int64) :: strides(2)
        associate (f => chunk%field)
            call ref_real8('density0', 'chunk%field%density0', reshape(f%density0, &
                           [size(f%density0)]), ref_bounds(lbound(f%density0), ubound(f%density0)))
            call ref_elem_r8('density0', '(-1,-1)', f%density0(-1, -1))
            call ref_elem_r8('density0', '(0,-1)', f%density0(0, -1))
            call ref_elem_r8('density0', '(7,4)', f%density0(7, 4))
            call ref_elem_r8('density0', '(14,10)', f%density0(14, 10))
            strides(1) = loc(f%density0(0, -1)) - loc(f%density0(-1, -1))
            strides(2) = loc(f%density0(-1, 0)) - loc(f%density0(-1, -1))
            call ref_strides('density0', strides)
            call ref_real8('pressure', 'chunk%field%pressure', reshape(f%pressure, &
                           [size(f%pressure)]), ref_bounds(lbound(f%pressure), ubound(f%pressure)))
            call ref_elem_r8('pressure', '(3,2)', f%pressure(3, 2))
            call ref_elem_r8('pressure', '(14,-1)', f%pressure(14, -1))
        end associate
    end subroutine write_chunk
end module ideal_gas_module

module multigrid_module
    use, intrinsic :: iso_fortran_env, only: int64, real32, real64
    use definitions_module, only: cell_state
    use reference_values
    use arraylens_stop
    implicit none
contains
    ! The coarse grid of a two-level scheme is every other point of the fine
    ! one: a pointer, no copy. The cells' densities are brought up to date
    ! from the coarse grid's corners.
    subroutine restrict(fine, cells)
        real(real64), intent(in), target :: fine(:, :)
        type(cell_state), intent(inout) :: cells(:)
        real(real64), pointer :: coarse(:, :)
        integer(int64) :: strides(2)
        integer :: i
        coarse => fine(1:size(fine, 1):2, 1:size(fine, 2):2)
        do i = 1, size(cells)
            cells(i)%density = cells(i)%density + 1.0e-3_real64*coarse(1 + mod(i, size(coarse, 1)), 1)
        end do
        call ref_line('stop=restrict')
        call ref_real8('coarse', 'coarse', reshape(coarse, [size(coarse)]), &
                       ref_bounds(lbound(coarse), ubound(coarse)))
        call ref_elem_r8('coarse', '(1,1)', coarse(1, 1))
        call ref_elem_r8('coarse', '(2,1)', coarse(2, 1))
        call ref_elem_r8('coarse', '(4,3)', coarse(4, 3))
        call ref_elem_r8('coarse', '(6,5)', coarse(6, 5))
        strides(1) = loc(coarse(2, 1)) - loc(coarse(1, 1))
        strides(2) = loc(coarse(1, 2)) - loc(coarse(1, 1))
        call ref_strides('coarse', strides)
        call write_cells(cells)
        call arraylens_break(2) ! arraylens-break: restrict
    end subroutine restrict

    subroutine write_cells(cells)
        type(cell_state), intent(in) :: cells(:)
        integer :: n
        n = size(cells)
        call ref_real8('cdensity', 'cells%density', cells%density, ref_bounds([1], [n]))
        call ref_elem_r8('cdensity', '(1)', cells(1)%density)
        call ref_elem_r8('cdensity', '(9)', cells(9)%density)
        call ref_real8('cdensity_all', 'cells(:)%density', cells(:)%density, ref_bounds([1], [n]))
        call ref_elem_r8('cdensity_all', '(2)', cells(2)%density)
        call ref_real8('cenergy', 'cells(3:10:2)%energy', cells(3:10:2)%energy, '1:4')
        call ref_elem_r8('cenergy', '(1)', cells(3)%energy)
        call ref_elem_r8('cenergy', '(4)', cells(9)%energy)
        call ref_real4('cpressure', 'cells%pressure', cells%pressure, ref_bounds([1], [n]))
        call ref_elem_r4('cpressure', '(5)', cells(5)%pressure)
        call ref_int4('cmaterial', 'cells%material', cells%material, ref_bounds([1], [n]))
        call ref_elem_i('cmaterial', '(12)', int(cells(12)%material, int64))
    end subroutine write_cells
end module multigrid_module

program hydro
    use, intrinsic :: iso_fortran_env, only: real32, real64
    use timestep_module
    use ideal_gas_module
    use multigrid_module
    use reference_values
    use arraylens_stop
    implicit none

    real(real64), allocatable :: fine(:, :)
    type(cell_state), allocatable :: cells(:)
    integer :: j, k

    call ref_open('hydro_f90', 'fortran')

    chunk%task = 1
    chunk%field%x_min = 1
    chunk%field%x_max = 12
    chunk%field%y_min = 1
    chunk%field%y_max = 8
    associate (f => chunk%field)
        allocate (f%density0(f%x_min - 2:f%x_max + 2, f%y_min - 2:f%y_max + 2))
        allocate (f%energy0, f%pressure, mold=f%density0)
        do k = f%y_min - 2, f%y_max + 2
            do j = f%x_min - 2, f%x_max + 2
                ! A dense blob in a light gas, hotter towards the top.
                f%density0(j, k) = 0.2_real64
                if ((j - 6)**2 + (k - 4)**2 < 9) f%density0(j, k) = 1.0_real64 + 0.05_real64*j
                f%energy0(j, k) = 1.0_real64 + 0.25_real64*k
            end do
        end do
    end associate
    call ideal_gas()

    allocate (fine(11, 9))
    do k = 1, 9
        do j = 1, 11
            fine(j, k) = sin(0.3_real64*j)*cos(0.2_real64*k) + 0.01_real64*j*k
        end do
    end do
    allocate (cells(12))
    do j = 1, 12
        cells(j)%material = mod(j, 3) + 1
        cells(j)%density = 0.5_real64*j
        cells(j)%energy = 2.0_real64 + 1.0_real64/j
        cells(j)%pressure = real((gamma - 1)*cells(j)%density*cells(j)%energy, real32)
        cells(j)%mass_fraction = [0.25_real64*cells(j)%material, 1 - 0.25_real64*cells(j)%material]
    end do
    call restrict(fine, cells)

    call advance()
    call ref_line('stop=main')
    call write_chunk()
    call ref_close()
    call arraylens_break(3) ! arraylens-break: main
    deallocate (fine, cells)
end program hydro
