"""Shows and checks qv_btree maps in the memory of a program. Knows no debugger: qv_btree_gdb.py and
qv_btree_lldb.py hand in what it needs, a class each (see Debugger)."""
import collections
import struct
import time

MAX_LEVELS = 40
CHUNK = 500  # comparisons between two signs of life

Map = collections.namedtuple("Map", "address root compare nnodes")
Node = collections.namedtuple(
    "Node", "address key value left right balance left_child right_child")


class Unreadable(Exception):
    """There is no memory at an address."""


class Refused(Exception):
    """What was asked for cannot be done; says why, for the user."""


class Broken(Exception):
    """Names the invariant of qv_btree.cpp that does not hold, and where."""


class Debugger:
    """What a debugger supplies; types are texts such as "char *"."""
    key_type = value_type = "void *"

    def pointer_format(self):
        """How struct reads a pointer: the order of bytes, and Q, I or H."""
        raise NotImplementedError

    def read(self, address, size):
        """The bytes at an address; raises Unreadable."""
        raise NotImplementedError

    def has_process(self):
        """Whether a comparator could be called: not in a core dump."""
        raise NotImplementedError

    def is_code(self, address):
        """Whether a function may lie there."""
        raise NotImplementedError

    def kind(self, type_name):
        """"pointer", "integer", "other", or None for an unknown type."""
        raise NotImplementedError

    def shown(self, type_name, pointer):
        """What a pointer of this type points to, or the integer in its place, as a text."""
        raise NotImplementedError

    def ordinal(self, type_name, pointer):
        """The same as a number or text of Python, or None where there is none."""
        raise NotImplementedError

    def first_descent(self, compare, keys):
        """The index of the first key that the comparator does not place after its predecessor, or
        None."""
        raise NotImplementedError

    def limit(self):
        """How many entries the user wants to see."""
        raise NotImplementedError

    def interrupted(self):
        """Whether the user wants it to end, where that does not raise KeyboardInterrupt."""
        return False

    def say(self, text):
        """Prints a line at once."""
        raise NotImplementedError

    def key(self, node):
        return self.shown(self.key_type, node.key)

    def value(self, node):
        return self.shown(self.value_type, node.value)


def checked_type(debugger, what, name):
    """The type that a user has given; raises Refused where it cannot be one."""
    name = name.strip()
    kind = debugger.kind(name) if name else None
    if not name:
        raise Refused(f"{what}: a type is missing; a right one looks like: char *")
    if kind == "other":
        raise Refused(f"{what}: '{name}' is not a type of pointers; a right one looks like: {name} *")
    if kind is None and debugger.has_process():
        raise Refused(f"{what}: there is no type '{name}'; a right one looks like: char *")
    if kind is None:
        debugger.say(f"{what}: there is no type '{name}' yet; it is looked up again when a map is "
                     "shown")
    return name


def read_fields(debugger, address, layout):
    order, pointer = debugger.pointer_format()
    layout = order + layout.replace("P", pointer)
    return struct.unpack(layout, debugger.read(address, struct.calcsize(layout)))


def read_node(debugger, address):
    """Read by its layout in qv_btree.cpp: a library without debug information serves as well."""
    return Node(address, *read_fields(debugger, address, "PPPPbBB"))


def read_map(debugger, address):
    try:
        root, compare, _, _, nnodes = read_fields(debugger, address, "PPPPP")
    except Unreadable:
        raise Refused(f"not a map: there is no memory at {address:#x}") from None
    if not debugger.is_code(compare):
        raise Refused(f"not a map: at {address:#x} there is no comparator where maps have one")
    return Map(address, root, compare, nnodes)


def entries(debugger, shown):
    """The nodes in order. Follows the links as they are, but not for longer than the map is."""
    address, is_child = shown.root, True
    for _ in range(shown.nnodes if shown.root else 0):
        try:
            node = read_node(debugger, address)
            while is_child and node.left_child:
                node = read_node(debugger, node.left)
        except Unreadable:
            return
        yield node
        address, is_child = node.right, node.right_child
        if not address:
            return


def title(shown):
    return f"qv_btree_t of {shown.nnodes} entries"


def map_text(debugger, shown):
    texts = []
    for node in entries(debugger, shown):
        if len(texts) == debugger.limit():
            texts[-1] += "..."
            break
        texts.append(f"[{debugger.key(node)}] = {debugger.value(node)}")
    return f"{title(shown)} = {{{', '.join(texts)}}}"


def node_text(debugger, node):
    sides = []
    for side, to, child in (("left", node.left, node.left_child),
                            ("right", node.right, node.right_child)):
        try:
            end = debugger.key(read_node(debugger, to)) if to else "NULL"
        except Unreadable:
            end = f"nowhere ({to:#x})"
        sides.append(f"{side} {'child' if child else 'thread'} {end}")
    return (f"{debugger.key(node)} = {debugger.value(node)}, balance {node.balance}, "
            f"{', '.join(sides)}")


