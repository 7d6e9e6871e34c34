! Fortran arrays: declared lower bounds, an allocatable before and after
! allocate, a strided section received by an assumed-shape dummy, and
! elements of integer(2/4/8), logical, character, real(4) and real(8).
! The program writes its reference values, then stops three times, each at
! a call of arraylens_break() on a line marked "arraylens-break: NAME":
!   1. unallocated - in the main program, `a` not yet allocated;
!   2. section     - in strided(), whose y(:,:) is field(1:10:2,:);
!   3. main        - in the main program, `a` allocated as a(3,4).

module sections
    use, intrinsic :: iso_fortran_env, only: int64, real64
    use reference_values
    use arraylens_stop
    implicit none
contains
    ! y arrives as a descriptor of the caller's strided section: 5 x 8 here,
    ! but neighbouring rows lie two elements (16 bytes) apart in memory.
    subroutine strided(y)
        real(real64), intent(in) :: y(:, :)
        integer(int64) :: strides(2)
        strides(1) = loc(y(2, 1)) - loc(y(1, 1))
        strides(2) = loc(y(1, 2)) - loc(y(1, 1))
        call ref_line('stop=section')
        call ref_real8('y', 'y', reshape(y, [size(y)]), ref_bounds(lbound(y), ubound(y)))
        call ref_strides('y', strides)
        call ref_elem_r8('y', '(1,1)', y(1, 1))
        call ref_elem_r8('y', '(2,1)', y(2, 1))
        call ref_elem_r8('y', '(3,4)', y(3, 4))
        call ref_elem_r8('y', '(5,8)', y(5, 8))
        ! A slice and a filter of the section, worked out here so that tests
        ! of slicing and filtering compare with numbers of the program's own.
        call ref_line('y_slice.slice=(2:4,1:8:3)')
        call ref_real8('y_slice', 'y', reshape(y(2:4, 1:8:3), [9]), '2:4,1:8:3')
        call ref_line('y_filter.filter=$value > 450')
        call ref_real8('y_filter', 'y', pack(y, y > 450d0), '1:5,1:8')
        call arraylens_break(2) ! arraylens-break: section
    end subroutine
end module sections

