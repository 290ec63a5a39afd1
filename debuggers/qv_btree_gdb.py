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
    def numbers(self):
        is_little = "little" in gdb.execute("show endian", to_string=True)
        return "<" if is_little else ">", gdb.lookup_type("void").pointer().sizeof

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

    def type_of(self, type_name):
        try:
            return gdb.parse_and_eval(f"({type_name}*)0").type.target().strip_typedefs()
        except gdb.error:  # GDB wants all namespaces to be written, and parses no unnamed one.
            name = type_name.rstrip("* ")
            known = gdb.execute(f"info types -q {re.escape(name.split('::')[-1])}$", to_string=True)
            for full_name in re.findall(r"^\S*\s+(.*);$", known, re.M):
                if walk.is_meant(name, full_name):
                    found = gdb.lookup_type(full_name)
                    return found.pointer() if "*" in type_name else found
            return None

    def kind(self, type_name):
        of_type = self.type_of(type_name)
        if of_type is None:
            return None
        if of_type.code in (gdb.TYPE_CODE_INT, gdb.TYPE_CODE_ENUM):
            return "integer"
        if of_type.code != gdb.TYPE_CODE_PTR:
            return "other"
        to = of_type.target().strip_typedefs()
        return "void" if to.code == gdb.TYPE_CODE_VOID else \
            "text" if to.code == gdb.TYPE_CODE_INT and to.sizeof == 1 else "object"

    def value(self, type_name, pointer, dereferenced):
        value = gdb.parse_and_eval(f"(void*){pointer}").cast(self.type_of(type_name))
        return value.dereference() if dereferenced else value

    def one_line(self, value):
        plain = value.format_string(address=False, symbols=False)
        return plain or value.format_string(symbols=False)  # of a void pointer the address

    def first_fault(self, compare, keys):
        # A call that does not return leaves the user's frame selected, and no breakpoint stops one.
        function = gdb.parse_and_eval(f"*(int (*)(const void*, const void*)){compare}")
        unwinds = gdb.parameter("unwindonsignal")
        enabled = [point for point in gdb.breakpoints() if point.enabled]
        gdb.execute("set unwindonsignal on")
        try:
            for point in enabled:
                point.enabled = False
            for index in range(1, len(keys)):
                if int(function(keys[index - 1], keys[index])) >= 0:
                    return index, "order"
                if index % 10000 == 0:
                    print(f"compared {index} of {len(keys)} entries", flush=True)
        except gdb.error as error:
            if not str(error).startswith("The program being debugged"):  # and has ended in the call
                raise walk.Refused(f"GDB cannot call the comparator: {error}") from None
            return index, walk.NOT_RETURNED
        finally:
            for point in enabled:
                point.enabled = True
            gdb.execute(f"set unwindonsignal {'on' if unwinds else 'off'}")
        return len(keys), None

    def limit(self):
        return gdb.parameter("print elements") or sys.maxsize


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
            self.title, self.nodes = walk.shown_entries(
                DEBUGGER, walk.read_map(DEBUGGER, int(value.address)))
        except walk.Refused as refused:  # For instance before the pointer to the map is set.
            self.title, self.nodes = f"<{refused}>", []

    def to_string(self):
        return self.title

    def children(self):
        for node in self.nodes:
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
    def __init__(self, name, function):
        self.__doc__ = f"{name} {walk.HELP[name]}"
        self.function = function
        super().__init__(name, gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        try:
            value = gdb.parse_and_eval(argument)
            is_object = value.type.strip_typedefs().code in (gdb.TYPE_CODE_STRUCT,
                                                             gdb.TYPE_CODE_ARRAY)
            gdb.write(self.function(DEBUGGER, int(value.address if is_object else value)) + "\n")
        except (walk.Refused, gdb.error) as error:
            raise gdb.GdbError(str(error)) from None


TypeParameter("qv-key-type", "key_type")
TypeParameter("qv-value-type", "value_type")
Command("qv-print", walk.text_at)
Command("qv-check", walk.check)
PRINTERS = gdb.printing.RegexpCollectionPrettyPrinter("qv_base")
PRINTERS.add_printer("qv_btree_t", "^qv_btree_s$", MapPrinter)
PRINTERS.add_printer("qv_btree_node_t", "^qv_btree_node_s$", NodePrinter)
gdb.printing.register_pretty_printer(None, PRINTERS, replace=True)
