"""Random use of the daemon in a virtual unit, judged after every step."""
