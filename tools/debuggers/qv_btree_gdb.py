"""Shows qv_btree maps in GDB, and checks them.

    set qv-key-type char *      how to show the keys: what a pointer of this type points to; or an
                                integer type, for integers in place of pointers
    set qv-value-type int *     the same for values
    print *map                  a map as its entries, in order
    print *node                 one entry, without running into the tree
    qv-print ADDRESS            the map or node at an address, also where its type is not known
    qv-check MAP                verifies the invariants that qv_btree.cpp numbers, and names the first
                                broken node; works on a core dump too

Where GDB does not load it by itself: source qv_btree_gdb.py
"""
import os
import re
import sys

import gdb
import gdb.printing

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qv_btree_walk as walk  # pylint: disable=wrong-import-position


class Gdb(walk.Debugger):
    def pointer_format(self):
        little = "little" in gdb.execute("show endian", to_string=True)
        size = gdb.lookup_type("void").pointer().sizeof
        return "<" if little else ">", {2: "H", 4: "I", 8: "Q"}[size]

    def read(self, address, size):
        try:
            return bytes(gdb.selected_inferior().read_memory(address, size))
        except gdb.error as error:
            raise walk.Unreadable from error

    def has_process(self):
        thread = gdb.selected_thread()
        return thread is not None and thread.is_valid() and \
            gdb.selected_inferior().connection.type != "core"

    def is_code(self, address):
        sections = re.findall(r"(0x\w+) - (0x\w+) is \.text",
                              gdb.execute("info files", to_string=True))
        return any(int(low, 16) <= address < int(high, 16) for low, high in sections)

    def cast(self, type_name, pointer):
        try:
            return gdb.parse_and_eval(f"({type_name}){pointer}")
        except gdb.error:
            raise walk.Refused(f"there is no type '{type_name}'") from None

    def kind(self, type_name):
        try:
            code = self.cast(type_name + "*", 0).type.target().strip_typedefs().code
        except walk.Refused:
            return None
        return {gdb.TYPE_CODE_PTR: "pointer", gdb.TYPE_CODE_INT: "integer",
                gdb.TYPE_CODE_ENUM: "integer"}.get(code, "other")

    def goal(self, type_name, pointer):
        """What a pointer points to as a value of GDB, or the pointer itself."""
        value = self.cast(type_name, pointer)
        if value.type.strip_typedefs().code != gdb.TYPE_CODE_PTR or pointer == 0:
            return value
        to = value.type.strip_typedefs().target().strip_typedefs()
        plain = to.code == gdb.TYPE_CODE_VOID or (to.code == gdb.TYPE_CODE_INT and to.sizeof == 1)
        goal = value if plain else value.dereference()
        try:
            goal.fetch_lazy()
        except gdb.MemoryError:
            return f"<no memory at {pointer:#x}>"
        return goal

    def shown(self, type_name, pointer):
        goal = self.goal(type_name, pointer)
        return goal if isinstance(goal, str) else \
            goal.format_string(address=type_name == "void *", symbols=False)

    def ordinal(self, type_name, pointer):
        value = self.goal(type_name, pointer)
        if isinstance(value, str):
            return None
        code = value.type.strip_typedefs().code
        try:
            if code == gdb.TYPE_CODE_FLT:
                return float(value)
            if code != gdb.TYPE_CODE_PTR:
                return int(value)
            to = value.type.strip_typedefs().target().strip_typedefs()
            return value.string("latin-1") if to.sizeof == 1 and to.code == gdb.TYPE_CODE_INT else None
        except gdb.error:
            return None

    def first_descent(self, compare, keys):
        function = gdb.parse_and_eval(f"*(int (*)(const void*, const void*)){compare}")
        pointers = [gdb.Value(key).cast(gdb.lookup_type("void").pointer()) for key in keys]
        try:
            for index in range(1, len(keys)):
                if int(function(pointers[index - 1], pointers[index])) >= 0:
                    return index
        except gdb.error as error:
            raise walk.Refused(f"the comparator did not return: {error}") from None
        return None

    def limit(self):
        return gdb.parameter("print elements") or sys.maxsize

    def say(self, text):
        gdb.write(text + "\n")
        gdb.flush()


DEBUGGER = Gdb()


class TypeParameter(gdb.Parameter):
    """The type to show the pointers of a qv_btree map through, e.g. char *."""

    set_doc = show_doc = __doc__

    def __init__(self, name, attribute):
        super().__init__(name, gdb.COMMAND_DATA, gdb.PARAM_STRING_NOESCAPE)
        self.name, self.attribute = name, attribute
        self.value = getattr(DEBUGGER, attribute)

    def get_set_string(self):
        try:
            setattr(DEBUGGER, self.attribute,
                    walk.checked_type(DEBUGGER, self.name, self.value or ""))
        except walk.Refused as refused:
            raise gdb.GdbError(str(refused)) from None
        finally:
            self.value = getattr(DEBUGGER, self.attribute)
        return ""

    def get_show_string(self, svalue):
        return svalue


class MapPrinter:
    def __init__(self, value):
        try:
            self.map = walk.read_map(DEBUGGER, int(value.address))
            self.title = walk.title(self.map)
        except walk.Refused as refused:  # For instance before the pointer to the map is set.
            self.map, self.title = None, f"<{refused}>"

    def to_string(self):
        return self.title

    def children(self):
        for node in walk.entries(DEBUGGER, self.map) if self.map else ():
            yield "key", DEBUGGER.goal(DEBUGGER.key_type, node.key)
            yield "value", DEBUGGER.goal(DEBUGGER.value_type, node.value)

    def display_hint(self):
        return "map"


class NodePrinter:
    def __init__(self, value):
        self.address = int(value.address)

    def to_string(self):
        return walk.node_text(DEBUGGER, walk.read_node(DEBUGGER, self.address))


class Command(gdb.Command):
    def __init__(self, name, function, doc):
        self.__doc__ = doc
        self.function = function
        super().__init__(name, gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        try:
            value = gdb.parse_and_eval(argument)
            is_object = value.type.strip_typedefs().code in (gdb.TYPE_CODE_STRUCT,
                                                             gdb.TYPE_CODE_ARRAY)
            text = self.function(DEBUGGER, int(value.address if is_object else value))
            gdb.write(text + "\n" if text else "")
        except (walk.Refused, gdb.error) as error:
            raise gdb.GdbError(str(error)) from None


TypeParameter("qv-key-type", "key_type")
TypeParameter("qv-value-type", "value_type")
Command("qv-print", walk.text_at, "qv-print ADDRESS: shows the qv_btree map or node at an address.")
Command("qv-check", walk.check,
        """qv-check MAP: verifies a qv_btree map and names the first broken node.

MAP is a map, a pointer to one or its address. Without a process to run the comparator in, the order
of keys is judged by their values. Invariant 5, that entries stay in their nodes, cannot be seen in
one state of a map.""")
PRINTERS = gdb.printing.RegexpCollectionPrettyPrinter("qv_base")
PRINTERS.add_printer("qv_btree_t", "^qv_btree_s$", MapPrinter)
PRINTERS.add_printer("qv_btree_node_t", "^qv_btree_node_s$", NodePrinter)
gdb.printing.register_pretty_printer(None, PRINTERS, replace=True)
