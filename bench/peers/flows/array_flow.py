"""The same scheme on an array library, the option "library"."""

from __future__ import annotations

import numpy as np
from backends import ON_PROCESSOR
from flow import Flow
from problem import Problem


class ArrayFlow:
    def __init__(self, problem: Problem) -> None:
        backend = ON_PROCESSOR[problem.options["library"]](0)
        self.flow = Flow(backend, problem.coefficients(), problem.viscosity, problem.dt)

    def take(self, steps: int) -> None:
        for _ in range(steps):
            self.flow.step()
        self.flow.backend.synchronize()

    def coefficients(self) -> np.ndarray:
        return self.flow.coefficients().astype(np.complex128)


make = ArrayFlow
