"""The library itself. Options: "cfl" (adaptive steps instead of fixed ones), "integrator",
"operator"."""

from __future__ import annotations

import sys
import warnings
from pathlib import Path

import numpy as np
from problem import Problem, on_grid

sys.path.insert(0, str(Path(__file__).resolve().parents[3] / "python"))

import zephane  # noqa: E402


class ZephaneFlow:
    def __init__(self, problem: Problem) -> None:
        options = dict(problem.options)
        if "cfl" not in options:
            options["fixed_dt"] = problem.dt
        start = on_grid(problem.coefficients(), problem.resolution)
        with warnings.catch_warnings():
            # The largest steps of a work-precision curve are too large on purpose.
            warnings.simplefilter("ignore", zephane.ZephaneWarning)
            self.engine = zephane.Engine(
                resolution=problem.resolution,
                reynolds=1 / problem.viscosity,
                initial=np.asarray(start, np.float32),
                **options,
            )

    def take(self, steps: int) -> None:
        self.engine.advance(steps, fresh=False)

    def coefficients(self) -> np.ndarray:
        n = self.engine.config.resolution
        coefficients = self.engine.spectrum()[:, : n // 2].astype(np.complex128)
        coefficients[n // 2] = 0
        return coefficients

    def close(self) -> None:
        self.engine.close()


make = ZephaneFlow
