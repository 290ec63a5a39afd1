"""Shows qv_btree maps in GDB, and checks them.

    set qv-key-type char *      how to show the keys; what a pointer to another type points to is shown
    set qv-value-type int *     the same for values
    print *map                  a map as its entries, in order
    print *node                 one entry, without running into the tree
    qv-check map                verifies the invariants that qv_btree.cpp numbers, and names the first
                                broken node; works on a core dump too

Where GDB does not load it by itself: source qv_btree_gdb.py
"""
import gdb
import gdb.printing

MAX_LEVELS = 40


class TypeParameter(gdb.Parameter):
    """The type to show the pointers of a qv_btree map through, e.g. char *."""

    set_doc = show_doc = __doc__

    def __init__(self, name):
        super().__init__(name, gdb.COMMAND_DATA, gdb.PARAM_STRING_NOESCAPE)
        self.value = "void *"

    def get_set_string(self):
        return ""

    def get_show_string(self, svalue):
        return svalue

    def through(self, pointer):
        """The pointer as the user wants to see it."""
        shown = gdb.parse_and_eval(f"({self.value}){int(pointer)}")
        if shown.type.strip_typedefs().code != gdb.TYPE_CODE_PTR or int(pointer) == 0:
            return shown
        target = shown.type.strip_typedefs().target().strip_typedefs()
        plain = target.code == gdb.TYPE_CODE_VOID or (
            target.code == gdb.TYPE_CODE_INT and target.sizeof == 1)
        return shown if plain else shown.dereference()


KEY = TypeParameter("qv-key-type")
VALUE = TypeParameter("qv-value-type")


class Node:
    """The record at an address, read by its layout in qv_btree.cpp: a library built without debug
    information serves as well."""

    def __init__(self, address):
        self.address = int(address)
        pointer = gdb.lookup_type("void").pointer()
        pointers = gdb.Value(self.address).cast(pointer.pointer())
        self.key, self.value, self.left, self.right = (pointers[i] for i in range(4))
        flags = (pointers + 4).cast(gdb.lookup_type("signed char").pointer())
        self.balance, self.left_child, self.right_child = (int(flags[i]) for i in range(3))


class Map:
    """The same for a map."""

    def __init__(self, address):
        pointer = gdb.lookup_type("void").pointer()
        pointers = gdb.Value(int(address)).cast(pointer.pointer())
        self.root = pointers[0]
        self.nnodes = int(pointers[4])
        self.compare = gdb.parse_and_eval(f"*(int (*)(const void*, const void*)){int(pointers[1])}")


def leftmost(address):
    node = Node(address)
    while node.left_child:
        node = Node(node.left)
    return node


class MapPrinter:
    def __init__(self, value):
        self.map = Map(value.address)

    def to_string(self):
        return f"qv_btree_t of {self.map.nnodes} entries"

    def children(self):
        following = self.map.root
        is_child = True
        for i in range(self.map.nnodes):
            if not following:
                break
            node = leftmost(following) if is_child else Node(following)
            yield f"key {i}", KEY.through(node.key)
            yield f"value {i}", VALUE.through(node.value)
            following, is_child = node.right, node.right_child

    def display_hint(self):
        return "map"


class NodePrinter:
    def __init__(self, value):
        self.node = Node(value.address)

    def to_string(self):
        node = self.node
        sides = []
        for side, to, child in (("left", node.left, node.left_child),
                                ("right", node.right, node.right_child)):
            end = str(KEY.through(Node(to).key)) if to else "NULL"
            sides.append(f"{side} {'child' if child else 'thread'} {end}")
        return (f"{KEY.through(node.key)} = {VALUE.through(node.value)}, "
                f"balance {node.balance}, {', '.join(sides)}")


class Broken(Exception):
    pass


class Checker:
    def __init__(self, address):
        self.map = Map(address)
        self.last = None
        self.count = 0
        thread = gdb.selected_thread()
        # A core dump has a thread, but no process that could run the comparator.
        self.live = thread is not None and thread.is_valid() and \
            gdb.selected_inferior().connection.type != "core"

    def require(self, holds, what, address):
        if not holds:
            raise Broken(f"invariant {what}, at node {int(address):#x}")

    def ordered(self, node):
        if self.live:
            return int(self.map.compare(self.last.key, node.key)) < 0
        if KEY.value == "void *":
            return True
        before, after = KEY.through(self.last.key), KEY.through(node.key)
        if before.type.strip_typedefs().code == gdb.TYPE_CODE_PTR:
            return before.string() < after.string()
        return before < after

    def height(self, address, level):
        self.require(address and level <= MAX_LEVELS, "2: too deep, or a NULL child", address)
        node = Node(address)
        self.require({node.left_child, node.right_child} <= {0, 1}, "3: flags", address)
        left = self.height(node.left, level + 1) if node.left_child else 0
        last = self.last
        if not node.left_child:
            self.require(node.left == (last.address if last else 0), "3: left thread", address)
        if last:
            if not last.right_child:
                self.require(last.right == node.address, "3: right thread", last.address)
            self.require(self.ordered(node), "1: order", address)
        self.last = node
        self.count += 1
        right = self.height(node.right, level + 1) if node.right_child else 0
        self.require(node.balance == right - left and abs(right - left) <= 1, "2: balance",
                     address)
        return max(left, right) + 1

    def run(self):
        if self.map.root:
            self.height(self.map.root, 1)
            self.require(not self.last.right, "3: last right thread", self.last.address)
        if self.count != self.map.nnodes:
            raise Broken(f"invariant 4: {self.count} nodes, but nnodes is {self.map.nnodes}")
        order = "" if self.live else (
            " (1 by the values of the keys)" if KEY.value != "void *" else
            " (1 not checked: without a process, set qv-key-type)")
        return f"{self.count} entries, invariants 1 to 4 hold{order}"


class Check(gdb.Command):
    """qv-check MAP: verifies a qv_btree map and names the first broken node.

MAP is a map, a pointer to one or its address.

Invariant 5, that entries stay in their nodes, cannot be seen in one state of a map."""

    def __init__(self):
        super().__init__("qv-check", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        value = gdb.parse_and_eval(argument)
        is_map = value.type.strip_typedefs().code == gdb.TYPE_CODE_STRUCT
        try:
            print(Checker(value.address if is_map else value).run())
        except Broken as broken:
            print(broken)
        except gdb.MemoryError as error:
            print(f"invariant 3: a link leads nowhere: {error}")


Check()
PRINTERS = gdb.printing.RegexpCollectionPrettyPrinter("qv_base")
PRINTERS.add_printer("qv_btree_t", "^qv_btree_s$", MapPrinter)
PRINTERS.add_printer("qv_btree_node_t", "^qv_btree_node_s$", NodePrinter)
gdb.printing.register_pretty_printer(gdb.current_objfile(), PRINTERS, replace=True)
