# Containers as arrays: where a container keeps its elements, its extents
# and its strides, one small recipe per family, read from the object itself
# inside gdb.
#
# A recipe is data: the family's name, a pattern of the type names it
# matches, and small accessors over the gdb.Value of the container (typedefs
# and references stripped). The describer calls container_layout() for
# every struct or class value; None means "no recipe knows this type".
#
# Adding a family is one Recipe(...) in RECIPES plus a test.

import re

import gdb


class Refused(Exception):
    """Words for the user: why this value cannot be shown, and what to show
    instead. The text may name the typed expression as {expr}; the describer
    puts the expression's own text there."""


class Recipe:
    """One container family.

    name      the family as the user knows it ("std::vector")
    pattern   regular expression matched against the type's name with
              typedefs stripped ("std::vector<double, std::allocator<...> >")
    data      value -> gdb.Value pointer to the element at the lowest index of
              every dimension (its address may be 0 when there is none)
    extents   value -> [int, ...] elements per dimension, logical index order
    element   (value, type) -> gdb.Type of one element
    bases     value -> [int, ...] lowest index per dimension (default 0)
    strides   value -> [int, ...] distance in ELEMENTS between neighbours per
              dimension, logical order (default: from `order`)
    order     "C" (last dimension fastest) or "F" (first fastest), used when
              `strides` is not given
    check     value -> None, or raises Refused (a layout this recipe does not
              show, for example packed bits)
    holder    value -> (name, ...) the members, from the container on, that
              lead to the pointer or C array holding the elements, so that a
              refusal can name one element as the user types it in gdb; None
              where gdb indexes the container itself (libstdc++'s xmethods:
              `v[0]`)
    """

    def __init__(self, name, pattern, data, extents, element, bases=None, strides=None,
                 order="C", check=None, holder=None):
        self.name = name
        self.pattern = re.compile(pattern)
        self.data = data
        self.extents = extents
        self.element = element
        self.bases = bases
        self.strides = strides
        self.order = order
        self.check = check
        self.holder = holder

    def matches(self, type_name):
        return bool(self.pattern.search(type_name))


def template_argument(type_, index):
    """The index-th template argument of a class type, or None when gdb
    cannot tell it (no debug information for the instantiation)."""
    try:
        return type_.template_argument(index)
    except (RuntimeError, gdb.error):
        return None


def element_of_pointer(value, member_path):
    """The type a data pointer points to."""
    pointer = value
    for name in member_path:
        pointer = pointer[name]
    return pointer.type.strip_typedefs().target()


def _vector_bool(value):
    raise Refused("{expr} is a std::vector<bool>, which packs its elements as bits: "
                  "show one element, for example {expr}[0].")


def _vector_element(value, type_):
    return template_argument(type_, 0) or element_of_pointer(value, ("_M_impl", "_M_start"))


def _ints(array, count):
    """The first `count` integers of a C array member (a few words of the
    container object, never its elements)."""
    return [int(array[i]) for i in range(count)]


def _rank(value, index):
    """A template argument that is a number (a rank, a fixed extent)."""
    return int(template_argument(value.type.strip_typedefs(), index))


def _first_argument(value, type_):
    return template_argument(type_, 0)


def _strides_of(extents, order):
    """Element strides of a dense block: "C" last dimension fastest, "F"
    first fastest."""
    strides = [0] * len(extents)
    step = 1
    for d in (reversed(range(len(extents))) if order == "C" else range(len(extents))):
        strides[d] = step
        step *= max(1, extents[d])
    return strides


# --- libstdc++: std::array, std::valarray, std::span --------------------------

def _array_data(value):
    element = template_argument(value.type.strip_typedefs(), 0)
    return value.address.cast(element.pointer())


# std::span<T, N> keeps N in its type; std::dynamic_extent (size_t(-1)) means
# the extent is a member.
_DYNAMIC_EXTENT = (1 << 64) - 1


def _span_extents(value):
    extent = _rank(value, 1)
    if extent == _DYNAMIC_EXTENT:
        extent = int(value["_M_extent"]["_M_extent_value"])
    return [extent]


# --- Eigen ---------------------------------------------------------------------
# Matrix<Scalar, Rows, Cols, Options, ...> and Array<...>: Rows and Cols are
# -1 (Dynamic) or fixed; bit 0 of Options is RowMajor. Fixed sizes keep the
# elements inline (m_storage.m_data.array), dynamic ones behind
# m_storage.m_data with the dynamic extents in m_rows and m_cols. A type with
# one fixed row or column is a vector: one dimension.

