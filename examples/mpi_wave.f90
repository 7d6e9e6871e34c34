! A membrane that vibrates: the 2-D wave equation u_tt = c^2 (u_xx + u_yy)
! on an NX x NY grid, computed by an MPI job.
!
! The grid is cut along its second index into slabs of whole columns, one per
! rank, so that every column a rank sends is contiguous in memory. A rank
! holds its slab with a ghost column on either side and the fixed rim rows
! 0 and NX+1: u(0:nx+1, 0:ny_local+1), indexed locally. Before every step
! the ghost columns are filled from the neighbours (MPI_Sendrecv); the rim
! of the membrane is clamped at 0. The membrane starts at rest with a bump
! off its centre, and each step is the explicit leapfrog scheme
!   u_new = 2 u - u_old + r2 * (discrete Laplacian of u).
!
! When NY does not divide by the number of ranks the first mod(NY, size)
! ranks hold one column more, so the ranks' arrays differ in shape; an NY
! that divides evenly gives every rank the same shape.
!
! Every REPORT steps each rank writes its whole local array, ghost columns
! and rim included, to its reference file, then all ranks stop at the line
! marked "arraylens-break: report", where `u` is the rank's slab.
!
! Usage: mpi_wave REFERENCE_PREFIX [NX [NY [STEPS [REPORT]]]]
! Rank r writes REFERENCE_PREFIX.rank<r>: "step=", "rank=", "size=",
! "first_column=" and "bounds=lo:hi,lo:hi" lines, then "values=" and the
! array's values in memory order (first index fastest), one per line, with
! 17 significant digits.
module wave_state
    use, intrinsic :: iso_fortran_env, only: real64
    implicit none
    integer, parameter :: dp = real64
    ! The whole grid's interior and this rank's slab of it.
    integer :: nx, ny, ny_local, first_column
    ! Displacement now, one step ago, and the next one being computed.
    real(dp), allocatable :: u(:, :), u_old(:, :), u_new(:, :)
    ! (c dt / h)^2, with the Courant number 0.5.
    real(dp), parameter :: r2 = 0.25_dp
end module wave_state

module wave_solver
    use mpi_f08
    use wave_state
    implicit none
    type(MPI_Comm) :: comm
    integer :: rank, nranks, left, right
