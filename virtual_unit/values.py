"""Between plain Python values and the typed values of the bus."""

from dataclasses import dataclass

import dbus
import dbus.lowlevel

_BASIC = {
    "y": dbus.Byte, "b": dbus.Boolean, "n": dbus.Int16, "q": dbus.UInt16, "i": dbus.Int32, "u": dbus.UInt32,
    "x": dbus.Int64, "t": dbus.UInt64, "d": dbus.Double, "s": dbus.String, "o": dbus.ObjectPath, "g": dbus.Signature,
}
_PLAIN = ((dbus.Boolean, bool), (float, float), (int, int), (str, str))


@dataclass
class Typed:
    """A value that names its own D-Bus type, for what the interface files do not know or deliberately contradict."""
    signature: str
    value: object


def complete_types(signature):
    """The complete types of a signature, in order: "i(is)as" gives ["i", "(is)", "as"]."""
    return [str(part) for part in dbus.Signature(signature)]


def typed(signature, value, level=0):
    """The value as the one complete type of the signature, inside as many variants as the level says."""
    kind = signature[0]
    if kind == "v":
        if not isinstance(value, Typed):
            raise TypeError(f"a variant needs a Typed value, not {value!r}")
        return typed(value.signature, value.value, level + 1)
    if isinstance(value, Typed):
        raise TypeError(f"a Typed value stands where {signature} is fixed")
    if kind == "(":
        inner = signature[1:-1]
        types = complete_types(inner)
        if len(types) != len(value):
            raise TypeError(f"{value!r} does not have the {len(types)} members of {signature}")
        return dbus.Struct([typed(*pair) for pair in zip(types, value)], signature=inner, variant_level=level)
    if signature.startswith("a{"):
        inner = signature[2:-1]
        key_type, value_type = complete_types(inner)
        pairs = {typed(key_type, key): typed(value_type, item) for key, item in value.items()}
        return dbus.Dictionary(pairs, signature=inner, variant_level=level)
    if kind == "a":
        inner = signature[1:]
        return dbus.Array([typed(inner, item) for item in value], signature=inner, variant_level=level)
    return _BASIC[kind](value, variant_level=level)


def append(message, signature, arguments):
    """Appends the plain arguments to a message under the signature."""
    types = complete_types(signature)
    if len(types) != len(arguments):
        raise TypeError(f"{len(arguments)} values for the signature {signature!r}")
    if types:
        message.append(*[typed(*pair) for pair in zip(types, arguments)], signature=signature)
    return message


def plain(value):
    """The value without its D-Bus type: bool, int, float, str, list, tuple (structure) or dict."""
    if isinstance(value, dbus.Dictionary):
        return {plain(key): plain(item) for key, item in value.items()}
    if isinstance(value, dbus.Struct):
        return tuple(plain(item) for item in value)
    if isinstance(value, dbus.Array):
        return [plain(item) for item in value]
    for known, native in _PLAIN:
        if isinstance(value, known):
            return native(value)
    raise TypeError(f"no plain form of {value!r}")


def signature_of(value):
    """The D-Bus type of a received value; of what is inside when the value is a variant."""
    if isinstance(value, dbus.Dictionary):
        return "a{" + str(value.signature) + "}"
    if isinstance(value, dbus.Array):
        return "a" + str(value.signature)
    if isinstance(value, dbus.Struct):
        return "(" + "".join("v" if item.variant_level else signature_of(item) for item in value) + ")"
    return next(kind for kind, known in _BASIC.items() if isinstance(value, known))


def zero(signature):
    """The empty value of one complete type: 0, "", false, an empty container."""
    if signature.startswith("a"):
        return {} if signature.startswith("a{") else []
    if signature.startswith("("):
        return tuple(zero(part) for part in complete_types(signature[1:-1]))
    if signature == "v":
        return Typed("s", "")
    return {"b": False, "d": 0.0, "s": "", "o": "/", "g": ""}.get(signature, 0)