_EIGEN_DYNAMIC = -1
_EIGEN_ROW_MAJOR = 1


def _eigen_shape(type_):
    """(rows, cols, row-major, is a vector) of a Matrix or Array type;
    rows and cols -1 when dynamic."""
    type_ = type_.strip_typedefs().unqualified()
    rows = int(type_.template_argument(1))
    cols = int(type_.template_argument(2))
    row_major = bool(int(type_.template_argument(3)) & _EIGEN_ROW_MAJOR)
    return rows, cols, row_major, rows == 1 or cols == 1


def _eigen_data(value):
    data = value["m_storage"]["m_data"]
    if data.type.strip_typedefs().code == gdb.TYPE_CODE_PTR:
        return data
    element = template_argument(value.type.strip_typedefs(), 0)
    return data["array"].address.cast(element.pointer())


def _eigen_holder(value):
    if value["m_storage"]["m_data"].type.strip_typedefs().code == gdb.TYPE_CODE_PTR:
        return ("m_storage", "m_data")
    return ("m_storage", "m_data", "array")


def _eigen_extents(value):
    rows, cols, _, vector = _eigen_shape(value.type)
    storage = value["m_storage"]
    if rows == _EIGEN_DYNAMIC:
        rows = int(storage["m_rows"])
    if cols == _EIGEN_DYNAMIC:
        cols = int(storage["m_cols"])
    return [rows * cols] if vector else [rows, cols]


def _eigen_strides(value):
    _, _, row_major, vector = _eigen_shape(value.type)
    return [1] if vector else _strides_of(_eigen_extents(value), "C" if row_major else "F")


def _eigen_variable(member):
    """variable_if_dynamic<T, V>: the member's m_value when V is Dynamic,
    else V itself."""
    fixed = int(member.type.strip_typedefs().template_argument(1))
    return int(member["m_value"]) if fixed == _EIGEN_DYNAMIC else fixed


def _eigen_map_layout(value):
    """(extents, element strides) of a Map<PlainObject, Options, Stride>. A
    stride of 0 in the Stride type means the plain object's own."""
    _, _, row_major, vector = _eigen_shape(value.type.strip_typedefs().template_argument(0))
    rows, cols = _eigen_variable(value["m_rows"]), _eigen_variable(value["m_cols"])
    inner = _eigen_variable(value["m_stride"]["m_inner"]) or 1
    outer = _eigen_variable(value["m_stride"]["m_outer"])
    if vector:
        return [rows * cols], [inner]
    if not outer:
        outer = cols if row_major else rows
    return [rows, cols], [outer, inner] if row_major else [inner, outer]


# --- Armadillo: column-major, n_rows x n_cols (x n_slices) at mem -------------

def _arma_extents(value):
    name = type_name(value.type)
    if re.match(r"^arma::(Col|Row)<", name):
        return [int(value["n_elem"])]
    return [int(value["n_rows"]), int(value["n_cols"])]


# --- Boost.MultiArray ------------------------------------------------------------
# base_ is the allocation, base_ + origin_offset_ the element of index 0 in
# every dimension (it may lie outside the allocation); stride_list_ is in
# elements and negative for a descending dimension; index_base_list_ holds
# each dimension's lowest index.

def _boost_list(value, member):
    return _ints(value[member]["elems"], _rank(value, 1))


def _boost_data(value):
    origin = value["base_"] + int(value["origin_offset_"])
    bases = _boost_list(value, "index_base_list_")
    strides = _boost_list(value, "stride_list_")
    return origin + sum(b * s for b, s in zip(bases, strides))


# --- xtensor: m_storage holds the elements, m_shape and m_strides (in
# elements, 0 along a dimension of extent 1) are std::array for xtensor and a
# small vector [m_begin, m_end) for xarray.

def _xt_list(member):
    if "_M_elems" in [f.name for f in member.type.strip_typedefs().fields()]:
        elems = member["_M_elems"]
        return _ints(elems, elems.type.strip_typedefs().range()[1] + 1)
    return _ints(member["m_begin"], int(member["m_end"] - member["m_begin"]))


# --- Blitz++ ---------------------------------------------------------------------
# data_ points at the element of index 0 in every dimension (not at the first
# element when a base is not 0); length_, stride_ (in elements) and
# storage_.base_ are TinyVectors.

