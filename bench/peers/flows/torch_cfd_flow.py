"""torch-cfd's spectral solver as its documentation sets it up: vorticity, 2/3 rule, Crank-Nicolson
with a Runge-Kutta scheme of fourth order, single precision.

The 2/3 rule on 3N/2 points keeps the modes of our N.
"""

from __future__ import annotations

import numpy as np
import torch
from problem import Problem, from_grid, on_grid
from torch_cfd.grids import Grid
from torch_cfd.spectral import NavierStokes2DSpectral, RK4CrankNicolsonStepper


class TorchCfdFlow:
    def __init__(self, problem: Problem) -> None:
        self.n, self.dt = problem.resolution, problem.dt
        grid = Grid((problem.padded,) * 2, domain=((0, 2 * np.pi), (0, 2 * np.pi)))
        self.equation = NavierStokes2DSpectral(
            viscosity=problem.viscosity,
            grid=grid,
            drag=0.0,
            smooth=True,
            step_fn=RK4CrankNicolsonStepper(),
        )
        # Its first axis is x.
        vorticity = on_grid(problem.coefficients(), problem.padded).T.astype(np.float32)
        self.state = torch.fft.rfft2(torch.from_numpy(np.ascontiguousarray(vorticity)))

    def take(self, steps: int) -> None:
        with torch.no_grad():
            self.state, _ = self.equation(self.state, self.dt, steps=steps)

    def coefficients(self) -> np.ndarray:
        return from_grid(torch.fft.irfft2(self.state).numpy().astype(np.float64).T, self.n)


make = TorchCfdFlow
