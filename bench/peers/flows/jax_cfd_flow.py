"""jax-cfd's spectral solver as its documentation sets it up: vorticity, 2/3 rule, Crank-Nicolson
with the fourth-order Runge-Kutta scheme of Carpenter and Kennedy, single precision, under jit.

The 2/3 rule on 3N/2 points keeps the modes of our N.
"""

from __future__ import annotations

from functools import partial

import jax
import jax.numpy as jnp
import numpy as np
from jax_cfd.base import grids
from jax_cfd.spectral import equations, time_stepping
from problem import Problem, from_grid, on_grid


class JaxCfdFlow:
    def __init__(self, problem: Problem) -> None:
        self.n, self.m = problem.resolution, problem.padded
        grid = grids.Grid((self.m, self.m), domain=((0, 2 * np.pi), (0, 2 * np.pi)))
        equation = equations.NavierStokes2D(problem.viscosity, grid, smooth=True)
        step = time_stepping.crank_nicolson_rk4(equation, problem.dt)

        @partial(jax.jit, donate_argnums=0)
        def steps(state: jax.Array, count: jax.Array) -> jax.Array:
            return jax.lax.fori_loop(0, count, lambda _, w: step(w), state)

        # Its first axis is x.
        vorticity = jnp.asarray(on_grid(problem.coefficients(), self.m).T, jnp.float32)
        self.steps = steps
        self.state = jnp.fft.rfftn(vorticity)
        self.take(1)  # compiles
        self.state = jnp.fft.rfftn(vorticity)

    def take(self, steps: int) -> None:
        self.state = self.steps(self.state, steps)
        self.state.block_until_ready()

    def coefficients(self) -> np.ndarray:
        vorticity = np.asarray(jnp.fft.irfftn(self.state), np.float64)
        return from_grid(vorticity.T, self.n)


make = JaxCfdFlow
