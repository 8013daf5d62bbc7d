"""Programs of other architectures, as far as packages are concerned, made without a compiler for them."""

import struct

from tests.integration.built_packages import run

OWN = run("dpkg", "--print-architecture").strip()
#: How another architecture's file differs from one that is assembled here: machine and flags of its header.
HEADERS = {"amd64": (62, 0), "arm64": (183, 0), "armhf": (40, 0x05000400), "armel": (40, 0x05000200)}
WORDS = {"armhf": (["--32"], ["-melf_i386"]), "armel": (["--32"], ["-melf_i386"])}  # those of 32 bits


def assembled(*cases):
    """The cases whose files can be made on this machine: only x86's assembler knows words of 32 bits, too."""
    return [case for case in cases if OWN == "amd64" or not WORDS.keys() & {case[0], *case[0]}]


def make_foreign(path, architecture):
    """A shared object as a compiler of that architecture would make it, as far as packages are concerned."""
    path.with_suffix(".s").write_text(".globl run\nrun: nop\n")
    path.with_suffix(".map").write_text("CONTROLLER_CLIENT_1 { global: run; };\n")
    assembler, linker = WORDS.get(architecture, ([], []))
    run("as", *assembler, str(path.with_suffix(".s")), "-o", str(path.with_suffix(".o")))
    run("ld", *linker, "-shared", "-soname", "libcontroller-client.so.1", "--version-script",
        str(path.with_suffix(".map")), str(path.with_suffix(".o")), "-o", str(path))
    header = bytearray(path.read_bytes())
    machine, flags = HEADERS[architecture]
    struct.pack_into("<H", header, 18, machine)
    struct.pack_into("<I", header, 36 if architecture in WORDS else 48, flags)
    path.write_bytes(header)
