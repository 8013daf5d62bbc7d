"""A camera unit without the camera: private buses, simulated sibling daemons and the unmodified daemon among them."""

import importlib

#: Module of each name; loaded when the name is first used, since commands that look at a unit need hardly any of them.
_MODULES = {"Client": "client", "DbusFailure": "client", "DaemonFailure": "daemon", "PATIENCE": "patience",
            "ALL_SIBLINGS": "unit", "AT_ONCE": "unit", "VirtualUnit": "unit", "Typed": "values",
            **dict.fromkeys(("ABSENT", "ANSWER", "CODE", "DIE", "DIE_AFTER", "LATE", "MEANWHILE", "REFUSE", "SILENT",
                             "WRONG_TYPE"), "faults")}

__all__ = sorted(_MODULES)


def __getattr__(name):
    if name not in _MODULES:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    return getattr(importlib.import_module(f".{_MODULES[name]}", __name__), name)
