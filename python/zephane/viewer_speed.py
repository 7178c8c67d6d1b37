"""How fine a grid this machine can show in motion, by a short measurement."""

from __future__ import annotations

import time

from ._library import LibraryPath
from .engine import Engine
from .records import default_reynolds

MEASURED = 128
CHOICES = (128, 256, 512, 1024, 2048)

WARM_UP_STEPS, STEPS, ROUNDS = 4, 8, 3

# A step gets this much of the 1/30 s of a picture, whose drawing takes the rest.
STEP_SECONDS = 0.02
# A turnover takes about as many steps as the grid has points on a side, and this long at most, so
# that vortices are seen to form.
TURNOVER_SECONDS = 10.0
# The time of a step grows with this power of the resolution, see docs/choosing.md.
GROWTH = 2.3


def suitable_resolution(step_seconds: float) -> int:
    """The finest of ``CHOICES`` that moves, where a step at 128 x 128 takes so long."""
    suitable = CHOICES[0]
    for resolution in CHOICES:
        step = step_seconds * (resolution / MEASURED) ** GROWTH
        if step <= STEP_SECONDS and step * resolution <= TURNOVER_SECONDS:
            suitable = resolution
    return suitable


def measured_step(library: LibraryPath | None = None) -> float:
    """Seconds of a step at 128 x 128 on the device in use: the best of a few rounds."""
    reynolds = default_reynolds(MEASURED, 4)
    with Engine(resolution=MEASURED, reynolds=reynolds, library=library) as engine:
        engine.advance(WARM_UP_STEPS, fresh=False)
        rounds = []
        for _ in range(ROUNDS):
            began = time.perf_counter()
            engine.advance(STEPS, fresh=False)
            rounds.append((time.perf_counter() - began) / STEPS)
    return min(rounds)