def _blitz_list(value, *members):
    for member in members:
        value = value[member]
    return _ints(value["data_"], int(value.type.strip_typedefs().template_argument(1)))


def _blitz_data(value):
    bases = _blitz_list(value, "storage_", "base_")
    strides = _blitz_list(value, "stride_")
    return value["data_"] + sum(b * s for b, s in zip(bases, strides))


RECIPES = [
    # libstdc++'s std::vector<bool> keeps bits, not bool elements.
    Recipe(name="std::vector<bool>",
           pattern=r"^std::(__\d+::)?vector<bool,",
           data=lambda v: None,
           extents=lambda v: [],
           element=lambda v, t: None,
           check=_vector_bool),
    # libstdc++: [_M_start, _M_finish) in _M_impl.
    Recipe(name="std::vector",
           pattern=r"^std::(__\d+::)?vector<",
           data=lambda v: v["_M_impl"]["_M_start"],
           extents=lambda v: [int(v["_M_impl"]["_M_finish"] - v["_M_impl"]["_M_start"])],
           element=_vector_element),
    Recipe(name="std::array",
           pattern=r"^std::(__\d+::)?array<",
           data=_array_data,
           extents=lambda v: [_rank(v, 1)],
           element=_first_argument),
    Recipe(name="std::valarray",
           pattern=r"^std::(__\d+::)?valarray<",
           data=lambda v: v["_M_data"],
           extents=lambda v: [int(v["_M_size"])],
           element=_first_argument),
    Recipe(name="std::span",
           pattern=r"^std::(__\d+::)?span<",
           data=lambda v: v["_M_ptr"],
           extents=_span_extents,
           element=_first_argument),
    Recipe(name="Eigen::Matrix",
           pattern=r"^Eigen::(Matrix|Array)<",
           data=_eigen_data,
           extents=_eigen_extents,
           strides=_eigen_strides,
           element=_first_argument,
           holder=_eigen_holder),
    Recipe(name="Eigen::Map",
           pattern=r"^Eigen::Map<Eigen::(Matrix|Array)<",
           data=lambda v: v["m_data"],
           extents=lambda v: _eigen_map_layout(v)[0],
           strides=lambda v: _eigen_map_layout(v)[1],
           element=lambda v, t: template_argument(
               t.template_argument(0).strip_typedefs().unqualified(), 0),
           holder=lambda v: ("m_data",)),
    Recipe(name="arma::Mat",
           pattern=r"^arma::(Mat|Col|Row)<",
           data=lambda v: v["mem"],
           extents=_arma_extents,
           order="F",
           element=_first_argument,
           holder=lambda v: ("mem",)),
    Recipe(name="arma::Cube",
           pattern=r"^arma::Cube<",
           data=lambda v: v["mem"],
           extents=lambda v: [int(v["n_rows"]), int(v["n_cols"]), int(v["n_slices"])],
           order="F",
           element=_first_argument,
           holder=lambda v: ("mem",)),
    Recipe(name="boost::multi_array",
           pattern=r"^boost::(const_)?multi_array(_ref)?<|"
                   r"^boost::detail::multi_array::(const_)?multi_array_view<",
           data=_boost_data,
           extents=lambda v: _boost_list(v, "extent_list_"),
           bases=lambda v: _boost_list(v, "index_base_list_"),
           strides=lambda v: _boost_list(v, "stride_list_"),
           element=_first_argument,
           holder=lambda v: ("base_",)),
    Recipe(name="xtensor",
           pattern=r"^xt::(xarray|xtensor)_container<",
           data=lambda v: v["m_storage"]["p_begin"],
           extents=lambda v: _xt_list(v["m_shape"]),
           strides=lambda v: _xt_list(v["m_strides"]),
           element=lambda v, t: element_of_pointer(v, ("m_storage", "p_begin")),
           holder=lambda v: ("m_storage", "p_begin")),
    Recipe(name="blitz::Array",
           pattern=r"^blitz::Array<",
           data=_blitz_data,
           extents=lambda v: _blitz_list(v, "length_"),
           bases=lambda v: _blitz_list(v, "storage_", "base_"),
           strides=lambda v: _blitz_list(v, "stride_"),
           element=_first_argument,
           holder=lambda v: ("data_",)),
]


SCALAR_CODES = (gdb.TYPE_CODE_INT, gdb.TYPE_CODE_FLT, gdb.TYPE_CODE_BOOL, gdb.TYPE_CODE_CHAR)


def type_name(type_):
    return str(type_.strip_typedefs().unqualified())


