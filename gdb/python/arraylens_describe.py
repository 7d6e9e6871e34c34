# The describer: what an expression the user typed is, as an array, worked
# out inside gdb from ONE evaluation of it in the selected frame.
#
# The service calls, in the frame it wants,
#   python arraylens_describe.describe('HEX', LAYOUT)
# where HEX is the expression's UTF-8 bytes in hexadecimal (so that no typed
# text ever reaches gdb's command line) and LAYOUT says whether the address
# and byte strides are wanted. The answer is one line on gdb's console:
#   arraylens-describe: {JSON}
# Every number that may not fit in a double (addresses, bounds, strides) is
# written as a decimal string.
#
# Nothing here reads an element of the array: element addresses come from
# lazy values, and an artificial array `L@N` is never made by gdb (gdb would
# read all N elements): L is evaluated once, N once, and the N elements are
# described at L's address.

import json
import re
import struct

import gdb

import arraylens_containers

MARKER = "arraylens-describe: "

# gdb's own words, for the cases this file decides itself.
NOT_IN_MEMORY_REPEAT = "Only values in memory can be extended with '@'."
NON_INTEGRAL_REPEAT = 'Non-integral right operand for "@" operator.'
INVALID_REPEAT = "Invalid number %d of repetitions."
NOT_A_STRUCTURE = "Attempt to extract a component of a value that is not a structure."
NO_SYMBOL = re.compile(r'^No symbol "([A-Za-z_][A-Za-z0-9_$]*)" in current context\.$')

OPENERS = {"(": ")", "[": "]", "{": "}"}
CLOSERS = {")", "]", "}"}


class Problem(Exception):
    """An answer in the user's words; `kind` tells the service which."""

    def __init__(self, message, kind="gdb"):
        super().__init__(message)
        self.kind = kind


def top_level(text, wanted):
    """Positions of the character `wanted` outside brackets and quotes."""
    out = []
    depth = 0
    quote = None
    i = 0
    while i < len(text):
        c = text[i]
        if quote:
            if c == "\\":
                i += 1
            elif c == quote:
                quote = None
        elif c in "\"'":
            quote = c
        elif c in OPENERS:
            depth += 1
        elif c in CLOSERS:
            depth -= 1
        elif c == wanted and depth == 0:
            out.append(i)
        i += 1
    return out


def is_fortran():
    return gdb.current_language().startswith("fortran")


def strip_references(value):
    while value.type.code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        value = value.referenced_value()
    return value


def at_address(address, type_):
    """A lazy value of `type_` at `address`: nothing is read until an element
    is."""
    return gdb.Value(address).cast(type_.pointer()).dereference()


# ------------------------------------------------------------- evaluation


class Evaluation:
    """The value of the typed text, and what it took to get it."""

    def __init__(self, value, type_text=None, element_type=None):
        self.value = value
        # Set when the value stands for something gdb has no value of (a
        # component across an array of structures): its own type text and
        # element type.
        self.type_text = type_text
        self.element_type = element_type
        self.offset = 0


_string_tables = {}


def _forget_string_tables(event=None):
    _string_tables.clear()


gdb.events.new_objfile.connect(_forget_string_tables)


def string_tables(path):
    """The symbol-name tables (.strtab, .dynstr) of an ELF file, read once.
    Only their bytes are kept: a module variable's linkage name,
    __module_MOD_name, is all that is looked for in them."""
    if path in _string_tables:
        return _string_tables[path]
    tables = []
    try:
        with open(path, "rb") as f:
            header = f.read(64)
            if header[:4] != b"\x7fELF" or header[4] != 2:  # 64-bit ELF only
                raise OSError("not a 64-bit ELF file")
            order = "<" if header[5] == 1 else ">"
            shoff, = struct.unpack_from(order + "Q", header, 0x28)
            shentsize, shnum, shstrndx = struct.unpack_from(order + "HHH", header, 0x3A)
            f.seek(shoff)
            raw = f.read(shentsize * shnum)
            sections = [struct.unpack_from(order + "IIQQQQ", raw, i * shentsize)
                        for i in range(shnum)]
            names_offset, names_size = sections[shstrndx][4], sections[shstrndx][5]
            f.seek(names_offset)
            names = f.read(names_size)
            for name, kind, _flags, _addr, offset, size in sections:
                label = names[name:names.index(b"\0", name)]
                if kind == 3 and label in (b".strtab", b".dynstr"):  # SHT_STRTAB
                    f.seek(offset)
                    tables.append(f.read(size))
    except (OSError, struct.error, ValueError, IndexError):
        tables = []
    _string_tables[path] = tables
    return tables


