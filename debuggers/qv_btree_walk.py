"""Shows and checks qv_btree maps in the memory of a program. Knows no debugger: qv_btree_gdb.py and
qv_btree_lldb.py supply what it needs, in a class each (see Debugger)."""
import collections
import struct

MAX_LEVELS = 40
NOT_RETURNED = "the comparator did not return"

HELP = {
    "qv-key-type": "TYPE: shows keys as what a pointer of this type points to, or as integers of this type.",
    "qv-value-type": "TYPE: the same for values.",
    "qv-print": "ADDRESS: shows the qv_btree map or node at an address.",
    "qv-check": "MAP: verifies invariants 1 to 4, the order of keys (1) in a process only, and names the "
                "first broken node."}

Map = collections.namedtuple("Map", "root compare nnodes title")
Node = collections.namedtuple(
    "Node", "address key value left right balance left_child right_child")


class Unreadable(Exception):
    """There is no memory at an address."""


class Refused(Exception):
    """What was asked for cannot be done; says why, for the user."""


class Broken(Exception):
    """Names the invariant of qv_btree.cpp that does not hold, and where."""


class Debugger:
    """What a debugger supplies; types are texts such as "char *". A derived class has the methods

    numbers()                    the order of bytes, "<" or ">", and the bytes of a pointer
    read(address, size)          the bytes at an address; raises Unreadable
    has_process()                whether a comparator could be called: not in a core dump
    is_code(address)             whether a function may be there
    kind(type_name)              "void", "text" or "object" for pointers to one, "integer", "other",
                                 or None for an unknown type
    value(type_name, pointer, dereferenced)  the debugger's value of a pointer or of its object
    one_line(value)              a value as a text
    first_fault(compare, keys)   the index of the first key that the comparator does not place after
                                 its predecessor, and "order" or NOT_RETURNED; or the number of keys;
                                 raises Refused where the debugger cannot call it
    limit()                      how many entries the user wants to see
    """
    key_type = value_type = "void *"
    named = set()  # addresses of nodes that a check has named

    def goal(self, type_name, pointer):
        """What to show for a pointer: a value of the debugger, or a text."""
        kind = self.kind(type_name)
        if kind is None:
            raise Refused(f"there is no type '{type_name}'")
        if kind != "integer" and pointer == 0:
            return "NULL"
        if kind in ("text", "object"):
            try:
                self.read(pointer, 1)
            except Unreadable:
                return f"<no memory at {pointer:#x}>"
        return self.value(type_name, pointer, kind == "object")

    def shown(self, type_name, pointer):
        goal = self.goal(type_name, pointer)
        return goal if isinstance(goal, str) else self.one_line(goal)

    def key(self, node):
        return self.shown(self.key_type, node.key)


def is_meant(name, full_name):
    """Whether a name, which may leave out namespaces, is that of a type."""
    name, full_name = (text.replace("(anonymous namespace)::", "") for text in (name, full_name))
    return f"::{full_name}".endswith(f"::{name}")


def checked_type(debugger, what, name):
    """The type that a user has given; raises Refused where it cannot be one."""
    name = name.strip()
    kind = debugger.kind(name) if name else "missing"
    wrong = {"missing": "a type is missing", "other": f"'{name}' is not a type of pointers",
             None: f"there is no type '{name}'"}.get(kind)
    if wrong and (kind is not None or debugger.kind("qv_btree_t") is not None):
        example = f"{name} *" if kind == "other" else "char *"
        raise Refused(f"{what}: {wrong}; a right one looks like: {example}")
    return name  # also where types of the program are not known yet


def read_fields(debugger, address, layout):
    order, width = debugger.numbers()
    layout = order + layout.replace("P", {2: "H", 4: "I", 8: "Q"}[width])
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
    return Map(root, compare, nnodes, f"qv_btree_t of {nnodes} entries")


def shown_entries(debugger, shown):
    """A title, and the first nodes in order: as many as the user wants to see and as are found by
    the links as they are, until these lead nowhere or in a circle."""
    wanted = min(shown.nnodes, debugger.limit())
    nodes = {}  # by address
    address, is_child = shown.root, True
    try:
        while address and address not in nodes and len(nodes) < wanted:
            node = read_node(debugger, address)
            for _ in range(MAX_LEVELS if is_child else 0):
                node = read_node(debugger, node.left) if node.left_child else node
            if node.address in nodes or is_child and node.left_child:
                break
            nodes[node.address] = node
            address, is_child = node.right, node.right_child
    except Unreadable:
        pass
    missing = "" if len(nodes) == wanted else f", {len(nodes)} found: qv-check names why"
    return shown.title + missing, list(nodes.values())


