"""Traces: what passed on the buses of a unit, and the daemon's log, recorded in one place and looked at, or replayed, in
another."""
