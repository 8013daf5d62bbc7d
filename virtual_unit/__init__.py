"""A camera unit without the camera: private buses, simulated sibling daemons and the unmodified daemon among them."""

from .client import Client, DbusFailure
from .daemon import DaemonFailure
from .faults import ABSENT, ANSWER, CODE, DIE, DIE_AFTER, LATE, MEANWHILE, REFUSE, SILENT, WRONG_TYPE
from .patience import PATIENCE
from .unit import ALL_SIBLINGS, AT_ONCE, VirtualUnit
from .values import Typed

__all__ = ["ABSENT", "ALL_SIBLINGS", "ANSWER", "AT_ONCE", "CODE", "Client", "DIE", "DIE_AFTER", "DaemonFailure",
           "DbusFailure", "LATE", "MEANWHILE", "PATIENCE", "REFUSE", "SILENT", "Typed", "VirtualUnit", "WRONG_TYPE"]
