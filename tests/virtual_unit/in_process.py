"""Commands on units without a process for each: by a call of what ./ccu runs.  Each command has a test with a process,
too."""

import contextlib
import io

from virtual_unit.__main__ import main


def command(*words):
    """Runs a command; returns its status, output and errors."""
    out, errors = io.StringIO(), io.StringIO()
    with contextlib.redirect_stdout(out), contextlib.redirect_stderr(errors):
        try:
            status = main(list(words))
        except SystemExit as ended:  # by the parser
            status = ended.code
    return status, out.getvalue(), errors.getvalue()
