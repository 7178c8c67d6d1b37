"""pyqg's barotropic model: third-order Adams-Bashforth in double precision, a thread for each
processor.

It has no viscosity, but a spectral filter that it applies once a step. The exact viscous damping of
a step takes that filter's place, with the 2/3 rule on 3N/2 points, which keeps the modes of our N.
"""

from __future__ import annotations

import logging
import os

import numpy as np
import pyqg
from problem import Problem, from_grid, on_grid


class PyqgFlow:
    def __init__(self, problem: Problem) -> None:
        self.n = problem.resolution
        self.model = pyqg.BTModel(
            L=2 * np.pi,
            nx=problem.padded,
            beta=0.0,
            rek=0.0,
            H=1.0,
            dt=problem.dt,
            tmax=np.inf,
            twrite=10**9,
            tavestart=np.inf,
            ntd=len(os.sched_getaffinity(0)),
            log_level=0,
        )
        logging.disable(logging.CRITICAL)
        model = self.model
        kept = (np.abs(model.k) < self.n // 2) & (np.abs(model.l) < self.n // 2)
        model.filtr[:] = np.where(kept, np.exp(-problem.viscosity * problem.dt * model.wv2), 0.0)
        model.set_q(on_grid(problem.coefficients(), problem.padded)[None])

    def take(self, steps: int) -> None:
        for _ in range(steps):
            self.model._step_forward()

    def coefficients(self) -> np.ndarray:
        return from_grid(np.array(self.model.q[0]), self.n)


make = PyqgFlow