def map_text(debugger, shown):
    title, nodes = shown_entries(debugger, shown)
    texts = [f"[{debugger.key(node)}] = {debugger.shown(debugger.value_type, node.value)}"
             for node in nodes]
    more = "..." if len(nodes) == debugger.limit() < shown.nnodes else ""
    return title + (f" = {{{', '.join(texts)}{more}}}" if texts else "")


def node_text(debugger, node):
    def link(side, to, flag):
        kind = {0: "thread", 1: "child"}.get(flag, f"flag {flag}")
        try:
            return f"{side} {kind} {debugger.key(read_node(debugger, to)) if to else 'NULL'}"
        except Unreadable:
            return f"{side} {kind} nowhere ({to:#x})"

    return (f"{debugger.key(node)} = {debugger.shown(debugger.value_type, node.value)}, "
            f"balance {node.balance}, {link('left', node.left, node.left_child)}, "
            f"{link('right', node.right, node.right_child)}")


def text_at(debugger, address):
    """A map or a node."""
    try:
        return map_text(debugger, read_map(debugger, address))
    except Refused as not_a_map:
        try:
            node = read_node(debugger, address)
        except Unreadable:
            raise not_a_map from None
    plausible = abs(node.balance) <= 2 and max(node.left_child, node.right_child) <= 1
    if not plausible and address not in debugger.named:
        raise Refused(f"neither a map nor a node of one: {address:#x}")
    return node_text(debugger, node)


class Check:
    def __init__(self, debugger, address):
        self.debugger = debugger
        self.map = read_map(debugger, address)
        self.nodes, self.met = [], set()  # addresses

    def run(self):
        """Returns what holds; raises Broken."""
        debugger, nodes = self.debugger, self.nodes
        if self.map.root:
            self.height(None, "root", self.map.root, 1)
        if nodes and nodes[-1].right:
            raise self.broken("3: last right thread", nodes[-1])
        if len(nodes) != self.map.nnodes:
            raise self.broken(f"4: {len(nodes)} nodes, but nnodes is {self.map.nnodes}")
        try:
            if not debugger.has_process():
                raise Refused("there is no process to call the comparator in")
            index, what = debugger.first_fault(self.map.compare, [node.key for node in nodes])
        except Refused as why:
            return f"{len(nodes)} entries, invariants 2 to 4 hold; 1 not checked: {why}"
        if index < len(nodes):
            raise self.broken(f"1: {what}", *nodes[index - 1:index + 1])
        return f"{len(nodes)} entries, invariants 1 to 4 hold"

    def broken(self, what, *nodes):
        self.debugger.named.update(node.address for node in nodes)
        places = [f"node {node.address:#x}, key {self.debugger.key(node)}" for node in nodes if node]
        return Broken(f"invariant {what}" + (", at " if places else "") + ", and ".join(places))

    def height(self, parent, side, address, level):
        """Of a subtree, whose nodes join self.nodes in order."""
        around = [parent] if parent else []
        if not address:
            raise self.broken(f"3: NULL as {side} child", *around)
        try:
            node = read_node(self.debugger, address)
        except Unreadable:
            raise self.broken(f"3: {side} link to {address:#x}, where there is no memory",
                              *around) from None
        if address in self.met:
            raise self.broken(f"2: {side} child that is met twice", *around, node)
        if level > MAX_LEVELS:
            raise self.broken(f"2: deeper than {MAX_LEVELS} levels", node)
        if len(self.met) == self.map.nnodes:
            raise self.broken(f"4: more nodes than nnodes, {self.map.nnodes}", node)
        self.met.add(address)
        if {node.left_child, node.right_child} - {0, 1}:
            raise self.broken("3: flags", node)
        left = self.height(node, "left", node.left, level + 1) if node.left_child else 0
        last = self.nodes[-1:]
        if not node.left_child and node.left != (last[0].address if last else 0):
            raise self.broken("3: left thread", *last, node)
        if last and not last[0].right_child and last[0].right != address:
            raise self.broken("3: right thread", *last, node)
        self.nodes.append(node)
        right = self.height(node, "right", node.right, level + 1) if node.right_child else 0
        if node.balance != right - left or abs(node.balance) > 1:
            raise self.broken("2: balance", node)
        return max(left, right) + 1


def check(debugger, address):
    """What qv-check prints."""
    try:
        return Check(debugger, address).run()
    except Broken as broken:
        return str(broken)