def module_of(name):
    """The module that holds the variable `name`, when exactly one does.
    gdb finds a module's variable by its plain name only in a routine that
    uses the module directly; one that reaches it through another module
    needs module::name. gdb's own lists of modules take a quarter of a
    second and more; the linkage names in the symbol tables of the program's
    files take a millisecond, and gdb confirms each candidate."""
    suffix = b"_MOD_" + name.lower().encode() + b"\0"
    holders = []
    for objfile in gdb.objfiles():
        if not objfile.filename:
            continue
        for table in string_tables(objfile.filename):
            at = table.find(suffix)
            while at >= 0:
                start = table.rfind(b"\0", 0, at) + 1
                if table.startswith(b"__", start) and at > start + 2:
                    module = table[start + 2:at].decode("utf-8", "replace")
                    qualified = module + "::" + name.lower()
                    if module not in holders and (gdb.lookup_global_symbol(qualified) or
                                                  gdb.lookup_static_symbol(qualified)):
                        holders.append(module)
                at = table.find(suffix, at + 1)
    if len(holders) > 1:
        raise Problem("%s is a variable of the modules %s: name the one you mean, for example "
                      "%s::%s." % (name, ", ".join(holders), holders[0], name))
    return holders[0] if holders else None


def qualify(text, name, module):
    """`text` with every plain use of the identifier `name` written
    module::name."""
    pattern = re.compile(r"(?<![\w%:$])" + re.escape(name) + r"(?![\w$])", re.I)
    return pattern.sub(module + "::" + name, text)


LEADING_NAME = re.compile(r"^\s*([A-Za-z_]\w*)(?!\w|\s*::)")


def qualify_leading_name(text):
    """In a Fortran frame, the name an expression starts with, written
    module::name when gdb knows no variable of that name here but a module
    has one. Without this a module variable may lose to a function of the
    same name in the C library (`step`, `time`), which gdb would take."""
    match = LEADING_NAME.match(text)
    if not match:
        return text
    name = match.group(1)
    symbol = gdb.lookup_symbol(name.lower())[0]
    if symbol is not None and (symbol.is_variable or symbol.is_argument or symbol.is_constant):
        return text
    module = module_of(name)
    return qualify(text, name, module) if module else text


FORTRAN_CHAIN = re.compile(r"^\s*(?:[A-Za-z_]\w*\s*::\s*)?[A-Za-z_]\w*(?:\s*%\s*[A-Za-z_]\w*)*\s*$")


def variable_symbol(name):
    """The variable `name` as the selected frame sees it, else the one module
    variable of that name; None when there is neither."""
    if "::" in name:
        return gdb.lookup_global_symbol(name) or gdb.lookup_static_symbol(name)
    symbol = gdb.lookup_symbol(name)[0]
    if symbol is not None and (symbol.is_variable or symbol.is_argument):
        return symbol
    module = module_of(name)
    if module is None:
        return None
    qualified = module + "::" + name
    return gdb.lookup_global_symbol(qualified) or gdb.lookup_static_symbol(qualified)


def fortran_chain(text):
    """`chunk%field%density0` read through gdb's symbols and values: gdb's
    Fortran parser looks every name of a component chain up as a symbol
    first, which takes 8 ms and more each in a program with debug
    information for its libraries, while the value's own components cost
    nothing. An array in the middle (`cells%density`) takes the rest of the
    chain across its elements. None when the text is not such a chain or a
    step of it does not work: then gdb's parser decides."""
    if not FORTRAN_CHAIN.match(text):
        return None
    names = [n.strip().lower().replace(" ", "") for n in text.split("%")]
    symbol = variable_symbol(names[0])
    if symbol is None:
        return None
    try:
        value = symbol.value(gdb.selected_frame()) if symbol.needs_frame else symbol.value()
        for k in range(1, len(names)):
            if value.type.strip_typedefs().code == gdb.TYPE_CODE_ARRAY:
                # `cells%density`: the rest of the chain across the array.
                return components_of(value, "%".join(names[:k]), names[k:])
            value = value[names[k]]
    except (gdb.error, KeyError, TypeError, ValueError):
        return None
    return Evaluation(value)


