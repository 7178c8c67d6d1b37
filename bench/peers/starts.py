"""The start of a flow, which the library makes, as a file for all contestants."""

from __future__ import annotations

import dataclasses
import sys
from pathlib import Path
from typing import Any

import numpy as np
from environments import BUILD, REPOSITORY
from problem import Problem

sys.path.insert(0, str(REPOSITORY / "python"))

import zephane  # noqa: E402

K0 = 4


@dataclasses.dataclass(frozen=True)
class Start:
    resolution: int
    reynolds: float
    path: Path
    # The step with which a mode at the edge of the spectrum is carried on by one radian, at most.
    courant_step: float

    def problem(self, dt: float, **options: Any) -> Problem:
        return Problem(self.resolution, 1 / self.reynolds, dt, str(self.path), options)


def start(resolution: int, reynolds_factor: float = 1.0) -> Start:
    """At the Reynolds number that the library suggests for the resolution, times the factor."""
    reynolds = reynolds_factor * zephane.default_reynolds(resolution, K0)
    path = BUILD / "scratch" / f"start-{resolution}.npy"
    path.parent.mkdir(parents=True, exist_ok=True)
    with zephane.Engine(resolution=resolution, k0=K0, reynolds=reynolds, cfl=1.0) as engine:
        dt = engine.inspect().dt
        coefficients = engine.spectrum()[:, : resolution // 2].astype(np.complex128)
    coefficients[resolution // 2] = 0
    np.save(path, coefficients)
    return Start(resolution, reynolds, path, dt)