program arrays
    use, intrinsic :: iso_fortran_env, only: int16, int32, int64, real32, real64
    use, intrinsic :: ieee_arithmetic
    use reference_values
    use sections
    use arraylens_stop
    implicit none

    real(real64) :: x(0:9, -2:5)
    real(real64), allocatable :: a(:, :)
    real(real64) :: field(10, 8)
    real(real32) :: r4(5, 4, 3)
    integer(int16) :: i2(12)
    integer(int32) :: i4(3, 4)
    integer(int64) :: i8(6)
    logical :: mask(10)
    character(len=1) :: letters(26)
    character(len=8) :: words(3)
    real(real64) :: specials(12)
    real(real32) :: specials4(8)
    real(real64) :: big(400, 500)
    integer :: i, j, k
    integer(int64) :: strides(2)

    call ref_open('arrays_f90', 'fortran')

    do j = -2, 5
        do i = 0, 9
            x(i, j) = 1.5d0*i + 0.25d0*j
        end do
    end do
    do j = 1, 8
        do i = 1, 10
            field(i, j) = i + 100*j
        end do
    end do
    do k = 1, 3
        do j = 1, 4
            do i = 1, 5
                r4(i, j, k) = 0.5*i + 10*j + 100*k
            end do
        end do
    end do
    do i = 1, 12
        i2(i) = int((i - 6)*5000, int16)
    end do
    do j = 1, 4
        do i = 1, 3
            i4(i, j) = i*j - 5
        end do
    end do
    do i = 1, 6
        i8(i) = (-1_int64)**i*int(i, int64)*1000000000000000_int64
    end do
    do i = 1, 10
        mask(i) = mod(i, 3) == 0
    end do
    do i = 1, 26
        letters(i) = achar(64 + i)
    end do
    words = [character(len=8) :: 'alpha', 'beta', 'gamma']
    specials = [0d0, -0d0, ieee_value(1d0, ieee_quiet_nan), ieee_value(1d0, ieee_signaling_nan), &
                ieee_value(1d0, ieee_positive_inf), ieee_value(1d0, ieee_negative_inf), &
                tiny(1d0)/4, -tiny(1d0)/2**20, tiny(1d0), 1d0, -2.5d0, 1d10]
    specials4 = [0.0, -0.0, ieee_value(1.0, ieee_quiet_nan), ieee_value(1.0, ieee_positive_inf), &
                 tiny(1.0)/8, tiny(1.0), 3.5, -7.25]
    do j = 1, 500
        do i = 1, 400
            big(i, j) = sin(i*0.01d0)*cos(j*0.02d0)
        end do
    end do

    call ref_line('stop=unallocated')
    call ref_real8('x', 'x', reshape(x, [size(x)]), ref_bounds(lbound(x), ubound(x)))
    strides(1) = loc(x(1, -2)) - loc(x(0, -2))
    strides(2) = loc(x(0, -1)) - loc(x(0, -2))
    call ref_strides('x', strides)
    call ref_elem_r8('x', '(0,-2)', x(0, -2))
    call ref_elem_r8('x', '(1,-2)', x(1, -2))
    call ref_elem_r8('x', '(0,-1)', x(0, -1))
    call ref_elem_r8('x', '(9,5)', x(9, 5))
    call ref_elem_r8('x', '(4,0)', x(4, 0))
    call ref_values_r8('x', reshape(x, [size(x)]))
    call ref_real8('field', 'field', reshape(field, [size(field)]), '1:10,1:8')
    call ref_elem_r8('field', '(3,2)', field(3, 2))
    call ref_real4('r4', 'r4', reshape(r4, [size(r4)]), '1:5,1:4,1:3')
    call ref_elem_r4('r4', '(1,1,1)', r4(1, 1, 1))
    call ref_elem_r4('r4', '(2,3,2)', r4(2, 3, 2))
    call ref_elem_r4('r4', '(5,4,3)', r4(5, 4, 3))
    call ref_int2('i2', 'i2', i2, '1:12')
    call ref_elem_i('i2', '(1)', int(i2(1), int64))
    call ref_elem_i('i2', '(12)', int(i2(12), int64))
    call ref_int4('i4', 'i4', reshape(i4, [size(i4)]), '1:3,1:4')
    call ref_elem_i('i4', '(2,3)', int(i4(2, 3), int64))
    call ref_int8('i8', 'i8', i8, '1:6')
    call ref_elem_i('i8', '(5)', i8(5))
    call ref_elem_i('i8', '(6)', i8(6))
    call ref_logical('mask', 'mask', mask, '1:10')
    call ref_elem_l('mask', '(3)', mask(3))
    call ref_elem_l('mask', '(4)', mask(4))
    call ref_chars('letters', 'letters', letters, '1:26')
    call ref_elem_c('letters', '(1)', letters(1))
    call ref_elem_c('letters', '(26)', letters(26))
    call ref_real8('specials', 'specials', specials, '1:12')
    call ref_elem_r8('specials', '(2)', specials(2))
    call ref_elem_r8('specials', '(7)', specials(7))
    call ref_elem_r8('specials', '(8)', specials(8))
    call ref_real4('specials4', 'specials4', specials4, '1:8')
    call ref_elem_r4('specials4', '(5)', specials4(5))
    call ref_real8('big', 'big', reshape(big, [size(big)]), '1:400,1:500')
    call ref_elem_r8('big', '(1,1)', big(1, 1))
    call ref_elem_r8('big', '(200,250)', big(200, 250))
    call ref_elem_r8('big', '(400,500)', big(400, 500))
    call ref_line('a.allocated=0')
    print '(a,i0,a)', 'words: ', size(words), ' ('//trim(words(1))//', ...)'

    call arraylens_break(1) ! arraylens-break: unallocated

    call strided(field(1:10:2, :))

    allocate (a(3, 4))
    do j = 1, 4
        do i = 1, 3
            a(i, j) = 10*i + j
        end do
    end do
    call ref_line('stop=main')
    call ref_line('a.allocated=1')
    call ref_real8('a', 'a', reshape(a, [size(a)]), ref_bounds(lbound(a), ubound(a)))
    call ref_elem_r8('a', '(1,1)', a(1, 1))
    call ref_elem_r8('a', '(3,4)', a(3, 4))
    call ref_values_r8('a', reshape(a, [size(a)]))
    call ref_close()

    call arraylens_break(3) ! arraylens-break: main

    deallocate (a)
end program arrays
