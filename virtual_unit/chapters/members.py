"""What the daemon offers: its interface, as introspection tells it."""

from interfaces.introspection import controller_members, members

from ..client import INTERFACE


def _row(number, member):
    return number, member.kind, member.name, member.types[0], member.access or member.types[1]


def play(stage):
    """Shows every member and compares it."""
    unit = stage.unit
    found = members(unit.client.introspect(), INTERFACE)
    stage.tell(f"One object, {unit.client.path}, with one interface of its own, {INTERFACE}:")
    stage.show.table([("#", "Kind", "Name", "In, type", "Out, access"),
                      *(_row(number, member) for number, member in enumerate(found, 1))])
    kinds = [member.kind for member in found]
    counts = ", ".join(f"{kinds.count(kind)} {words}" for kind, words in (
        ("method", "methods"), ("property", "properties"), ("signal", "signals")))
    stage.check("members, in their order", found, controller_members(), f"{len(found)}: {counts}")
