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


def next_node(node):
    step = node["right"]
    if node["right_child"]:
        while step["left_child"]:
            step = step["left"]
    return step


class MapPrinter:
    def __init__(self, value):
        self.map = value

    def to_string(self):
        return f"qv_btree_t of {int(self.map['nnodes'])} entries"

    def children(self):
        node = self.map["root"]
        while node and node["left_child"]:
            node = node["left"]
        for i in range(int(self.map["nnodes"])):
            if not node:
                break
            yield f"key {i}", KEY.through(node["key"])
            yield f"value {i}", VALUE.through(node["value"])
            node = next_node(node)

    def display_hint(self):
        return "map"


class NodePrinter:
    def __init__(self, value):
        self.node = value

    def to_string(self):
        sides = []
        for side in ("left", "right"):
            to = self.node[side]
            link = "child" if self.node[side + "_child"] else "thread"
            sides.append(f"{side} {link} " + (str(KEY.through(to["key"])) if to else "NULL"))
        return (f"{KEY.through(self.node['key'])} = {VALUE.through(self.node['value'])}, "
                f"balance {int(self.node['balance'])}, {', '.join(sides)}")


class Broken(Exception):
    pass


class Checker:
    def __init__(self, value):
        self.map = value
        self.last = None
        self.count = 0
        thread = gdb.selected_thread()
        # A core dump has a thread, but no process that could run the comparator.
        self.live = thread is not None and thread.is_valid() and \
            gdb.selected_inferior().connection.type != "core"

    def require(self, holds, what, node):
        if not holds:
            raise Broken(f"invariant {what}, at node {int(node):#x}")

    def ordered(self, node):
        if self.live:
            return int(self.map["key_compare"].dereference()(self.last["key"], node["key"])) < 0
        if KEY.value == "void *":
            return True
        before, after = KEY.through(self.last["key"]), KEY.through(node["key"])
        if before.type.strip_typedefs().code == gdb.TYPE_CODE_PTR:
            return before.string() < after.string()
        return before < after

    def height(self, node, level):
        self.require(node and level <= MAX_LEVELS, "2: too deep, or a NULL child", node)
        self.require(node["left_child"] <= 1 and node["right_child"] <= 1, "3: flags", node)
        left = self.height(node["left"], level + 1) if node["left_child"] else 0
        if not node["left_child"]:
            self.require(node["left"] == (self.last or 0), "3: left thread", node)
        if self.last is not None:
            if not self.last["right_child"]:
                self.require(self.last["right"] == node, "3: right thread", self.last)
            self.require(self.ordered(node), "1: order", node)
        self.last = node
        self.count += 1
        right = self.height(node["right"], level + 1) if node["right_child"] else 0
        self.require(int(node["balance"]) == right - left and abs(right - left) <= 1,
                     "2: balance", node)
        return max(left, right) + 1

    def run(self):
        if self.map["root"]:
            self.height(self.map["root"], 1)
            self.require(not self.last["right"], "3: last right thread", self.last)
        if self.count != int(self.map["nnodes"]):
            raise Broken(f"invariant 4: {self.count} nodes, but nnodes is {int(self.map['nnodes'])}")
        order = "" if self.live else (
            " (1 by the values of the keys)" if KEY.value != "void *" else
            " (1 not checked: without a process, set qv-key-type)")
        return f"{self.count} entries, invariants 1 to 4 hold{order}"


class Check(gdb.Command):
    """qv-check MAP: verifies a qv_btree map and names the first broken node.

Invariant 5, that entries stay in their nodes, cannot be seen in one state of a map."""

    def __init__(self):
        super().__init__("qv-check", gdb.COMMAND_DATA, gdb.COMPLETE_EXPRESSION)

    def invoke(self, argument, from_tty):
        value = gdb.parse_and_eval(argument)
        if value.type.strip_typedefs().code == gdb.TYPE_CODE_PTR:
            value = value.dereference()
        try:
            print(Checker(value).run())
        except Broken as broken:
            print(broken)
        except gdb.MemoryError as error:
            print(f"invariant 3: a link leads nowhere: {error}")


Check()
PRINTERS = gdb.printing.RegexpCollectionPrettyPrinter("qv_base")
PRINTERS.add_printer("qv_btree_t", "^qv_btree_s$", MapPrinter)
PRINTERS.add_printer("qv_btree_node_t", "^qv_btree_node_s$", NodePrinter)
gdb.printing.register_pretty_printer(gdb.current_objfile(), PRINTERS, replace=True)
