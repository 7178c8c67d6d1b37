"""The time-step rule and a flow as a whole."""

import numpy as np

from .equation import nonlinear_term, speed_bound
from .grid import Grid
from .integrators import STEPS
from .start import start_spectrum


def chosen_step(bound, points, cfl, before=None):
    """The adaptive step: bound * dt * N/2 = cfl, growing by a fifth of the way at a time."""
    wanted = 2 * cfl / (bound * points) if bound > 0 else (before or 1.0)
    return min(wanted, 0.2 * wanted + 0.8 * before) if before else wanted


def split_time(time):
    """A time rounded to a pair of floats, as a double."""
    high = float(np.float32(time))
    return high + float(np.float32(time - high))


class Flow:
    """A flow with the parameters as the library holds them: viscosity, cfl and step as floats."""

    def __init__(
        self,
        resolution,
        reynolds,
        k0=4,
        seed=2,
        cfl=3.0,
        fixed_dt=None,
        integrator="etdrk4",
        operator="stress",
        start_spectrum="PAO",
        samples=None,
    ):
        self.grid = Grid(resolution)
        self.fixed_dt = None if fixed_dt is None else float(np.float32(fixed_dt))
        self.operator = operator
        self.step_once = STEPS[integrator]
        self.set(reynolds=reynolds, cfl=cfl)
        self.time, self.steps = 0.0, 0
        self.vorticity = _start(self.grid, start_spectrum, k0, seed, samples)
        self.dt = self.unclipped_dt = self._step(None)

    def set(self, reynolds=None, cfl=None):
        if reynolds is not None:
            self.viscosity = float(np.float32(1 / reynolds))
        if cfl is not None:
            self.cfl = float(np.float32(cfl))

    def advance(self, steps=1, until=None):
        end = None if until is None else split_time(until)
        for _ in range(steps):
            if end is not None and self.time >= end:
                break
            self._take_step(end)
        return self

    def _step(self, before):
        if self.fixed_dt is not None:
            return self.fixed_dt
        bound = speed_bound(self.grid, self.vorticity)
        return chosen_step(bound, self.grid.points, self.cfl, before)

    def _take_step(self, end):
        self.dt = self.unclipped_dt = self._step(self.unclipped_dt)
        lands = end is not None and self.dt >= end - self.time
        if lands:
            self.dt = end - self.time
        self.vorticity = self.step_once(
            self.vorticity,
            self.dt,
            self.viscosity * self.grid.k2 * self.grid.active,
            lambda w: nonlinear_term(self.grid, w, self.operator),
        )
        self.time = end if lands else self.time + self.dt
        self.steps += 1


def _start(grid, kind, k0, seed, samples):
    if samples is None:
        return start_spectrum(grid, kind, k0, seed)
    return grid.to_spectrum(np.asarray(samples, float))
