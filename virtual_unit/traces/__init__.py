"""Traces: what passed on the buses of a unit, and the daemon's log, recorded in one place, read or replayed in another.
"""
