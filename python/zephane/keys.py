"""The keys that steer a flow, on a terminal and in a window alike."""

from __future__ import annotations

from .view import View

FLOW_KEYS = (
    ("space", "pause the flow, or let it run"),
    ("s", "take one step and pause"),
    ("r", "the same flow again from its start"),
    ("n", "a new flow, from the seed that follows"),
)

FLOW_OPERATIONS = {"space": View.toggle, "s": View.step, "r": View.reset, "n": View.next_seed}
