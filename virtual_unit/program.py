"""What the commands are called by: as the user calls them, and as they sign what they say."""

import os

PROGRAM = os.environ.get("CCU_PROGRAM", "./ccu")  # the installed ones say another name
NAME = os.path.basename(PROGRAM)
