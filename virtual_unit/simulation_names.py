"""Where the control object of a unit is found on its session bus."""

ROOT = "/com/tavilon/common/VirtualUnit1"
SERVICE = ROOT[1:].replace("/", ".")