def parse(text):
    """gdb's value of `text`; in a Fortran frame a module variable also by
    its plain name where gdb wants module::name."""
    tried = set()
    if is_fortran():
        text = qualify_leading_name(text)
    while True:
        try:
            return gdb.parse_and_eval(text)
        except gdb.error as error:
            match = NO_SYMBOL.match(str(error))
            if not match or not is_fortran() or match.group(1).lower() in tried:
                raise
            name = match.group(1)
            tried.add(name.lower())
            module = module_of(name)
            if module is None:
                raise
            text = qualify(text, name, module)


def repeat(left_text, count_text):
    """`L@N` as gdb means it, without gdb making it: N elements of L's type
    from L's address."""
    left = strip_references(evaluate(left_text).value)
    if left.address is None:
        raise Problem(NOT_IN_MEMORY_REPEAT)
    count_value = parse(count_text)
    code = count_value.type.strip_typedefs().code
    if code not in (gdb.TYPE_CODE_INT, gdb.TYPE_CODE_ENUM, gdb.TYPE_CODE_BOOL,
                    gdb.TYPE_CODE_CHAR):
        raise Problem(NON_INTEGRAL_REPEAT)
    count = int(count_value)
    if count <= 0:
        raise Problem(INVALID_REPEAT % count)
    return at_address(int(left.address), left.type.array(count - 1))


def components_of(left, left_text, path):
    """One component (`path`, a chain of names) of every element of the
    array of derived types `left`: the component lies at a fixed offset in
    every element, so it is an array with the structures' strides."""
    element = left.type.strip_typedefs()
    while element.code == gdb.TYPE_CODE_ARRAY:
        element = element.target().strip_typedefs()
    offset = 0
    walked = left_text
    for name in path:
        if element.code != gdb.TYPE_CODE_STRUCT:
            raise Problem("%s is not of a derived type: it has no component %s." %
                          (walked, name))
        field = next((f for f in element.fields() if f.name and f.name.lower() ==
                      name.lower()), None)
        if field is None:
            raise Problem("There is no component %s in %s (of %s)." %
                          (name, walked, str(element)))
        offset += field.bitpos // 8
        element = field.type.strip_typedefs()
        walked += "%" + name
    if element.code in (gdb.TYPE_CODE_ARRAY, gdb.TYPE_CODE_STRUCT):
        raise Problem("%s has a component %s that is itself an array or a derived "
                      "type: show it for one element, for example %s(1)%%%s." %
                      (left_text, path[-1], left_text, "%".join(path)), "notarray")
    result = Evaluation(left, element_type=field.type)
    result.offset = offset
    return result


def component_across(text):
    """`cells(2:5)%density` and the like, which gdb does not evaluate: the
    array left of a `%` is evaluated once, then the component is taken
    across it."""
    for split in top_level(text, "%"):
        left_text = text[:split].strip()
        path = [p.strip() for p in text[split + 1:].split("%")]
        if not all(re.match(r"^[A-Za-z_]\w*$", p) for p in path):
            continue
        try:
            left = strip_references(parse(left_text))
        except gdb.error:
            continue
        if left.type.strip_typedefs().code != gdb.TYPE_CODE_ARRAY:
            continue
        return components_of(left, left_text, path)
    return None


def evaluate(text):
    """The one evaluation of `text`."""
    repeats = top_level(text, "@")
    if repeats:
        at = repeats[-1]
        return Evaluation(repeat(text[:at].strip(), text[at + 1:].strip()))
    if is_fortran():
        chain = fortran_chain(text)
        if chain is not None:
            return chain
    try:
        return Evaluation(parse(text))
    except gdb.error as error:
        if str(error) == NOT_A_STRUCTURE and is_fortran():
            found = component_across(text)
            if found is not None:
                return found
        raise


# ---------------------------------------------------------------- shapes