def text_at(debugger, address):
    """A map or a node."""
    try:
        shown = read_map(debugger, address)
    except Refused as not_a_map:
        try:
            node = read_node(debugger, address)
        except Unreadable:
            raise not_a_map from None
        if abs(node.balance) > 2 or max(node.left_child, node.right_child) > 1:
            raise Refused(f"neither a map nor a node of one: {address:#x}") from None
        return node_text(debugger, node)
    return map_text(debugger, shown)


class Check:
    def __init__(self, debugger, address):
        self.debugger = debugger
        self.map = read_map(debugger, address)
        self.nodes = []
        self.compared = 0
        self.said = time.monotonic()

    def run(self):
        """Returns what holds; raises Broken."""
        debugger, nodes = self.debugger, self.nodes
        if self.map.root:
            self.height(None, "root", self.map.root, 1)
        if nodes and nodes[-1].right:
            raise Broken(f"invariant 3: last right thread, {self.at(nodes[-1])}")
        if len(nodes) != self.map.nnodes:
            raise Broken(f"invariant 4: {len(nodes)} nodes, but nnodes is {self.map.nnodes}")
        if debugger.has_process():
            self.compare()
            return f"{len(nodes)} entries, invariants 1 to 4 hold"
        ordinals = self.ordinals()
        if None in ordinals:
            return (f"{len(nodes)} entries, invariants 2 to 4 hold; 1 not checked: without a process, "
                    f"'{debugger.key_type}' gives no values to order")
        if all(a < b for a, b in zip(ordinals, ordinals[1:])):
            return f"{len(nodes)} entries, invariants 1 to 4 hold (1 by the values of the keys)"
        return (f"{len(nodes)} entries, invariants 2 to 4 hold; keys do not ascend by value: your "
                "comparator may differ")

    def ordinals(self):
        """The values of the keys, up to the first that cannot be ordered."""
        ordinals = []
        for node in self.nodes:
            ordinals.append(self.debugger.ordinal(self.debugger.key_type, node.key))
            self.compared = len(ordinals)
            if ordinals[-1] is None:
                break
            if self.compared % CHUNK == 0:
                self.give_a_sign()
        return ordinals

    def at(self, node):
        return f"at node {node.address:#x}, key {self.debugger.key(node)}"

    def height(self, parent, side, address, level):
        """Of a subtree, whose nodes join self.nodes in order."""
        if not address:
            raise Broken(f"invariant 3: NULL as {side} child, {self.at(parent)}")
        if level > MAX_LEVELS:
            raise Broken(f"invariant 2: deeper than {MAX_LEVELS} levels, {self.at(parent)}")
        try:
            node = read_node(self.debugger, address)
        except Unreadable:
            raise Broken(f"invariant 3: {side} link to {address:#x}, where there is no memory" +
                         (f", {self.at(parent)}" if parent else "")) from None
        if {node.left_child, node.right_child} - {0, 1}:
            raise Broken(f"invariant 3: flags, {self.at(node)}")
        left = self.height(node, "left", node.left, level + 1) if node.left_child else 0
        last = self.nodes[-1] if self.nodes else None
        if not node.left_child and node.left != (last.address if last else 0):
            raise Broken(f"invariant 3: left thread, {self.at(node)}")
        if last and not last.right_child and last.right != node.address:
            raise Broken(f"invariant 3: right thread, {self.at(last)}")
        self.nodes.append(node)
        if len(self.nodes) % CHUNK == 0:
            self.give_a_sign()
        right = self.height(node, "right", node.right, level + 1) if node.right_child else 0
        if node.balance != right - left or abs(node.balance) > 1:
            raise Broken(f"invariant 2: balance, {self.at(node)}")
        return max(left, right) + 1

    def compare(self):
        for first in range(0, len(self.nodes), CHUNK):
            chunk = self.nodes[first:first + CHUNK + 1]
            index = self.debugger.first_descent(self.map.compare, [node.key for node in chunk])
            if index is not None:
                raise Broken(f"invariant 1: order, {self.at(chunk[index])}")
            self.compared = first + len(chunk)
            self.give_a_sign()

    def give_a_sign(self):
        if self.debugger.interrupted():
            raise KeyboardInterrupt
        if time.monotonic() > self.said + 2:
            self.debugger.say(self.progress())
            self.said = time.monotonic()

    def progress(self):
        done = f"invariants 2 to 4 hold, compared {self.compared}" if self.compared else \
            f"read {len(self.nodes)}"
        return f"{done} of {self.map.nnodes} entries"


def check(debugger, address):
    """What qv-check prints."""
    running = Check(debugger, address)
    try:
        return running.run()
    except Broken as broken:
        return str(broken)
    except KeyboardInterrupt:
        debugger.say(f"interrupted: {running.progress()}")
        return ""
