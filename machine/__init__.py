"""The unit as an arm64 virtual machine: a kernel, systemd, packages and devices that are real, where the virtual unit
has stand-ins.  `docs/machine.md` says what it is for."""