def shape_unknown(type_text):
    """A Fortran array whose extent gdb cannot tell: an allocatable before
    allocate, a pointer not associated, an assumed-size dummy. The service
    words the reason from the type text."""
    shape = re.search(r" \(([^()]*)\)$", type_text)
    if not shape:
        return False
    parts = [p.strip() for p in shape.group(1).split(",")]
    return any(p == ":" or p.endswith("*") for p in parts)


def array_levels(type_):
    """gdb's nesting of an array type, outermost first: [(lower, upper), ...]
    and the element type."""
    levels = []
    while type_.code == gdb.TYPE_CODE_ARRAY:
        levels.append(type_.range())
        type_ = type_.target().strip_typedefs()
    return levels, type_


def layout_of(value, levels):
    """Address of the first element and the byte stride of each of gdb's
    levels, from the addresses of neighbouring elements: the one way that
    also holds for strided sections, pointer arrays and assumed-shape
    dummies, whose types say nothing of their strides. Lazy values: no
    element is read."""
    strides = []
    current = value
    for lower, upper in levels:
        first = current[lower]
        if upper > lower:
            strides.append(int(current[lower + 1].address) - int(first.address))
        else:
            strides.append(None)
        current = first
    if current.address is None:
        return None, None
    element_size = current.type.sizeof
    # A level with one index (or none) never moves: give it the span of the
    # levels inside it.
    inner = element_size
    for k in range(len(levels) - 1, -1, -1):
        lower, upper = levels[k]
        if strides[k] is None:
            strides[k] = inner
        inner = strides[k] * max(1, upper - lower + 1)
    return int(current.address), strides


def element_text(type_):
    return str(type_.strip_typedefs().unqualified())


SIMPLE_OPERAND = re.compile(r"^[A-Za-z_]\w*(?:(?:\.|->|::)[A-Za-z_]\w*|\[[^\[\]]*\])*$")


def operand_of(text):
    """`text` as the operand of a unary `*`."""
    return text if SIMPLE_OPERAND.match(text.strip()) else "(" + text + ")"


def refusal_text(words, text):
    """A container's refusal with its expression in place of {expr}: as it
    stands where it is named, and as an operand where the words go on to
    index it or name a member (`(*pv)[0]`, not `*pv[0]`)."""
    return re.sub(r"\{expr\}(?=[\[.])", lambda _: operand_of(text), words).replace("{expr}", text)


def pointer_hint(text, type_):
    """What to type to see the memory a pointer points to."""
    target = type_.target()
    operand = operand_of(text)
    if target.strip_typedefs().code == gdb.TYPE_CODE_VOID:
        return ("%s is a pointer to void: give its elements a type, for example "
                "*(double *)%s@N" % (text, operand))
    return "%s is a pointer to %s: show N elements with *%s@N" % (text, str(target), operand)


def structure_hint(text, element, dims, fortran):
    """What to show of an array whose elements are structures, in the
    language's own syntax: in Fortran a component of every element, which
    the describer takes across the array itself (`cells%density`); in C a
    member of one element (`nodes[0][0].x`). None for other elements."""
    bare = element.strip_typedefs()
    if bare.code not in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION):
        return None
    member = arraylens_containers.first_number_member(bare)
    if fortran:
        if member is None:
            return "they are of a derived type without a component that is a number."
        return "they are of a derived type: show a component of every element, for example " \
            "%s%%%s." % (text, member)
    if member is None:
        return "they are structures, not numbers."
    index = "".join("[%d]" % lo for lo, _ in dims)
    return "they are structures, not numbers: print a member of one of them, for example " \
        "%s%s.%s." % (operand_of(text), index, member)