def short_type_name(type_):
    """A type as the user writes it: std::vector<double> rather than with its
    default allocator, where gdb's own type printers know the short form."""
    try:
        import gdb.types
        shown = gdb.types.apply_type_recognizers(gdb.types.get_type_recognizers(), type_)
        if shown:
            return shown
    except Exception:  # noqa: BLE001 - only a nicer name is lost
        pass
    return str(type_)


def find_recipe(type_):
    name = type_name(type_)
    for recipe in RECIPES:
        if recipe.matches(name):
            return recipe
    return None


def first_element_text(recipe, value):
    """The element at the lowest index of every dimension as the user types
    it in gdb, with {expr} for the container: `{expr}[0]` where gdb indexes
    the container itself, otherwise through the member that holds the
    elements (`{expr}.mem[0]`), since gdb cannot call an Eigen or Armadillo
    operator()."""
    if recipe.holder is None:
        return "{expr}[0]"
    path = recipe.holder(value)
    held = value
    for name in path:
        held = held[name]
    try:
        base = held[0].address if held.type.strip_typedefs().code == gdb.TYPE_CODE_ARRAY \
            else held
        index = int(recipe.data(value) - base)
    except (RuntimeError, gdb.error):
        index = 0
    return "{expr}.%s[%d]" % (".".join(path), index)


def first_number_member(type_):
    """The name of the first member of a structure that is a number or a
    character, or None."""
    for field in type_.fields():
        if field.name and not field.is_base_class and \
                field.type.strip_typedefs().code in SCALAR_CODES:
            return field.name
    return None


def check_element(recipe, value, element):
    """Refuses elements that are not numbers or characters, in words that
    say what can be shown instead, written as the user types it for this
    family."""
    bare = element.strip_typedefs()
    while bare.code == gdb.TYPE_CODE_TYPEDEF:
        bare = bare.strip_typedefs()
    if bare.code in SCALAR_CODES:
        return
    family = recipe.name
    first = first_element_text(recipe, value)
    if bare.code in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION):
        inner = find_recipe(bare)
        if inner is not None:
            raise Refused(("{expr} is a %s of %s, a container of containers: show one of them, "
                           "for example %s.") % (family, short_type_name(element), first))
        member = first_number_member(bare)
        if member is not None:
            raise Refused(("{expr} is a %s of %s, which are structures, not numbers: print a "
                           "member of one of them, for example %s.%s.")
                          % (family, short_type_name(element), first, member))
        raise Refused(("{expr} is a %s of %s, which are structures, not numbers: print one of "
                       "them, for example %s.") % (family, short_type_name(element), first))
    if bare.code == gdb.TYPE_CODE_PTR:
        raise Refused(("{expr} is a %s of pointers (%s): show what one of them points to, "
                       "for example *%s@N.") % (family, short_type_name(element), first))
    raise Refused(("{expr} is a %s of %s, which is not a number or a character: "
                   "print one element, for example %s.") % (family, short_type_name(element), first))


def container_layout(value):
    """None when no recipe matches; otherwise a dict:
       {'family': 'std::vector',               # recipe name
        'address': int,                        # address of the element at the lowest index of every dimension
        'dims': [[lower, upper], ...],         # logical index order (m(i,j) is dims [rows, cols] whatever the storage order)
        'byte_strides': [int, ...],            # per dimension, may be negative
        'element_type': gdb.Type}              # one element's type
       raises Refused for a container of containers, of structs, or of an unsupported element type."""
    type_ = value.type.strip_typedefs()
    recipe = find_recipe(type_)
    if recipe is None:
        return None
    if recipe.check is not None:
        recipe.check(value)
    element = recipe.element(value, type_)
    if element is None:
        raise Refused("gdb does not know the element type of {expr} (%s)." % short_type_name(
            value.type))
    check_element(recipe, value, element)
    extents = [int(n) for n in recipe.extents(value)]
    bases = [int(b) for b in recipe.bases(value)] if recipe.bases else [0] * len(extents)
    if recipe.strides:
        strides = [int(s) for s in recipe.strides(value)]
    else:
        strides = _strides_of(extents, recipe.order)
    size = element.sizeof
    pointer = recipe.data(value)
    address = int(pointer) if pointer is not None else 0
    return {
        "family": recipe.name,
        "address": address,
        "dims": [[bases[d], bases[d] + extents[d] - 1] for d in range(len(extents))],
        "byte_strides": [s * size for s in strides],
        "element_type": element,
    }
