"""The command-line control as a person sees it: on terminals of 80 and 40 columns, with colour and without."""

import os
import re

import pytest

from tests.integration.controllerctl_cases import (  # pylint: disable=unused-import
    PROGRAM, environment, prepare_status, run, stand_in_fixture)
from tests.integration.terminal import Terminal

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
COMPLETION = os.path.join(ROOT, "controllerctl", "completion")
#: What is made to fit.
FITTING = ["--help", "record --help", "timezone set --help", "wait --help", "time set --help", "record", "dst", ""]


def variables(unit, colour):
    """The environment of a person who has the program, and wants colour or not."""
    path = f"{os.path.dirname(PROGRAM)}:{os.environ['PATH']}"
    return environment(unit, PATH=path, LC_ALL="C.UTF-8", NO_COLOR=None if colour else "1")


def session(unit, width, colour, line):
    """The screen after a line, without and with codes of colour."""
    command = ["bash", "--norc", "--noprofile", "-c", f"controllerctl {line}; echo end; read"]
    with Terminal(width, command, variables(unit, colour)) as terminal:
        lines = terminal.wait_for(lambda seen: "end" in seen)
        return lines[:lines.index("end")], "\n".join(terminal.screen(codes=True))


@pytest.mark.parametrize("colour", [True, False])
@pytest.mark.parametrize("width", [80, 40])
def test_help_fits_the_terminal(unit, width, colour):
    """To the last line, and says the same whatever the width. Without colour there is none."""
    for line in FITTING:
        lines, coded = session(unit, width, colour, line)
        assert max(map(len, lines)) <= width, line
        wide = run(unit, line, COLUMNS="1000")
        assert " ".join(" ".join(lines).split()) == " ".join((wide.out + wide.errors).split()), line
        assert colour or "\x1b[" not in coded


@pytest.mark.parametrize("width", [80, 40])
def test_what_is_below_stands_in_its_own_column(unit, width):
    """Or, where that would be narrow, a little further in than what it belongs to."""
    lines, _ = session(unit, width, True, "--help")
    indents = {len(line) - len(line.lstrip()) for line in lines}
    assert indents <= {0, 2, 22} if width == 80 else indents <= {0, 2, 6}


@pytest.mark.parametrize("colour", [True, False])
@pytest.mark.parametrize("width", [80, 40])
def test_a_session(unit, width, colour):
    """An order, what holds then, and what is nearly right."""
    prepare_status(unit)
    script = "for line in 'volume +10' 'mic toggle' 'recrod start' 'time get'; do echo \"$ $line\"; " \
             "controllerctl $line; done; echo end; read"
    with Terminal(width, ["bash", "--norc", "--noprofile", "-c", script], variables(unit, colour)) as terminal:
        lines = terminal.wait_for(lambda seen: "end" in seen)
        assert lines == ["$ volume +10", "80", "$ mic toggle", "off", "$ recrod start",
                         'controllerctl: there is no verb or option "recrod", did you mean "record"?',
                         "See controllerctl --help.", "$ time get", "2026-01-02 03:04:05", "end"]
        assert colour or "\x1b[" not in "\n".join(terminal.screen(codes=True))


# Completion -----------------------------------------------------------------------------------------------------------


@pytest.mark.parametrize("width", [80, 40])
def test_zsh_completes_with_descriptions(unit, width, tmp_path):
    """Those of the help; what is the only one that fits is put in."""
    (tmp_path / ".zshrc").write_text(
        f"PS1='> '; fpath=({COMPLETION} $fpath); autoload -U compinit; compinit -u -D; LISTMAX=0\n", encoding="utf-8")
    with Terminal(width, ["zsh", "-d", "-i"], {**variables(unit, True), "ZDOTDIR": str(tmp_path)}) as terminal:
        terminal.wait_for(lambda seen: seen[-1].startswith(">"))
        lines = terminal.complete("controllerctl dst ", lambda seen: len(seen) > 2)
        assert re.match(r"get +-- Print whether", lines[-2]) and re.match(r"set +-- Switch daylight", lines[-1])
        terminal.complete("controllerctl dst s",
                          lambda seen: seen[-1].endswith("dst set") or "> controllerctl dst set" in seen)
        terminal.complete("controllerctl dst set of", lambda seen: "> controllerctl dst set off" in seen)


@pytest.mark.parametrize("width", [80, 40])
def test_bash_completes(unit, width, tmp_path):
    """Names of the unit too, quoted as the shell needs them."""
    unit.controller.set_properties("/com/tavilon/common/Controller1", {"AudioFiles": ["bell two.wav", "$(x).wav"]},
                                   emit=False)
    (tmp_path / "rc").write_text(f"PS1='> '; source {COMPLETION}/controllerctl.bash\n", encoding="utf-8")
    command = ["bash", "--noprofile", "--rcfile", str(tmp_path / "rc"), "-i"]
    with Terminal(width, command, variables(unit, True)) as terminal:
        terminal.wait_for(lambda seen: seen[-1].startswith(">"))
        for typed, completed in (("sou", "sound"), ("sound p", "sound play"),
                                 ("sound play b", "sound play bell\\ two.wav"),
                                 ("record start --kind=ph", "record start --kind=photo-talk")):
            terminal.complete(f"controllerctl {typed}",
                              lambda seen, line=f"> controllerctl {completed}": seen[-1] == line)