def describe_text(text, layout):
    fortran = is_fortran()
    facts = {"language": gdb.current_language(), "isArray": False, "isPointer": False}
    evaluation = evaluate(text)
    value = strip_references(evaluation.value)
    type_ = value.type.strip_typedefs()
    facts["type"] = str(evaluation.value.type)

    if type_.code == gdb.TYPE_CODE_PTR:
        facts["isPointer"] = True
        if not fortran:
            facts["refusal"] = pointer_hint(text, type_)
        return facts

    if type_.code == gdb.TYPE_CODE_STRUCT and not fortran:
        facts["type"] = arraylens_containers.short_type_name(value.type.unqualified())
        try:
            container = arraylens_containers.container_layout(value)
        except arraylens_containers.Refused as refused:
            facts["refusal"] = refusal_text(str(refused), text)
            return facts
        if container is not None:
            element = container["element_type"]
            facts["isArray"] = True
            facts["family"] = container["family"]
            facts["dims"] = [[str(lo), str(hi)] for lo, hi in container["dims"]]
            facts["element"] = element_text(element)
            facts["elementSize"] = element.sizeof
            facts["address"] = str(container["address"])
            facts["byteStrides"] = [str(s) for s in container["byte_strides"]]
            return facts

    if value.address is not None:
        facts["valueAddress"] = str(int(value.address))
    if type_.code != gdb.TYPE_CODE_ARRAY:
        return facts

    levels, element = array_levels(type_)
    if evaluation.element_type is not None:
        element = evaluation.element_type
        # gdb's own words for the type, in the frame's language.
        shown = element
        for lower, upper in reversed(levels):
            shown = shown.array(lower, upper)
        facts["type"] = str(shown)
    facts["isArray"] = True
    if fortran and shape_unknown(facts["type"]):
        facts["shapeUnknown"] = True
        return facts
    dims = list(reversed(levels)) if fortran else levels
    if not fortran and evaluation.element_type is None and (
            "[]" in str(type_) or any(hi < lo for lo, hi in levels)):
        # `double v[]` at the end of a structure (gdb gives it the bounds
        # 0:0), or the older `double v[0]`: the length lives elsewhere, and
        # no length is not an empty array.
        facts["problem"] = ("%s is declared without a length (its type is %s): show N "
                            "elements with *%s@N" % (text, facts["type"], operand_of(text)))
        facts["dims"] = [[str(lo), str(hi)] for lo, hi in dims]
        return facts
    facts["dims"] = [[str(lo), str(hi)] for lo, hi in dims]
    facts["element"] = element_text(element)
    facts["elementSize"] = element.sizeof
    hint = structure_hint(text, element, dims, fortran)
    if hint:
        facts["elementHint"] = hint
    if not layout:
        return facts
    address, strides = layout_of(value, levels)
    if address is None:
        # Still an array with a shape to show; its elements cannot be read.
        facts["error"] = "The elements of '%s' are not in memory." % text
        facts["kind"] = "type"
        return facts
    facts["address"] = str(address + evaluation.offset)
    if fortran:
        strides = list(reversed(strides))
    facts["byteStrides"] = [str(s) for s in strides]
    return facts


def cast_element(type_text):
    """The resolved text and size of a C type a container's elements are
    cast to; the type is gdb's to read, in the frame's language."""
    try:
        type_ = gdb.parse_and_eval("(%s *) 0" % type_text).type.target()
    except gdb.error as error:
        raise Problem("Cannot cast to %s: %s" % (type_text, error), "type")
    return element_text(type_), type_.sizeof


def describe(hex_text, layout=True, cast_hex=""):
    """Prints the facts of the expression whose UTF-8 bytes `hex_text` holds
    as one marked JSON line. With `cast_hex` (a C element type, in the same
    hexadecimal) the facts also hold that type's resolved text and size."""
    gdb.write(facts_line(hex_text, layout, cast_hex))


def facts_line(hex_text, layout=True, cast_hex=""):
    """The line describe() prints, for callers inside gdb's own Python."""
    language = ""
    try:
        language = gdb.current_language()
        text = bytes.fromhex(hex_text).decode("utf-8")
        facts = describe_text(text, layout)
        if cast_hex and facts.get("family"):
            facts["castElement"], facts["castElementSize"] = cast_element(
                bytes.fromhex(cast_hex).decode("utf-8"))
    except Problem as problem:
        facts = {"error": str(problem), "kind": problem.kind}
    except gdb.MemoryError as error:
        facts = {"error": str(error), "kind": "gdb"}
    except gdb.error as error:
        facts = {"error": str(error), "kind": "gdb"}
    except Exception as error:  # noqa: BLE001 - said, never swallowed
        facts = {"error": "The describer failed: %s: %s" % (type(error).__name__, error),
                 "kind": "gdb"}
    facts.setdefault("language", language)
    return MARKER + json.dumps(facts) + "\n"
