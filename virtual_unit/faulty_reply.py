"""The replies that scripted faults put in place of a sibling's own."""

import dbus.lowlevel

from .values import Typed, append, complete_types, zero

_ERROR = "org.freedesktop.DBus.Error."


def _with_code(signature, number):
    """Values of the signature whose first int32 is the number, or None if there is no place for one."""
    types = complete_types(signature)
    if types[:1] == ["b"] and "i" not in signature:
        return [False] + [zero(part) for part in types[1:]]
    if not types or "i" not in (types[0], types[0][1:2]):
        return None
    if types[0] == "i":
        return [number] + [zero(part) for part in types[1:]]
    return [(number,) + zero(types[0])[1:]] + [zero(part) for part in types[1:]]


def _code_reply(number, message, signature):
    values = _with_code(signature, number)
    if values is None:
        return dbus.lowlevel.ErrorMessage(message, _ERROR + "Failed", f"refused with code {number}")
    return append(dbus.lowlevel.MethodReturnMessage(message), signature, values)


def _wrong_type_reply(message, signature, inside):
    reply = dbus.lowlevel.MethodReturnMessage(message)
    if signature == "v":
        return append(reply, "v", [Typed("i", 7) if inside == "s" else Typed("s", "of the wrong type")])
    if signature.startswith("s"):
        return append(reply, "d", [0.5])
    return append(reply, "s", ["of the wrong type"])


def faulty_reply(fault, message, service, types):
    """The reply of an ABSENT, REFUSE, CODE, ANSWER or WRONG_TYPE fault; `types` are the reply's own and the variant's type."""
    signature, inside = types
    if fault.kind == "absent":
        return dbus.lowlevel.ErrorMessage(message, _ERROR + "ServiceUnknown",
                                          f"The name {service} was not provided by any .service files")
    if fault.kind == "code":
        return _code_reply(fault.value, message, signature)
    if fault.kind == "answer":
        return append(dbus.lowlevel.MethodReturnMessage(message), *fault.value)
    if fault.kind == "wrong type":
        return _wrong_type_reply(message, signature, inside)
    return dbus.lowlevel.ErrorMessage(message, _ERROR + "Failed", "refused by the simulation")
