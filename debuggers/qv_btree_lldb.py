"""Shows qv_btree maps in LLDB, and checks them.

    qv-key-type char *          how to show the keys: what a pointer of this type points to; or an
                                integer type, for integers in place of pointers
    qv-value-type int *         the same for values
    frame variable map          a map as its entries, in order; or, in the same way, a node
    qv-print ADDRESS            the map or node at an address, also where its type is not known
    qv-check MAP                verifies the invariants that qv_btree.cpp numbers, and names the first
                                broken node; works on a core dump too

To load it: command script import qv_btree_lldb.py
"""
import os
import sys

import lldb

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import qv_btree_walk as walk  # pylint: disable=wrong-import-position


class Lldb(walk.Debugger):
    target = None  # LLDB hands one in with each command.
    types = {}  # those found during a command, by name

    def process(self):
        return self.target.GetProcess()

    def numbers(self):
        is_little = self.target.GetByteOrder() == lldb.eByteOrderLittle
        return "<" if is_little else ">", self.target.GetAddressByteSize()

    def read(self, address, size):
        error = lldb.SBError()
        data = self.process().ReadMemory(address, size, error)
        if not error.Success():
            raise walk.Unreadable
        return data

    def has_process(self):
        return self.process().IsValid() and self.process().GetPluginName() not in (
            "elf-core", "mach-o-core", "minidump")

    def is_code(self, address):
        section = self.target.ResolveLoadAddress(address).GetSection()
        return section.IsValid() and section.GetPermissions() & lldb.ePermissionsExecutable != 0

    def evaluated(self, expression):
        frame = self.process().GetSelectedThread().GetSelectedFrame()
        value = (frame if frame.IsValid() else self.target).EvaluateExpression(expression)
        if value.GetError().Fail():
            text = value.GetError().GetCString().replace("expression failed to parse:\n", "")
            raise walk.Refused(text.splitlines()[0].replace("error: ", ""))
        return value

    def type_of(self, type_name):
        if type_name not in self.types:
            try:
                of_type = self.evaluated(f"({type_name}*)0").GetType().GetPointeeType()
            except walk.Refused:  # LLDB wants most namespaces to be written, and no unnamed one.
                name = type_name.rstrip("* ")
                of_type = next((known for known in self.target.FindTypes(name.split("::")[-1])
                                if walk.is_meant(name, known.GetName())), lldb.SBType())
                of_type = of_type.GetPointerType() if "*" in type_name else of_type
            self.types[type_name] = of_type
        return self.types[type_name]

    def kind(self, type_name):
        of_type = self.type_of(type_name).GetCanonicalType()
        if not of_type.IsValid():
            return None
        if not of_type.IsPointerType():
            integer = lldb.eTypeIsInteger | lldb.eTypeIsEnumeration
            return "integer" if of_type.GetTypeFlags() & integer else "other"
        to = of_type.GetPointeeType()
        if to.GetBasicType() == lldb.eBasicTypeVoid:
            return "void"
        return None if not to.IsTypeComplete() else "text" if to.GetByteSize() == 1 else "object"

    def value(self, type_name, pointer, dereferenced):
        value = self.evaluated(f"(void*){pointer}ull").Cast(self.type_of(type_name))
        return value.Dereference() if dereferenced else value

    def one_line(self, value):
        if value.GetSummary():
            return value.GetSummary()
        if value.GetNumChildren() > 0 and not value.GetType().IsPointerType():
            return "{" + ", ".join(f"{child.GetName()} = {self.one_line(child)}"
                                   for child in value) + "}"
        text = value.GetValue() or "?"
        return hex(int(text, 16)) if value.GetType().IsPointerType() else text

    def first_fault(self, compare, keys, step=500):
        # A loop in the process: one call takes as long as thousands there. A call that does not
        # return leaves the process in the user's frame; which one it was is found one by one.
        for first in range(0, len(keys) - 1, step):
            chunk = keys[first:first + step + 1]
            try:
                index, what = self.evaluated(
                    f"const void* keys[] = {{{', '.join(f'(void*){key}ull' for key in chunk)}}}; int i = 1; "
                    f"while (i < {len(chunk)} && ((int (*)(const void*, const void*)){compare})"
                    "(keys[i - 1], keys[i]) < 0) ++i; i").GetValueAsSigned(), "order"
            except walk.Refused:
                index, what = (1, walk.NOT_RETURNED) if step == 1 else \
                    self.first_fault(compare, chunk, 1)
            if index < len(chunk):
                return first + index, what
        return len(keys), None

    def limit(self):
        settings = self.target.GetDebugger().GetInternalVariableValue
        return int(settings("target.max-children-count", self.target.GetDebugger().GetInstanceName())
                   .GetStringAtIndex(0))


DEBUGGER = Lldb()


def command(function):
    """A command of LLDB: prints what the function returns, or why it refused."""

    def run(debugger, argument, result, _internals):
        DEBUGGER.target, DEBUGGER.types = debugger.GetSelectedTarget(), {}
        try:
            text = function(argument)
            if text:
                result.AppendMessage(text)
        except walk.Refused as refused:
            result.SetError(str(refused))

    return run


def address_of(argument):
    if not argument.strip():
        raise walk.Refused("an address is missing, or the name of a map")
    value = DEBUGGER.evaluated(argument)
    is_object = value.GetType().GetCanonicalType().GetTypeClass() & (
        lldb.eTypeClassStruct | lldb.eTypeClassClass | lldb.eTypeClassArray)
    return (DEBUGGER.evaluated(f"&({argument})") if is_object else value).GetValueAsUnsigned()


def set_type(attribute, name):
    return lambda argument: setattr(DEBUGGER, attribute,
                                    walk.checked_type(DEBUGGER, name, argument))


qv_key_type = command(set_type("key_type", "qv-key-type"))
qv_value_type = command(set_type("value_type", "qv-value-type"))
qv_print = command(lambda argument: walk.text_at(DEBUGGER, address_of(argument)))
qv_check = command(lambda argument: walk.check(DEBUGGER, address_of(argument)))


def summary(value, _internals):
    """Of a map or node, or of a pointer to one."""
    DEBUGGER.target, DEBUGGER.types = value.GetTarget(), {}
    is_pointer = value.GetType().IsPointerType()
    address = value.GetValueAsUnsigned() if is_pointer else value.GetLoadAddress()
    try:
        return walk.text_at(DEBUGGER, address)
    except walk.Refused as refused:
        return f"<{refused}>"


def __lldb_init_module(debugger, _internals):
    for name, text in walk.HELP.items():
        debugger.HandleCommand(
            f'command script add -h "{name} {text}" -f {__name__}.{name.replace("-", "_")} {name}')
    debugger.HandleCommand(
        f"type summary add -F {__name__}.summary qv_btree_s qv_btree_node_s qv_btree_t qv_btree_node_t")
