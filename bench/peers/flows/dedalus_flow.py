"""Dedalus with MPI, as its example of a periodic shear flow sets it up: velocity and pressure,
dealiased by 3/2, the implicit-explicit Runge-Kutta scheme RK222, double precision."""

from __future__ import annotations

import logging

import dedalus.public as d3
import numpy as np
from mpi4py import MPI
from problem import Problem, from_grid, on_grid

logging.disable(logging.WARNING)


class DedalusFlow:
    def __init__(self, problem: Problem) -> None:
        self.n, self.dt = problem.resolution, problem.dt
        coordinates = d3.CartesianCoordinates("x", "y")
        distributor = d3.Distributor(coordinates, dtype=np.float64)
        bases = tuple(
            d3.RealFourier(coordinates[axis], self.n, bounds=(0, 2 * np.pi), dealias=3 / 2)
            for axis in "xy"
        )
        u = self.u = distributor.VectorField(coordinates, name="u", bases=bases)
        p = distributor.Field(name="p", bases=bases)
        tau_p = distributor.Field(name="tau_p")
        names = {"u": u, "p": p, "tau_p": tau_p, "nu": problem.viscosity}
        equations = d3.IVP([u, p, tau_p], namespace=names)
        equations.add_equation("dt(u) + grad(p) - nu*lap(u) = - u@grad(u)")
        equations.add_equation("div(u) + tau_p = 0")
        equations.add_equation("integ(p) = 0")
        self.solver = equations.build_solver(getattr(d3, problem.options.get("scheme", "RK222")))
        self._start(problem)

    def _start(self, problem: Problem) -> None:
        """Its first axis is x."""
        coefficients = problem.coefficients()
        kx = np.arange(self.n // 2)[None, :]
        ky = np.rint(np.fft.fftfreq(self.n) * self.n)[:, None]
        stream = coefficients / np.maximum(kx * kx + ky * ky, 1)
        part = self.u.dist.grid_layout.slices(self.u.domain, scales=1)[-2:]
        self.u.change_scales(1)
        for axis, factor in enumerate((1j * ky, -1j * kx)):
            self.u["g"][axis] = on_grid(factor * stream, self.n).T[part]

    def take(self, steps: int) -> None:
        for _ in range(steps):
            self.solver.step(self.dt)

    def coefficients(self) -> np.ndarray | None:
        vorticity = (-d3.div(d3.skew(self.u))).evaluate()
        vorticity.change_scales(1)
        whole = vorticity.allgather_data("g")
        return from_grid(whole.T, self.n) if MPI.COMM_WORLD.rank == 0 else None


make = DedalusFlow