contains

    subroutine decompose()
        integer :: base, extra
        base = ny/nranks
        extra = mod(ny, nranks)
        ny_local = base + merge(1, 0, rank < extra)
        first_column = rank*base + min(rank, extra) + 1
        left = merge(rank - 1, MPI_PROC_NULL, rank > 0)
        right = merge(rank + 1, MPI_PROC_NULL, rank < nranks - 1)
        allocate (u(0:nx + 1, 0:ny_local + 1), u_old(0:nx + 1, 0:ny_local + 1), &
                  u_new(0:nx + 1, 0:ny_local + 1))
        u = 0
        u_old = 0
        u_new = 0
    end subroutine decompose

    ! A smooth bump centred a little off the middle of the membrane, at rest.
    subroutine initial_shape()
        integer :: i, j, jg
        real(dp) :: x, y
        do j = 1, ny_local
            jg = first_column + j - 1
            y = real(jg, dp)/real(ny + 1, dp)
            do i = 1, nx
                x = real(i, dp)/real(nx + 1, dp)
                u(i, j) = exp(-((x - 0.4_dp)**2 + (y - 0.55_dp)**2)/0.01_dp)
            end do
        end do
        u_old = u
    end subroutine initial_shape

    ! The neighbours' edge columns into the ghost columns. Ranks at the
    ! membrane's edge talk to MPI_PROC_NULL, which leaves their ghost
    ! column at the clamped value 0.
    subroutine exchange_ghosts()
        call MPI_Sendrecv(u(:, ny_local), nx + 2, MPI_DOUBLE_PRECISION, right, 0, &
                          u(:, 0), nx + 2, MPI_DOUBLE_PRECISION, left, 0, comm, &
                          MPI_STATUS_IGNORE)
        call MPI_Sendrecv(u(:, 1), nx + 2, MPI_DOUBLE_PRECISION, left, 1, &
                          u(:, ny_local + 1), nx + 2, MPI_DOUBLE_PRECISION, right, 1, comm, &
                          MPI_STATUS_IGNORE)
    end subroutine exchange_ghosts

    subroutine step_once()
        integer :: i, j
        call exchange_ghosts()
        do j = 1, ny_local
            do i = 1, nx
                u_new(i, j) = 2*u(i, j) - u_old(i, j) + &
                              r2*(u(i + 1, j) + u(i - 1, j) + u(i, j + 1) + u(i, j - 1) - 4*u(i, j))
            end do
        end do
        u_old(1:nx, 1:ny_local) = u(1:nx, 1:ny_local)
        u(1:nx, 1:ny_local) = u_new(1:nx, 1:ny_local)
    end subroutine step_once

    ! The slab as the rank holds it, ghost columns and rim included.
    subroutine write_reference(prefix, step)
        character(len=*), intent(in) :: prefix
        integer, intent(in) :: step
        character(len=4096) :: path
        integer :: out, i, j, status
        write (path, '(a,".rank",i0)') prefix, rank
        open (newunit=out, file=trim(path), status='replace', action='write', iostat=status)
        if (status /= 0) then
            write (0, '(a)') 'cannot write '//trim(path)
            return
        end if
        write (out, '("step=",i0)') step
        write (out, '("rank=",i0)') rank
        write (out, '("size=",i0)') nranks
        write (out, '("first_column=",i0)') first_column
        write (out, '("bounds=",i0,":",i0,",",i0,":",i0)') lbound(u, 1), ubound(u, 1), &
            lbound(u, 2), ubound(u, 2)
        write (out, '(a)') 'values='
        do j = lbound(u, 2), ubound(u, 2)
            do i = lbound(u, 1), ubound(u, 1)
                write (out, '(es25.16e3)') u(i, j)
            end do
        end do
        close (out)
    end subroutine write_reference

end module wave_solver

program mpi_wave
    use mpi_f08
    use wave_state
    use wave_solver
    use arraylens_stop
    implicit none
    character(len=4096) :: prefix
    integer :: steps, report, step
    real(dp) :: local_energy, energy

    call MPI_Init()
    comm = MPI_COMM_WORLD
    call MPI_Comm_rank(comm, rank)
    call MPI_Comm_size(comm, nranks)

    prefix = 'mpi_wave'
    if (command_argument_count() >= 1) call get_command_argument(1, prefix)
    nx = int_argument(2, 48)
    ny = int_argument(3, 40)
    steps = int_argument(4, 20)
    report = max(int_argument(5, 10), 1)
    if (ny < nranks) then
        if (rank == 0) write (0, '(a,i0,a,i0,a)') 'mpi_wave: ', ny, ' columns cannot be shared by ', &
            nranks, ' ranks'
        call MPI_Abort(comm, 3)
    end if

    call decompose()
    call initial_shape()
    do step = 1, steps
        call step_once()
        if (mod(step, report) == 0) then
            local_energy = sum(u(1:nx, 1:ny_local)**2)
            call MPI_Allreduce(local_energy, energy, 1, MPI_DOUBLE_PRECISION, MPI_SUM, comm)
            call write_reference(trim(prefix), step)
            call arraylens_break(step) ! arraylens-break: report
            if (rank == 0) write (*, '("step ",i0,": sum of squares ",es14.6)') step, energy
        end if
    end do

    deallocate (u, u_old, u_new)
    call MPI_Finalize()

contains

    ! The n-th command argument as an integer; `default` when there is none.
    integer function int_argument(n, default)
        integer, intent(in) :: n, default
        character(len=32) :: arg
        int_argument = default
        if (command_argument_count() < n) return
        call get_command_argument(n, arg)
        read (arg, *) int_argument
    end function int_argument

end program mpi_wave
