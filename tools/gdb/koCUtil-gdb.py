"""GDB shows the library's values as what they hold; docs/debugging.md tells more."""
from itertools import chain, islice

import gdb
import gdb.printing
import gdb.types

# Members of a variant's value, in the order of the types; null has none.
VARIANT_MEMBERS = (
    None, "boolean", "sint8", "uint8", "sint16", "uint16", "sint32", "uint32", "sint64", "uint64", "ieee32", "ieee64",
    "string", "binary", "vector")


class PointedTo(gdb.Parameter):
    """What a container's pointers point to, as containers themselves know addresses only."""

    def __init__(self, name, what):
        self.set_doc = f"Set the type that {what} point to: a record, or char for texts. None: addresses are shown."
        self.show_doc = f"Show the type that {what} point to."
        super().__init__(f"print {name}", gdb.COMMAND_DATA, gdb.PARAM_STRING)
        self.value = ""

    def get_set_string(self):
        return ""

    def get_show_string(self, value):
        return value or "none"

    def follow(self, pointer):
        if not self.value:
            return pointer
        if self.value == "char":
            return text(pointer)
        return pointer.cast(gdb.lookup_type(self.value).pointer()).dereference()


KEYS = PointedTo("cu-keys", "the keys of maps and trees and the elements of sets")
VALUES = PointedTo("cu-values", "the values of maps and trees and the elements of queues")


class Shown:
    """What a value is called, and what it consists of."""

    def __init__(self, title, hint=None, parts=lambda: ()):
        self.title, self.hint, self.parts = title, hint, parts

    def to_string(self):
        return self.title

    def display_hint(self):
        return self.hint

    def children(self):
        return ((f"[{number}]", part) for number, part in enumerate(self.parts()))


def list_of(title, parts):
    return Shown(title, "array", parts)


def map_of(title, pairs):
    return Shown(title, "map", lambda: chain.from_iterable(pairs()))


def text(pointer):
    return pointer.cast(gdb.lookup_type("char").pointer()).lazy_string()


def elements(array, count):
    return (array[index] for index in range(int(count)))


def binary(data, length):
    if not data:
        return f"no bytes, length {length}"
    limit = gdb.parameter("print elements") or length
    shown = "".join(f" {int(byte):02x}" for byte in elements(data, min(length, limit)))
    return f"binary of {length}{':' if length else ''}{shown}{' ...' if length > limit else ''}"


def variant(value):
    kind = int(value["type"])
    if kind == 0:
        return Shown("null")
    if kind >= len(VARIANT_MEMBERS):
        return Shown(f"no variant: type {kind}")
    member = VARIANT_MEMBERS[kind]
    held = value["value"][member]
    if member == "boolean":
        return Shown("true" if held else "false")
    if member == "string":
        return Shown(text(held))
    if member == "binary":
        return Shown(binary(held["data"], int(held["length"])))
    if member == "vector":
        return list_of(f"vector of {held['count']}", lambda: elements(held["items"], held["count"]))
    return Shown(f"{member} {held if member.startswith('ieee') else int(held)}")


def property_map(value):
    properties = value["properties"], value["count"]
    return map_of(f"cu_PropertyMap of {value['count']}",
                  lambda: ((text(each["name"]), each["value"]) for each in elements(*properties)))


def string(value):
    return Shown(text(value["buffer"]))


def string_handle(pointer):
    """The address and the text, of whose place nobody need know types: allocator, length, capacity, text."""
    char = gdb.lookup_type("char").pointer()
    try:
        place = (pointer.cast(char) + pointer.type.sizeof + 8).cast(char.pointer())
        return Shown(f"{int(pointer):#x} {place.dereference().format_string(address=False)}")
    except gdb.MemoryError:
        return Shown(f"{int(pointer):#x}")


def argument_array(value):
    return list_of(f"cu_ArgumentArray of {value['count']}", lambda: map(text, elements(value["argv"], value["count"])))


def entries(table):
    """As the library walks through its table."""
    def all_chains():
        for head in elements(table["heads_"], table["chains_"]):
            number = int(head)
            while number:
                yield table["entries_"][number - 1]
                number = int(table["nodes_"][number - 1]["next"])

    return islice(all_chains(), int(table["size_"]))


def set_of_elements(value):
    table = value["table"]
    return list_of(f"cu_Set of {table['size_']}", lambda: (KEYS.follow(entry["key"]) for entry in entries(table)))


def hash_map(value):
    table = value["table"]
    return map_of(f"cu_Map of {table['size_']}",
                  lambda: ((KEYS.follow(entry["key"]), VALUES.follow(entry["value"])) for entry in entries(table)))


def queue(value):
    def parts():
        chunk, place = value["head"]["chunk"], int(value["head"]["place"])
        while chunk and (chunk != value["tail"]["chunk"] or place != int(value["tail"]["place"])):
            places = chunk["elements"]
            yield VALUES.follow(places[place])
            place += 1
            if place > places.type.range()[1] and chunk != value["tail"]["chunk"]:
                chunk, place = chunk["next"], 0

    return list_of("cu_Queue", parts)


def tree(value):
    def pairs():
        ancestors, node = [], value["root"]
        while ancestors or node:
            while node:
                ancestors.append(node)
                node = node["child"][0]
            node = ancestors.pop()
            yield KEYS.follow(node["key"]), VALUES.follow(node["value"])
            node = node["child"][1]

    return map_of("cu_RBTree", pairs)


def error_code(value):
    try:
        constants = gdb.lookup_type("enum cu_ErrorConstant").fields()
    except gdb.error:
        return None
    names = [constant.name for constant in constants if constant.enumval == int(value)]
    return Shown(f"{names[0]} ({int(value):#x})") if names else None


RECORDS = {
    "cu_Variant": variant,
    "cu_PropertyMap": property_map,
    "cu_String": string,
    "cu_ArgumentArray": argument_array,
    "cu_Set": set_of_elements,
    "cu_Map": hash_map,
    "cu_Queue": queue,
    "cu_RBTree": tree,
}


class Printers(gdb.printing.PrettyPrinter):
    def __call__(self, value):
        if value.type.unqualified().name == "cu_ErrorCode":
            return error_code(value)
        bare = gdb.types.get_basic_type(value.type)
        if bare.code == gdb.TYPE_CODE_PTR:
            is_string = gdb.types.get_basic_type(bare.target()).tag == "cu_String"
            return string_handle(value) if is_string and value else None
        # Without the library's debug information a handle's structure has no members.
        return RECORDS[bare.tag](value) if bare.tag in RECORDS and bare.fields() else None


gdb.printing.register_pretty_printer(gdb.current_objfile(), Printers("koCUtil"), replace=True)
