"""Saving the state of a flow from time to time during a run."""

from __future__ import annotations

import sys

from .engine import Engine
from .errors import ZephaneError
from .records import Clock


class Checkpoints:
    """Saves a flow to one file, each time that ``every`` of its time has passed, at the next report
    of its progress. Saving changes no bit of the flow.

    A failure is printed once; the run goes on, and the file of an earlier time stays.
    """

    def __init__(self, engine: Engine, path: str, every: float, start: float) -> None:
        self._engine = engine
        self._path = path
        self._every = every
        self._next = start + every
        self._has_failed = False

    def update(self, now: Clock) -> None:
        if now.simulation_time < self._next:
            return
        missed = (now.simulation_time - self._next) // self._every
        self._next += (missed + 1.0) * self._every
        try:
            self._engine.save(self._path)
        except ZephaneError as failure:
            if not self._has_failed:
                print(f"zephane: {failure}", file=sys.stderr, flush=True)
            self._has_failed = True
