! Reference values written by the Fortran example itself, in the same
! key=value form as the C examples (see README.md), so the integration tests
! never take their expectations from Array Lens.
!
! Statistics are taken as described in README.md: counts over all elements,
! value statistics over the finite ones, sums and quantiles in x87 extended
! precision, integers summed exactly.
module reference_values
    use, intrinsic :: iso_fortran_env, only: output_unit, int16, int32, int64, &
                                             real32, real64
    use, intrinsic :: ieee_arithmetic
    implicit none
    private

    integer, parameter :: xp = selected_real_kind(18)
    integer, parameter :: ik = selected_int_kind(30)
    integer :: unit = output_unit

    public :: ref_open, ref_close, ref_line, ref_bounds, ref_strides
    public :: ref_real8, ref_real4, ref_int2, ref_int4, ref_int8, ref_logical, ref_chars
    public :: ref_elem_r8, ref_elem_r4, ref_elem_i, ref_elem_l, ref_elem_c, ref_values_r8

contains

    ! The file named by $ARRAYLENS_REFERENCE, else the first argument, else
    ! standard output.
    subroutine ref_open(program, language)
        character(len=*), intent(in) :: program, language
        character(len=4096) :: path
        integer :: length, status
        call get_environment_variable('ARRAYLENS_REFERENCE', path, length, status)
        if (status /= 0 .or. length == 0) then
            path = ''
            if (command_argument_count() >= 1) call get_command_argument(1, path, length, status)
        end if
        if (len_trim(path) > 0) then
            open (newunit=unit, file=trim(path), status='replace', action='write', iostat=status)
            if (status /= 0) then
                write (0, '(a)') 'cannot write '//trim(path)
                stop 2
            end if
        end if
        call ref_line('# Array Lens reference values')
        call ref_line('program='//program)
        call ref_line('language='//language)
    end subroutine

    subroutine ref_close()
        call ref_line('end')
        if (unit /= output_unit) close (unit)
    end subroutine

    subroutine ref_line(text)
        character(len=*), intent(in) :: text
        write (unit, '(a)') text
        flush (unit)
    end subroutine

    ! "lo:hi,lo:hi" from lbound() and ubound().
    function ref_bounds(lo, hi) result(text)
        integer, intent(in) :: lo(:), hi(:)
        character(len=:), allocatable :: text
        integer :: d
        text = ''
        do d = 1, size(lo)
            if (d > 1) text = text//','
            text = text//itoa(int(lo(d), int64))//':'//itoa(int(hi(d), int64))
        end do
    end function

    ! Byte distance between neighbours along each dimension, as measured by
    ! the program from element addresses.
    subroutine ref_strides(name, strides)
        character(len=*), intent(in) :: name
        integer(int64), intent(in) :: strides(:)
        character(len=:), allocatable :: text
        integer :: d
        text = ''
        do d = 1, size(strides)
            if (d > 1) text = text//','
            text = text//itoa(strides(d))
        end do
        call ref_line(name//'.byte_strides='//text)
    end subroutine

    function itoa(v) result(text)
        integer(int64), intent(in) :: v
        character(len=:), allocatable :: text
        character(len=24) :: buffer
        write (buffer, '(i0)') v
        text = trim(buffer)
    end function

    function itoa16(v) result(text)
        integer(ik), intent(in) :: v
        character(len=:), allocatable :: text
        character(len=48) :: buffer
        write (buffer, '(i0)') v
        text = trim(buffer)
    end function

    ! A real(8) with 17 significant digits; nan, inf, -inf as such.
    function rtoa(v) result(text)
        real(real64), intent(in) :: v
        character(len=:), allocatable :: text
        character(len=32) :: buffer
        if (ieee_is_nan(v)) then
            text = 'nan'
        else if (.not. ieee_is_finite(v)) then
            if (v < 0) then
                text = '-inf'
            else
                text = 'inf'
            end if
        else
            write (buffer, '(es25.16e3)') v
            text = trim(adjustl(buffer))
        end if
    end function

    function r4toa(v) result(text)
        real(real32), intent(in) :: v
        character(len=:), allocatable :: text
        character(len=32) :: buffer
        if (ieee_is_nan(v)) then
            text = 'nan'
        else if (.not. ieee_is_finite(v)) then
            if (v < 0) then
                text = '-inf'
            else
                text = 'inf'
            end if
        else
            write (buffer, '(es16.8e2)') v
            text = trim(adjustl(buffer))
        end if
    end function

    ! Heap sort: no recursion, no extra memory.
    subroutine sort(a)
        real(xp), intent(inout) :: a(:)
        integer :: n, i, last
        real(xp) :: t
        n = size(a)
        do i = n/2, 1, -1
            call sift(a, i, n)
        end do
        do last = n, 2, -1
            t = a(1)
            a(1) = a(last)
            a(last) = t
            call sift(a, 1, last - 1)
        end do
    end subroutine

    subroutine sift(a, start, n)
        real(xp), intent(inout) :: a(:)
        integer, intent(in) :: start, n
        integer :: root, child
        real(xp) :: t
        root = start
        do while (2*root <= n)
            child = 2*root
            if (child < n) then
                if (a(child) < a(child + 1)) child = child + 1
            end if
            if (a(root) >= a(child)) return
            t = a(root)
            a(root) = a(child)
            a(child) = t
            root = child
        end do
    end subroutine

    function quantile(sorted, p) result(q)
        real(xp), intent(in) :: sorted(:)
        real(xp), intent(in) :: p
        real(xp) :: q, h
        integer :: lo, n
        n = size(sorted)
        h = (n - 1)*p
        lo = int(h)              ! 0-based rank
        if (lo + 1 >= n) then
            q = sorted(n)
        else
            q = sorted(lo + 1) + (h - lo)*(sorted(lo + 2) - sorted(lo + 1))
        end if
    end function

    ! The common part. `values` holds the finite elements, widened exactly.
    subroutine write_stats(name, expr, typename, element_size, bounds, count, values, zeros, nans, &
                           infs, denormals, is_float, min_text, max_text, lower_text, upper_text)
        character(len=*), intent(in) :: name, expr, typename, bounds
        integer, intent(in) :: element_size
        integer(int64), intent(in) :: count, zeros, nans, infs, denormals
        real(xp), intent(inout) :: values(:)
        logical, intent(in) :: is_float
        interface
            function min_text(v) result(text)
                import :: xp
                real(xp), intent(in) :: v
                character(len=:), allocatable :: text
            end function
        end interface
        procedure(min_text) :: max_text, lower_text, upper_text
        real(xp) :: total, comp, t, mean, squares, q1, q3, iqr
        integer(ik) :: exact
        integer :: i, n

        call ref_line('array='//name)
        call ref_line(name//'.expr='//expr)
        call ref_line(name//'.type='//typename)
        call ref_line(name//'.element_size='//itoa(int(element_size, int64)))
        call ref_line(name//'.bounds='//bounds)
        call ref_line(name//'.count='//itoa(count))
        call ref_line(name//'.finite='//itoa(int(size(values), int64)))
        call ref_line(name//'.zeros='//itoa(zeros))
        call ref_line(name//'.nans='//itoa(nans))
        call ref_line(name//'.infs='//itoa(infs))
        call ref_line(name//'.denormals='//itoa(denormals))
        n = size(values)
        if (n == 0) return

        if (is_float) then
            ! Neumaier's compensated sum.
            total = 0
            comp = 0
            do i = 1, n
                t = total + values(i)
                if (abs(total) >= abs(values(i))) then
                    comp = comp + ((total - t) + values(i))
                else
                    comp = comp + ((values(i) - t) + total)
                end if
                total = t
            end do
            total = total + comp
            call ref_line(name//'.sum='//rtoa(real(total, real64)))
        else
            exact = 0
            do i = 1, n
                exact = exact + int(values(i), ik)
            end do
            total = real(exact, xp)
            call ref_line(name//'.sum='//itoa16(exact))
        end if
        mean = total/n
        squares = 0
        do i = 1, n
            squares = squares + (values(i) - mean)**2
        end do
        call sort(values)
        q1 = quantile(values, 0.25_xp)
        q3 = quantile(values, 0.75_xp)
        iqr = q3 - q1
        call ref_line(name//'.min='//min_text(values(1)))
        call ref_line(name//'.max='//max_text(values(n)))
        call ref_line(name//'.mean='//rtoa(real(mean, real64)))
        call ref_line(name//'.stddev='//rtoa(real(sqrt(squares/n), real64)))
        call ref_line(name//'.q1='//rtoa(real(q1, real64)))
        call ref_line(name//'.median='//rtoa(real(quantile(values, 0.5_xp), real64)))
        call ref_line(name//'.q3='//rtoa(real(q3, real64)))
        do i = 1, n
            if (values(i) >= q1 - 1.5_xp*iqr) exit
        end do
        call ref_line(name//'.lower_adjacent='//lower_text(values(min(i, n))))
        do i = n, 1, -1
            if (values(i) <= q3 + 1.5_xp*iqr) exit
        end do
        call ref_line(name//'.upper_adjacent='//upper_text(values(max(i, 1))))
    end subroutine

    function xp_as_r8(v) result(text)
        real(xp), intent(in) :: v
        character(len=:), allocatable :: text
        text = rtoa(real(v, real64))
    end function

    function xp_as_int(v) result(text)
        real(xp), intent(in) :: v
        character(len=:), allocatable :: text
        text = itoa16(int(v, ik))
    end function

    subroutine ref_real8(name, expr, x, bounds)
        character(len=*), intent(in) :: name, expr, bounds
        real(real64), intent(in) :: x(:)
        real(xp), allocatable :: values(:)
        integer(int64) :: zeros, nans, infs, denormals
        integer :: i, n
        type(ieee_class_type) :: c
        allocate (values(size(x)))
        n = 0
        zeros = 0; nans = 0; infs = 0; denormals = 0
        do i = 1, size(x)
            c = ieee_class(x(i))
            if (ieee_is_nan(x(i))) then
                nans = nans + 1
            else if (.not. ieee_is_finite(x(i))) then
                infs = infs + 1
            else
                if (c == ieee_positive_zero .or. c == ieee_negative_zero) zeros = zeros + 1
                if (c == ieee_positive_denormal .or. c == ieee_negative_denormal) &
                    denormals = denormals + 1
                n = n + 1
                values(n) = real(x(i), xp)
            end if
        end do
        call write_stats(name, expr, 'real(kind=8)', 8, bounds, int(size(x), int64), values(1:n), &
                         zeros, nans, infs, denormals, .true., xp_as_r8, xp_as_r8, xp_as_r8, xp_as_r8)
    end subroutine

    subroutine ref_real4(name, expr, x, bounds)
        character(len=*), intent(in) :: name, expr, bounds
        real(real32), intent(in) :: x(:)
        real(xp), allocatable :: values(:)
        integer(int64) :: zeros, nans, infs, denormals
        integer :: i, n
        type(ieee_class_type) :: c
        allocate (values(size(x)))
        n = 0
        zeros = 0; nans = 0; infs = 0; denormals = 0
        do i = 1, size(x)
            c = ieee_class(x(i))
            if (ieee_is_nan(x(i))) then
                nans = nans + 1
            else if (.not. ieee_is_finite(x(i))) then
                infs = infs + 1
            else
                if (c == ieee_positive_zero .or. c == ieee_negative_zero) zeros = zeros + 1
                if (c == ieee_positive_denormal .or. c == ieee_negative_denormal) &
                    denormals = denormals + 1
                n = n + 1
                values(n) = real(x(i), xp)
            end if
        end do
        call write_stats(name, expr, 'real(kind=4)', 4, bounds, int(size(x), int64), values(1:n), &
                         zeros, nans, infs, denormals, .true., xp_as_r8, xp_as_r8, xp_as_r8, xp_as_r8)
    end subroutine

    subroutine int_stats(name, expr, typename, element_size, bounds, x)
        character(len=*), intent(in) :: name, expr, typename, bounds
        integer, intent(in) :: element_size
        integer(int64), intent(in) :: x(:)
        real(xp), allocatable :: values(:)
        integer(int64) :: zero
        zero = 0
        allocate (values(size(x)))
        values = real(x, xp)
        call write_stats(name, expr, typename, element_size, bounds, int(size(x), int64), values, &
                         int(count(x == 0), int64), zero, zero, zero, .false., xp_as_int, &
                         xp_as_int, xp_as_int, xp_as_int)
    end subroutine

    subroutine ref_int2(name, expr, x, bounds)
        character(len=*), intent(in) :: name, expr, bounds
        integer(int16), intent(in) :: x(:)
        call int_stats(name, expr, 'integer(kind=2)', 2, bounds, int(x, int64))
    end subroutine

    subroutine ref_int4(name, expr, x, bounds)
        character(len=*), intent(in) :: name, expr, bounds
        integer(int32), intent(in) :: x(:)
        call int_stats(name, expr, 'integer(kind=4)', 4, bounds, int(x, int64))
    end subroutine

    subroutine ref_int8(name, expr, x, bounds)
        character(len=*), intent(in) :: name, expr, bounds
        integer(int64), intent(in) :: x(:)
        call int_stats(name, expr, 'integer(kind=8)', 8, bounds, x)
    end subroutine

    ! Logicals count as 0 and 1.
    subroutine ref_logical(name, expr, x, bounds)
        character(len=*), intent(in) :: name, expr, bounds
        logical, intent(in) :: x(:)
        call int_stats(name, expr, 'logical(kind=4)', 4, bounds, merge(1_int64, 0_int64, x))
    end subroutine

    ! character(len=1) elements count as their codes.
    subroutine ref_chars(name, expr, x, bounds)
        character(len=1), intent(in) :: x(:)
        character(len=*), intent(in) :: name, expr, bounds
        integer :: i
        integer(int64), allocatable :: codes(:)
        allocate (codes(size(x)))
        do i = 1, size(x)
            codes(i) = ichar(x(i))
        end do
        call int_stats(name, expr, 'character(kind=1)', 1, bounds, codes)
    end subroutine

    ! One chosen element: `index` in Fortran syntax, "(0,-2)".
    subroutine ref_elem_r8(name, index, v)
        character(len=*), intent(in) :: name, index
        real(real64), intent(in) :: v
        call ref_line(name//'.elem'//index//'='//rtoa(v))
    end subroutine

    ! Every element in memory order, 17 significant digits each, so that a
    ! test can rebuild the array's exact bytes (for casts that reinterpret
    ! them).
    subroutine ref_values_r8(name, x)
        character(len=*), intent(in) :: name
        real(real64), intent(in) :: x(:)
        character(len=:), allocatable :: text
        integer :: i
        text = ''
        do i = 1, size(x)
            if (i > 1) text = text//','
            text = text//rtoa(x(i))
        end do
        call ref_line(name//'.values='//text)
    end subroutine

    subroutine ref_elem_r4(name, index, v)
        character(len=*), intent(in) :: name, index
        real(real32), intent(in) :: v
        call ref_line(name//'.elem'//index//'='//r4toa(v))
    end subroutine

    subroutine ref_elem_i(name, index, v)
        character(len=*), intent(in) :: name, index
        integer(int64), intent(in) :: v
        call ref_line(name//'.elem'//index//'='//itoa(v))
    end subroutine

    subroutine ref_elem_l(name, index, v)
        character(len=*), intent(in) :: name, index
        logical, intent(in) :: v
        call ref_line(name//'.elem'//index//'='//merge('1', '0', v))
    end subroutine

    subroutine ref_elem_c(name, index, v)
        character(len=*), intent(in) :: name, index
        character(len=1), intent(in) :: v
        call ref_line(name//'.elem'//index//'='//itoa(int(ichar(v), int64)))
    end subroutine

end module reference_values
