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
    """

    def __init__(self, name, pattern, data, extents, element, bases=None, strides=None,
                 order="C", check=None):
        self.name = name
        self.pattern = re.compile(pattern)
        self.data = data
        self.extents = extents
        self.element = element
        self.bases = bases
        self.strides = strides
        self.order = order
        self.check = check

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


def check_element(recipe, element):
    """Refuses elements that are not numbers or characters, in words that
    say what can be shown instead."""
    bare = element.strip_typedefs()
    while bare.code == gdb.TYPE_CODE_TYPEDEF:
        bare = bare.strip_typedefs()
    if bare.code in SCALAR_CODES:
        return
    family = recipe.name
    if bare.code in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION):
        inner = find_recipe(bare)
        if inner is not None:
            raise Refused(("{expr} is a %s of %s, a container of containers: show one of them, "
                           "for example {expr}[0].") % (family, short_type_name(element)))
        raise Refused(("{expr} is a %s of %s, which are structures, not "
                       "numbers: print one of them, for example {expr}[0].") % (family, short_type_name(element)))
    if bare.code == gdb.TYPE_CODE_PTR:
        raise Refused(("{expr} is a %s of pointers (%s): show what one of them points to, "
                       "for example *{expr}[0]@N.") % (family, short_type_name(element)))
    raise Refused(("{expr} is a %s of %s, which is not a number or a character: "
                   "print one element, for example {expr}[0].") % (family, short_type_name(element)))


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
    check_element(recipe, element)
    extents = [int(n) for n in recipe.extents(value)]
    bases = [int(b) for b in recipe.bases(value)] if recipe.bases else [0] * len(extents)
    if recipe.strides:
        strides = [int(s) for s in recipe.strides(value)]
    else:
        strides = [0] * len(extents)
        step = 1
        order = range(len(extents) - 1, -1, -1) if recipe.order == "C" else range(len(extents))
        for d in order:
            strides[d] = step
            step *= max(1, extents[d])
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
